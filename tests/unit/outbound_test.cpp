// The outbound connection: calls that overlap, signals that leave meanwhile, and a bus that goes
// away.

#include "bus/outbound.h"

#include "bus/outbound_io.h"
#include "daemon_in_process.h"
#include "main/json_memory.h"
#include "scene/sdk_command.h"

#include <apr_general.h>
#include <thread>

using namespace std::chrono_literals;
using support::eventually;

class Outbound : public OutboundOnItsOwnBus {
protected:
    // A call on a thread of its own with a pool of its own; whether an answer came.
    static bool ask(Integer uid)
    {
        apr_pool_t *pool = nullptr;
        apr_pool_create(&pool, nullptr);
        const bool answered = sendOvrinSdkCmd(pool, "getdevice", uid) != nullptr;
        apr_pool_destroy(pool);
        return answered;
    }
};

TEST_F(Outbound, EndsEveryWaitAtOnceWhenTheBusGoesAway)
{
    sdk.behave("getdevice", 5, support::Answer::silence());
    const auto begin = std::chrono::steady_clock::now();
    std::vector<std::thread> callers;
    std::atomic<int> answered{0};
    for (int i = 0; i < 8; ++i)
        callers.emplace_back([&] { answered += ask(5) ? 1 : 0; });
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 5) == 8; }));
    bus.stop();
    for (std::thread &caller : callers)
        caller.join();
    EXPECT_EQ(answered, 0);
    if (support::SPEED_COUNTS) {
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    }
    EXPECT_EQ(logged("No reply\n"), 8u);
}

TEST_F(Outbound, GivesEachCallItsOwnTimeOutAndItsOwnAnswer)
{
    sdk.set(support::device(6, 1, support::SWITCH));
    sdk.behave("getdevice", 5, support::Answer::silence());
    std::atomic<bool> answered{true};
    const auto begin = std::chrono::steady_clock::now();
    std::thread waiting([&] { answered = ask(5); });
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 5) == 1; }));
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(ask(6));
    waiting.join();
    EXPECT_FALSE(answered);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2s);
}

TEST_F(Outbound, KeepsTheOrderOfOneThreadsSignals)
{
    sdk.behave("getdevice", 5, support::Answer::silence());
    std::thread waiting([&] { ask(5); });
    ASSERT_TRUE(eventually([&] { return sdk.asked("getdevice", 5) == 1; }));
    std::vector<std::string> expected;
    const std::string filler(20'000, 'x');  // more than a socket takes at once
    for (int i = 0; i < 200; ++i) {
        const std::string text = R"({"control":{"cmd":"switch","filler":")" + filler +
                                 R"(","uid":)" + std::to_string(i) + "}}";
        expected.push_back(text);
        EXPECT_EQ(dbus_signal_json_command(nullptr, text.c_str()), 0);
    }
    EXPECT_TRUE(eventually([&] { return sdk.commandTexts().size() == expected.size(); }));
    EXPECT_EQ(sdk.commandTexts(), expected);
    waiting.join();
}

TEST_F(Outbound, TakesAnEmptyReplyForNoAnswerButNotFromNvram)
{
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    sdk.behave("getZWID", 0, support::Answer::withoutArguments());
    EXPECT_EQ(sendOvrinSdkCmd(pool, "getZWID", 0), nullptr);
    platform.behave("language", support::Answer::withoutArguments());
    EXPECT_STREQ(app_dbus_get_nvram(pool, "language"), "(null)");
    EXPECT_EQ(logged("Message has no arguments!\n"), 2u);
    apr_pool_destroy(pool);
}

TEST_F(Outbound, RefusesATextThatIsNoUtf8)
{
    EXPECT_EQ(dbus_signal_event("\xFF", "recent"), -1);
    EXPECT_EQ(logged("dbus_message_append_args fail.\n"), 1u);
}

TEST_F(Outbound, LeavesTheChannelOutOfACommandWhenItIsNegative)
{
    sendZwaveCmd(nullptr, "switch", 5, -1, 1);
    sendZwaveCmd(nullptr, "switch", 5, -7, 1);
    sendZwaveCmd(nullptr, "switch", 5, 0, 1);
    hearEverything();
    EXPECT_THAT(sdk.commandTexts(),
                testing::ElementsAre(R"({"control":{"cmd":"switch","uid":5,"val":1}})",
                                     R"({"control":{"cmd":"switch","uid":5,"val":1}})",
                                     R"({"control":{"chid":0,"cmd":"switch","uid":5,"val":1}})"));
}

TEST_F(Outbound, CarriesNumbersOf64Bits)
{
    sendZwaveCmd(nullptr, "switch", 4294967301, 4294967297, -4294967297);
    sendOvrinSdkSysSound(nullptr, 0, 4294967297);
    hearEverything();
    EXPECT_THAT(
        sdk.commandTexts(),
        testing::ElementsAre(
            R"({"control":{"chid":4294967297,"cmd":"switch","uid":4294967301,"val":-4294967297}})",
            R"({"control":{"cmd":"syssound","val":4294967297}})"));
    EXPECT_EQ(logged("sendOvrinSdkSysSound() val: 4294967297\n"), 1u);
}

TEST_F(Outbound, SendsASetPointWithItsUnitAndAChannelWhenThereIsOne)
{
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    sendZwaveTempCmd(pool, "thermostattemp", 5, 2, 215);
    const std::string text =
        R"({"control":{"chid":2,"cmd":"thermostattemp","temp":215,"uid":5,"unit":1}})";
    EXPECT_THAT(sdk.commandTexts(), testing::ElementsAre(text));
    EXPECT_EQ(logged("ret_strings: " + text + "\n"), 1u);
    EXPECT_EQ(logged("enter app_dbus_send_json_cmd, sdk cmd: " + text + "\n"), 1u);
    apr_pool_destroy(pool);
}

TEST_F(Outbound, SendsACommandWholeOrNotAtAllWhenMemoryRunsOut)
{
    watchJsonMemory();
    for (int n = 1; n < 40; ++n) {
        failJsonAllocation(n);
        sendZwaveCmd(nullptr, "switch", 5, 1, 99);
        failJsonAllocation(0);
    }
    hearEverything();
    const auto texts = sdk.commandTexts();
    EXPECT_GT(texts.size(), 1u);
    EXPECT_LT(texts.size(), 35u);
    EXPECT_THAT(texts, testing::Each(support::switchCommand(5, 1, 99)));
}

TEST(OutboundWithoutABus, SaysSoAndFails)
{
    apr_initialize();
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    EXPECT_EQ(app_dbus_get_nvram(pool, "language"), nullptr);
    EXPECT_EQ(app_dbus_send_json_cmd(pool, "{}"), nullptr);
    EXPECT_EQ(dbus_signal_json_kick_dog(pool, 77), -1);
    EXPECT_EQ(dbus_signal_json_command(pool, "{}"), -1);
    EXPECT_EQ(dbus_signal_event("{}", "recent"), -1);
    EXPECT_EQ(logged("dbus_conn is NULL.\n"), 5u);
    apr_pool_destroy(pool);
}
