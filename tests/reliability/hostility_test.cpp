// Strangers on the bus: floods, wrong arguments, huge texts, callers that are gone before they are
// answered and answers to no question, and beside them a client with ordinary wishes.

#include "event_flow.h"
#include "support/documented_interface.h"
#include "support/scale.h"
#include "support/usage.h"

#include <atomic>
#include <cstring>
#include <deque>
#include <thread>

using namespace support;

static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";
static constexpr Milliseconds LONG = 60s;

// A row of the routing table, with the types that it takes ("" when it looks at none).
struct Row {
    int type;
    const char *interface;
    const char *member;
    const char *takes;
};

static constexpr int SIGNAL = DBUS_MESSAGE_TYPE_SIGNAL;
static constexpr int METHOD = DBUS_MESSAGE_TYPE_METHOD_CALL;

static constexpr Row ROWS[] = {
    {SIGNAL, EVENT_SIGNALS, "triggerAPP", "qqqqs"},
    {SIGNAL, EVENT_SIGNALS, "trigger", ""},
    {SIGNAL, EVENT_SIGNALS, "command", ""},
    {METHOD, APP, "jsongettitles", "s"},
    {METHOD, APP, "jsongetgroup", "s"},
    {METHOD, APP, "jsonsetall", "s"},
    {METHOD, APP, "enablelock", ""},
    {METHOD, APP, "jsongetall", "s"},
    {METHOD, APP, "jsondel", "s"},
    {METHOD, APP, "jsonrename", "s"},
    {METHOD, APP, "jsongeteventbyseq", "s"},
    {METHOD, APP, "jsongetmacroeventbyseq", "s"},
    {METHOD, APP, "doscene", "s"},
    {METHOD, APP, "doscenemode", "s"},
    {METHOD, APP, "setDST", ""},
    {METHOD, APP, "enableastclock", "s"},
    {METHOD, APP, "setastclock_lon", ""},
    {METHOD, APP, "setastclock_lat", ""},
    {METHOD, APP, "getDat", "s"},
    {METHOD, SWITCH_APP, "setHomeScene", "i"},
    {METHOD, SWITCH_APP, "resetConfig", "i"},
    {METHOD, SWITCH_APP, "backupConfig", "i"},
    {METHOD, SWITCH_APP, "restoreConfig", "i"},
    {METHOD, SWITCH_APP, "restoreConfig2", "i"},
    {METHOD, SWITCH_APP, "backupOvrinData", "i"},
    {METHOD, PUSH_MESSAGES, "message", "s"},
    {METHOD, APP, "setRecentEventLogNum", "u"},
    {METHOD, ZWAVE_EVENT, "event", "qqq"},
};

static std::string told(int type, const std::string &interface, const std::string &member,
                        const std::string &takes)
{
    return (type == SIGNAL ? "signal " : "method ") + interface + " " + member + " " + takes;
}

// Or what is new would be spared.
TEST(HostilityRows, AreAllThatIsDocumented)
{
    std::vector<std::string> rows;
    for (const Row &row : ROWS)
        rows.push_back(told(row.type, row.interface, row.member, row.takes));
    std::vector<std::string> documented;
    for (const DocumentedMember &member : documentedMembers())
        documented.push_back(
            told(member.isMethod ? METHOD : SIGNAL, member.interface, member.name, member.takes));
    EXPECT_THAT(rows, testing::UnorderedElementsAreArray(documented));
}

// Of every type that a message can hold, beginning with each that a row takes.
static constexpr const char *SIGNATURES[] = {
    "",   "s",  "i",  "u",     "q",     "qqqqs", "qqq",   "qqqq", "qq",    "qs",   "y",     "b",
    "n",  "x",  "t",  "d",     "o",     "g",     "v",     "as",   "ay",    "(si)", "a{sv}", "si",
    "is", "us", "ii", "qqqqi", "qqsqs", "qiq",   "qqqqu", "ssss", "aaaai", "vvv",
};

// Whether a handler that wants the first types only would take it for right.
static bool isRightFor(const Row &row, const std::string &signature)
{
    return signature.rfind(row.takes, 0) == 0;
}

// Appends one value, small or empty, of each complete type.
static void appendValues(DBusMessageIter *to, const char *signature)
{
    DBusSignatureIter types;
    dbus_signature_iter_init(&types, signature);
    do {
        const int type = dbus_signature_iter_get_current_type(&types);
        const char *text = type == DBUS_TYPE_OBJECT_PATH ? "/stranger"
                           : type == DBUS_TYPE_SIGNATURE ? "s"
                                                         : "stranger";
        const uint64_t number = 1;
        DBusMessageIter inside;
        if (type == DBUS_TYPE_INVALID)
            return;
        char *whole = dbus_signature_iter_get_signature(&types);
        if (type == DBUS_TYPE_ARRAY) {
            dbus_message_iter_open_container(to, type, whole + 1, &inside);
            dbus_message_iter_close_container(to, &inside);
        } else if (type == DBUS_TYPE_VARIANT) {
            dbus_message_iter_open_container(to, type, "s", &inside);
            dbus_message_iter_append_basic(&inside, DBUS_TYPE_STRING, &text);
            dbus_message_iter_close_container(to, &inside);
        } else if (type == DBUS_TYPE_STRUCT) {
            dbus_message_iter_open_container(to, type, nullptr, &inside);
            const std::string members(whole + 1, strlen(whole) - 2);
            appendValues(&inside, members.c_str());
            dbus_message_iter_close_container(to, &inside);
        } else if (dbus_type_is_fixed(type)) {
            dbus_message_iter_append_basic(to, type, &number);
        } else {
            dbus_message_iter_append_basic(to, type, &text);
        }
        dbus_free(whole);
    } while (dbus_signature_iter_next(&types));
}

// The bus lets nobody wait for more than some replies: a stranger waits for none.
static Message messageFor(const Row &row)
{
    if (row.type == SIGNAL)
        return Message(dbus_message_new_signal("/stranger", row.interface, row.member));
    Message call(dbus_message_new_method_call(APP_NAME, "/", row.interface, row.member));
    dbus_message_set_no_reply(call.get(), TRUE);
    return call;
}

// A connection of its own, on a thread of its own: what a stranger sends delays nobody in here.
// So much of it waits for the daemon at any time: never less while it goes on, and never more,
// for one listener serves all and who floods it delays the others by what waits before them.
class Stranger {
public:
    explicit Stranger(const std::string &address, size_t messages = 8) : backlog(messages)
    {
        client.join(thread, address);
    }
    ~Stranger()
    {
        client.leave();
    }
    void send(DBusMessage *message)
    {
        thread.run([&] { client.peer.send(message); });
        keepBacklog();
    }
    // A question behind what this or another connection has sent tells that it was handled.
    void keepBacklog(size_t messages = 1)
    {
        waiting.push_back({client.call(APP, "jsongettitles", {"rooms"}), messages});
        ahead += messages;
        while (ahead > backlog)
            awaitOldest();
    }
    void finish()
    {
        while (!waiting.empty())
            awaitOldest();
    }

private:
    struct Question {
        std::shared_ptr<PendingReply> answer;
        size_t messages;  // before it, since the last one
    };

    void awaitOldest()
    {
        EXPECT_TRUE(eventually([&] { return waiting.front().answer->arrived(); }, LONG));
        ahead -= waiting.front().messages;
        waiting.pop_front();
    }

    BusThread thread;
    Client client;
    const size_t backlog;
    std::deque<Question> waiting;
    size_t ahead = 0;
};

static constexpr const char *HOME =
    R"({"scenes":[{"title":"One","comps":[{"target":{"dev":20},"value":1}]},)"
    R"({"title":"Two","comps":[]}],"macros":[{"title":"M","enabled":1,"scene":"One",)"
    R"("triggers":[{"op":"=","threshold":9,"target":{"dev":5}}]}],)"
    R"("registeredDevices":[{"token":"T","platform":"other"}],)"
    R"("rooms":[{"title":"Hall","targets":[{"dev":5}]}]})";

class Hostility : public ConfigurableDaemon {
protected:
    static constexpr size_t MOST_WAITING = 100;  // replies; the bus lets nobody wait for many more

    void SetUp() override
    {
        ConfigurableDaemon::SetUp();
        sdk.set(device(5, 0, SWITCH));
    }
    void startHome(const std::string &logLevel = "6")
    {
        startWith(HOME, withHeap({"OVRIN_LOG_LEVEL=" + logLevel}));
        gatewayReady();
        fillTheJournal();
        EXPECT_EQ(set(HOME), 1);
        configuration = callForText("jsongetall", "");
        stored = daemon.storedSetup();
        EXPECT_NE(stored, "");
    }
    std::vector<std::string> withHeap(std::vector<std::string> settings) const
    {
        for (const std::string &setting : heap.settings())
            settings.push_back(setting);
        return settings;
    }
    // What strangers report takes the place of other events then, and no memory.
    void fillTheJournal()
    {
        static constexpr size_t CAPACITY = 200;
        EventFlow flow;
        flow.join(busThread, bus.address());
        flow.pour(CAPACITY, [](size_t) { return DeviceReport{5001, 5}; });
        flow.leave();
    }
    // One read on each beat while the work goes on, whether or not the last was answered: a slow
    // answer counts for each that had to wait with it.
    void whileAClientReads(const std::function<void()> &work)
    {
        static constexpr Milliseconds BEAT = 20ms;
        std::atomic<bool> over = false;
        std::thread reading([&] {
            std::deque<Read> waiting;
            for (Moment due = Clock::now(); !over && !HasFatalFailure(); due += BEAT) {
                std::this_thread::sleep_until(due);
                waiting.push_back({due, client.call(APP, "jsongettitles", {"scenes"})});
                takeAnswers(waiting, MOST_WAITING);
            }
            if (!HasFatalFailure())
                takeAnswers(waiting, 0);
        });
        work();
        over = true;
        reading.join();
        listenerIsIdle();
    }
    struct Read {
        Moment due;
        std::shared_ptr<PendingReply> answer;
    };
    // Those that are there, and the oldest as long as too many are not.
    void takeAnswers(std::deque<Read> &waiting, size_t most)
    {
        while (!waiting.empty()) {
            const Read &oldest = waiting.front();
            if (!oldest.answer->arrived() && waiting.size() <= most)
                return;
            ASSERT_TRUE(eventually([&] { return oldest.answer->arrived(); }, LONG)) << "no answer";
            ASSERT_EQ(oldest.answer->text(), R"(["One","Two"])");
            answers.push_back(std::chrono::duration_cast<std::chrono::microseconds>(
                                  oldest.answer->at() - oldest.due)
                                  .count());
            waiting.pop_front();
        }
    }
    void expectNothingChanged()
    {
        EXPECT_EQ(callForText("jsongetall", ""), configuration);
        EXPECT_EQ(daemon.storedSetup(), stored);
        figure("answers", static_cast<int64_t>(answers.size()), "");
        figure("answer_p99", percentile(answers, 0.99), "us");
        figure("answer_longest", percentile(answers, 1), "us");
        if (SPEED_COUNTS) {  // the share is run beside other tests
            EXPECT_LE(percentile(answers, 0.99), inFull(100'000, 500'000));
        }
    }
    // The work twice, beside a client that reads; what the second leaves in use, it gives back.
    void expectMemoryBackAfter(const std::function<void()> &work)
    {
        const size_t descriptors = descriptorsOf(daemon.pid());
        whileAClientReads(work);
        const int64_t before = heapAtRest();
        const int64_t residentBefore = privateKilobytesOf(daemon.pid());
        whileAClientReads(work);
        const int64_t kept = heapAtRest() - before;
        const int64_t resident = privateKilobytesOf(daemon.pid()) - residentBefore;
        figure("heap_kept", kept, "bytes");
        figure("resident_kept", resident, "kB");
        EXPECT_EQ(descriptorsOf(daemon.pid()), descriptors);
        if (SPEED_COUNTS) {
            EXPECT_LE(kept, 4096);
            EXPECT_LE(resident, inFull(64, 128));  // of a share the first half warms little
        }
    }
    // After a minute, which ends with what is free given back. What the bus library keeps for the
    // next messages differs from one moment to the other.
    int64_t heapAtRest()
    {
        passAMinute();
        return heap.leastInUse([&] {
            emptyMessageCache(client);
            callForText("jsongetall", "");
        });
    }
    void spam(const std::vector<std::string> &options)
    {
        ChildProcess tool;
        std::vector<std::string> command = {DBUS_TEST_TOOL, "spam", "--system",
                                            std::string("--dest=") + APP_NAME};
        command.insert(command.end(), options.begin(), options.end());
        tool.start(command, {"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address()});
        EXPECT_EQ(tool.waitForEnd(120s), 0) << tool.output();
    }

    HeapProbe heap;
    std::string configuration;
    std::string stored;
    std::vector<int64_t> answers;  // microseconds
};

TEST_F(Hostility, FloodsLeaveAClientItsAnswers)
{
    startHome();
    const std::string count = "--count=" + std::to_string(inFull(60'000, 10'000) / 2);
    expectMemoryBackAfter([&] {
        spam({"--no-reply", count});
        spam({"--no-reply", "--payload=" + std::string(8000, 'x'), count});
        listenerIsIdle();
    });
    expectNothingChanged();
}

TEST_F(Hostility, WrongArgumentsChangeNothing)
{
    startHome();
    const int rounds = inFull(30, 5);  // of some 850 messages
    Stranger stranger(bus.address());
    int sent = 0;
    expectMemoryBackAfter([&] {
        for (int round = 0; round < rounds; ++round) {
            for (const Row &row : ROWS) {
                for (const char *signature : SIGNATURES) {
                    if (row.takes[0] && isRightFor(row, signature))
                        continue;
                    const Message message = messageFor(row);
                    DBusMessageIter iterator;
                    dbus_message_iter_init_append(message.get(), &iterator);
                    appendValues(&iterator, signature);
                    stranger.send(message.get());
                    ++sent;
                }
            }
        }
        stranger.finish();
    });
    figure("messages", sent, "");
    expectNothingChanged();
}

TEST_F(Hostility, HugeTextsChangeNothing)
{
    startHome();
    const int rounds = inFull(50, 2);
    const std::string huge(1 << 20, 'x');
    const std::string nested(1 << 20, '[');
    Stranger stranger(bus.address(), 2);  // megabytes
    expectMemoryBackAfter([&] {
        for (int round = 0; round < rounds; ++round) {
            for (const Row &row : ROWS) {
                const size_t texts = std::string(row.takes).find('s');
                if (texts == std::string::npos)
                    continue;
                for (const std::string *text : {&huge, &nested}) {
                    const Message message = messageFor(row);
                    DBusMessageIter iterator;
                    dbus_message_iter_init_append(message.get(), &iterator);
                    for (size_t i = 0; i < texts; ++i) {
                        const uint16_t number = 5;
                        dbus_message_iter_append_basic(&iterator, DBUS_TYPE_UINT16, &number);
                    }
                    const char *pointer = text->c_str();
                    dbus_message_iter_append_basic(&iterator, DBUS_TYPE_STRING, &pointer);
                    stranger.send(message.get());
                }
            }
        }
        stranger.finish();
    });
    expectNothingChanged();
}

TEST_F(Hostility, CallersThatVanishLeaveNothingBehind)
{
    startHome();
    const int callers = inFull(5'000, 300);
    expectMemoryBackAfter([&] {
        BusThread thread;
        Stranger counting(bus.address());
        for (int i = 0; i < callers; ++i) {
            Client stranger;
            stranger.join(thread, bus.address());
            for (const char *member : {"jsongetall", "jsongeteventbyseq", "jsongetgroup"})
                stranger.call(APP, member, {"scenes"});
            stranger.leave();
            counting.keepBacklog(3);
        }
        counting.finish();
    });
    expectNothingChanged();
}

TEST_F(Hostility, RepliesNobodyAskedForAreIgnored)
{
    startHome("2");
    const int replies = inFull(25'000, 5'000);
    Stranger stranger(bus.address());
    expectMemoryBackAfter([&] {
        for (int i = 0; i < replies; ++i) {
            const Message reply(dbus_message_new(i % 2 ? DBUS_MESSAGE_TYPE_METHOD_RETURN
                                                       : DBUS_MESSAGE_TYPE_ERROR));
            dbus_message_set_destination(reply.get(), APP_NAME);
            dbus_message_set_reply_serial(reply.get(), static_cast<uint32_t>(i + 1));
            if (i % 2 == 0)
                dbus_message_set_error_name(reply.get(), DBUS_ERROR_FAILED);
            stranger.send(reply.get());
        }
        stranger.finish();
    });
    EXPECT_TRUE(daemon.logged("path: (null), method: (null)")) << "none has come";
    expectNothingChanged();
}
