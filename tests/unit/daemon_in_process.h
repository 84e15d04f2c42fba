// What the unit tests share; each test is run in a process of its own. It is the log as lines,
// memory that runs out when told to, and the daemon's outbound connection on a private bus with the
// fakes around it.

#pragma once

#include "support/fake_platform.h"
#include "support/fake_sdk.h"
#include "support/private_bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <string>
#include <vector>

struct LogLine {
    int level;
    std::string function;
    std::string text;

    bool operator==(const LogLine &) const = default;
};
void PrintTo(const LogLine &line, std::ostream *out);

// Every line since the test began, or since forgetLog.
std::vector<LogLine> logLines();
std::vector<std::string> logTexts();
size_t logged(const std::string &text);  // how many lines are exactly that text
void forgetLog();

// From now on the n-th allocation of a record fails (1: the next one), once; 0 switches it off.
void failAllocation(int n);

// The same for what the JSON library allocates; watchJsonMemory has been called.
void failJsonAllocation(int n);
bool jsonAllocationHasFailed();  // since then

// From now on the n-th thread that the daemon creates fails (1: the next one), once; 0 switches it
// off.
void failThread(int n);

// The daemon creates no thread as long as this lives.
class NoThreads {
public:
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads &) = delete;
    NoThreads &operator=(const NoThreads &) = delete;
};

// A JSON value that frees itself, from its text.
class Value {
public:
    explicit Value(const std::string &text)
        : value(json_loads(text.c_str(), JSON_DECODE_ANY, nullptr))
    {
        EXPECT_NE(value, nullptr) << "not JSON: " << text;
    }
    ~Value()
    {
        json_decref(value);
    }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    operator json_t *() const
    {
        return value;
    }

private:
    json_t *value;
};

// Compact, sorted, and frees the value.
std::string takeText(json_t *value);

// The daemon's outbound connection on a bus of the test's own.
class OutboundOnItsOwnBus : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Everything that was sent before has been heard when this returns.
    void hearEverything();

    support::BusThread busThread;
    support::PrivateBus bus;
    support::FakePlatform platform;
    support::FakeSdk sdk;
    int markers = 0;
};
