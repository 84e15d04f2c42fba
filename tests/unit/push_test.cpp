// Pushes from the inside: the command lines as they are queued, and many pushes at once.

#include "notify/push.h"

#include "config/reg_device.h"
#include "config/sys_cmd.h"
#include "daemon_in_process.h"
#include "main/json_memory.h"
#include "main/scope.h"
#include "support/push_helpers.h"
#include "support/scale.h"

#include <apr_general.h>
#include <cstdlib>
#include <malloc.h>
#include <map>
#include <thread>

using support::eventually;
using support::HelperRun;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::StartsWith;

static constexpr const char *UUID = "ABCDEFGHIJKLMNOPQRST";

class Push : public OutboundOnItsOwnBus {
protected:
    void SetUp() override
    {
        OutboundOnItsOwnBus::SetUp();
        apr_pool_create(&pool, nullptr);
        for (const std::string &setting : helpers.settings()) {
            const size_t sign = setting.find('=');
            setenv(setting.substr(0, sign).c_str(), setting.substr(sign + 1).c_str(), 1);
        }
    }
    void TearDown() override
    {
        EXPECT_TRUE(eventuallySent());
        const MutexLock lock(pushDevList_mutex);
        free_reg_dev_info_list(&pushDevsListHead);
        apr_pool_destroy(pool);
        OutboundOnItsOwnBus::TearDown();
    }
    void registerPhones(const std::string &phones)
    {
        setRegisteredDevices(Value(phones));
    }
    // Every command has been run, and its thread has ended or is about to.
    bool eventuallySent(support::Milliseconds limit = std::chrono::seconds(20))
    {
        return eventually(
            [] {
                const MutexLock lock(sysCmdList_mutex);
                return listEmpty(&sysCmdListHead);
            },
            limit);
    }
    // The command lines as the shell got them, which is logged.
    std::vector<std::string> commandLines()
    {
        const std::string begin = "********* push message ";
        std::vector<std::string> result;
        for (const LogLine &line : logLines()) {
            if (line.text.rfind(begin, 0) == 0)
                result.push_back(line.text.substr(begin.size()));
        }
        return result;
    }

    support::PushHelpers helpers;
    apr_pool_t *pool = nullptr;
};

TEST_F(Push, WithoutATextOrAnIdentityFails)
{
    registerPhones(R"([{"token":"T","platform":"ios"}])");
    EXPECT_EQ(sendPushMsg(pool, nullptr, UUID), -1);
    EXPECT_EQ(sendPushMsg(pool, "text", nullptr), -1);
    EXPECT_EQ(sendPushMsg(pool, nullptr, nullptr), -1);
    EXPECT_EQ(logged("pushMsg == NULL || uuid == NULL\n"), 3u);
    EXPECT_EQ(sendPushMsg(pool, "text", ""), -1);
    EXPECT_EQ(logged("strlen(uuid) == 0\n"), 1u);
    EXPECT_THAT(logLines(), Each(Field(&LogLine::level, 6)));
    EXPECT_TRUE(listEmpty(&sysCmdListHead));
}

TEST_F(Push, TellsWhetherAPhoneWantedIt)
{
    EXPECT_EQ(sendPushMsg(pool, "text", UUID), 0) << "no phone";
    registerPhones(R"([{"token":"","platform":"ios"},
        {"token":"A","platform":"ios","disable_notifications":1}])");
    EXPECT_EQ(sendPushMsg(pool, "text", UUID), 0) << "none that wants it";
    registerPhones(R"([{"token":"B","platform":"fridge"}])");
    EXPECT_EQ(sendPushMsg(pool, "text", UUID), 1) << "of any platform";
    EXPECT_TRUE(listEmpty(&sysCmdListHead));
    registerPhones(R"([{"token":"C","platform":"ios"}])");
    EXPECT_EQ(sendPushMsg(pool, "text", UUID), 1);
}

TEST_F(Push, GivesPlainTextsThePlainCommandLine)
{
    registerPhones(R"([
        {"token":"a1_@%+=:,./-Z9","platform":"ios","app_id":"com.example.app"},
        {"token":"b2","platform":"android","app_id":"com.example.app","gateway_name":"Home"},
        {"token":"c3","platform":"ios"}])");
    EXPECT_EQ(sendPushMsg(pool, "Door in Hall was triggered => Lamp to ON", UUID), 1);
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(
        commandLines(),
        ElementsAre(
            R"(ios_push "com.example.app" a1_@%+=:,./-Z9 ABCDEFGHIJKLMNOPQRST "Door in Hall was triggered => Lamp to ON")"
            "\n",
            R"(gcm_push "com.example.app" b2 "Home => Door in Hall was triggered => Lamp to ON")"
            "\n",
            R"(ios_push "" c3 ABCDEFGHIJKLMNOPQRST "Door in Hall was triggered => Lamp to ON")"
            "\n"));
}

TEST_F(Push, QuotesWhatTheShellWouldTakeForItsOwn)
{
    registerPhones(R"([{"token":"t;x","platform":"ios","app_id":"$A"},
        {"token":"`t`","platform":"android","app_id":"\"A\""}])");
    EXPECT_EQ(sendPushMsg(pool, R"(a"b\c)", "$(uuid)"), 1);
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(commandLines(), ElementsAre(R"-(ios_push "\$A" "t;x" "\$(uuid)" "a\"b\\c")-"
                                            "\n",
                                            R"(gcm_push "\"A\"" "\`t\`" "a\"b\\c")"
                                            "\n"));
    EXPECT_THAT(helpers.commands(),
                ElementsAre(ElementsAre("ios_push", "$A", "t;x", "$(uuid)", R"(a"b\c)"),
                            ElementsAre("gcm_push", R"("A")", "`t`", R"(a"b\c)")));
}

TEST_F(Push, CutsATextThatNoCommandLineHolds)
{
    registerPhones(R"([{"token":"T","platform":"ios"}])");
    const std::string fits(4'095, '"');
    EXPECT_EQ(sendPushMsg(pool, fits.c_str(), UUID), 1);
    EXPECT_EQ(sendPushMsg(pool, std::string(1'000'000, '"').c_str(), UUID), 1);
    std::string japanese;
    while (japanese.size() < 20'000)
        japanese += "玄";
    EXPECT_EQ(sendPushMsg(pool, japanese.c_str(), UUID), 1);
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(helpers.texts(), ElementsAre(fits, fits, japanese.substr(0, 4'095)));
    EXPECT_THAT(logLines(),
                Contains(AllOf(Field(&LogLine::level, 6), Field(&LogLine::function, "sendPushMsg"),
                               Field(&LogLine::text, StartsWith("text is cut")))))
        << "and says so";
}

TEST_F(Push, ThatGetsNoThreadWaitsForTheNextPush)
{
    registerPhones(R"([{"token":"T","platform":"ios"}])");
    {
        const NoThreads now;
        EXPECT_EQ(sendPushMsg(pool, "first", UUID), 1);
        EXPECT_EQ(sendPushMsg(pool, "second", UUID), 1);
    }
    const LogLine line = {6, "sendPushMsg", "Create thread failed. doPushThread\n"};
    EXPECT_THAT(logLines(), ElementsAre(line, line));
    EXPECT_EQ(helpers.count(), 0u);
    registerPhones(R"([{"token":"T","disable_notifications":1}])");
    EXPECT_EQ(sendPushMsg(pool, "wanted by nobody", UUID), 0);
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(helpers.texts(), ElementsAre("first", "second"));
}

TEST_F(Push, ThatRunsOutOfMemoryHarmsNoOther)
{
    registerPhones(R"([{"token":"T","platform":"ios","email":"a@example.org"}])");
    for (int n = 1; n <= 12; ++n) {
        failAllocation(n);
        EXPECT_EQ(sendPushMsg(pool, "in need", UUID), 1);
        failAllocation(0);
    }
    EXPECT_EQ(sendPushMsg(pool, "in plenty", UUID), 1);
    ASSERT_TRUE(eventuallySent());
    ASSERT_GE(logged("calloc fail\n"), 3u) << "the record, its text and the journal's";
    std::vector<std::string> texts = helpers.texts();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back(), "in plenty");
    texts.pop_back();
    EXPECT_THAT(texts, Each("in need"));
}

TEST_F(Push, IsNeverRecordedInPart)
{
    watchJsonMemory();
    registerPhones(R"([{"token":"T","email":"a@example.org"}])");
    const std::string whole =
        R"({"email":"a@example.org","msg":"text","uuid":")" + std::string(UUID) + R"("})";
    for (int n = 1; n <= 120; ++n) {
        failJsonAllocation(n);
        EXPECT_EQ(sendPushMsg(pool, "text", UUID), 1);
        failJsonAllocation(0);
    }
    hearEverything();
    EXPECT_GE(logged("calloc fail\n"), 10u);
    size_t records = 0;
    for (const support::Heard &heard : sdk.events("recent")) {
        const support::Json payload = support::Json(heard.text)["eventLog"][0]["payload"];
        if (support::Json(heard.text)["marker"].isNull()) {
            EXPECT_EQ(payload.dump(), whole) << heard.text;
            ++records;
        }
    }
    EXPECT_GE(records, 1u);
    EXPECT_LE(records, 110u);
}

TEST_F(Push, MailsToAnAddressWithAPassword)
{
    sendMail(pool, "jemand@example.org", "secret", "The door is open");
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(commandLines(),
                ElementsAre("mail -u jemand@example.org -p secret -m \"The door is open\"\n"));
    sendMail(pool, "a b", "$p;", "\"");
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(helpers.commands(),
                ElementsAre(ElementsAre("mail", "-u", "jemand@example.org", "-p", "secret", "-m",
                                        "The door is open"),
                            ElementsAre("mail", "-u", "a b", "-p", "$p;", "-m", "\"")));
}

TEST_F(Push, MailsNothingWhenPartOfItIsMissing)
{
    sendMail(pool, nullptr, "secret", "text");
    sendMail(pool, "a@b", nullptr, "text");
    sendMail(pool, "a@b", "secret", nullptr);
    sendMail(pool, "", "secret", "text");
    sendMail(pool, "a@b", "", "text");
    EXPECT_TRUE(listEmpty(&sysCmdListHead));
    sendMail(pool, "a@b", "secret", "");
    ASSERT_TRUE(eventuallySent());
    EXPECT_THAT(helpers.commands(),
                ElementsAre(ElementsAre("mail", "-u", "a@b", "-p", "secret", "-m", "")));
}

// What waits behind a helper that hangs.
TEST_F(Push, WaitsInAtMostEightMegabytes)
{
    static constexpr size_t MOST = 8 * 1024 * 1024;
    static constexpr size_t PUSHES = 2500;
    registerPhones(R"([{"token":"T","platform":"ios"}])");
    const std::string text(4000, 'x');
    const NoThreads none;
    for (size_t i = 0; i < PUSHES; ++i)
        EXPECT_EQ(sendPushMsg(pool, text.c_str(), UUID), 1);
    const std::vector<LogLine> lines = logLines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const LogLine &line) {
                                return line.level == 6 &&
                                       line.text.ends_with(
                                           " bytes of pushes wait, new ones are dropped\n");
                            }),
              1)
        << "once, not for each that is dropped";
    const MutexLock lock(sysCmdList_mutex);
    size_t waiting = 0;
    while (SysCmd *command = FIRST_ELEMENT(SysCmd, node, &sysCmdListHead)) {
        waiting += sizeof *command + strlen(command->cmd);
        freeSysCmd(command);
    }
    EXPECT_LE(waiting, MOST);
    EXPECT_GT(waiting, MOST * 95 / 100);
}

// Pushes from several threads at once, to ten phones each.
class PushStorm : public Push {
protected:
    static constexpr size_t THREADS = 5;
    static constexpr size_t PHONES = 10;
    static constexpr const char *APP_ID = "com.example.app";

    void SetUp() override
    {
        mallopt(M_ARENA_MAX, 1);  // a thread's own heap would count as memory in use
        Push::SetUp();
        for (size_t phone = 0; phone < PHONES; ++phone) {
            const std::string number = std::to_string(phone);
            registerPhones(R"([{"token":"token)" + number + R"(","email":")" + number +
                           R"(@example.org","app_id":"com.example.app","platform":")" +
                           platformOf(phone) + R"("}])");
        }
    }
    static std::string platformOf(size_t phone)
    {
        return phone % 2 == 0 ? "ios" : "android";
    }
    static size_t pushesOfAThread()
    {
        return support::inFull<size_t>(1000, 40) / THREADS;
    }
    static std::string textOf(size_t thread, size_t push)
    {
        return "thread " + std::to_string(thread) + ": push " + std::to_string(push);
    }
    static void pushAll(size_t thread)
    {
        for (size_t push = 0; push < pushesOfAThread(); ++push) {
            const Owned<apr_pool_t> own = createPool();
            EXPECT_EQ(sendPushMsg(own.get(), textOf(thread, push).c_str(), UUID), 1);
        }
    }
    void pushFromAllThreads()
    {
        std::vector<std::thread> threads;
        for (size_t thread = 0; thread < THREADS; ++thread)
            threads.emplace_back(pushAll, thread);
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_TRUE(eventuallySent(std::chrono::minutes(10)));
        ASSERT_NO_FATAL_FAILURE(hearEverything());
    }
    static HelperRun runFor(size_t phone, const std::string &text)
    {
        const std::string token = "token" + std::to_string(phone);
        if (platformOf(phone) == "ios")
            return {"ios_push", {APP_ID, token, UUID, text}, 0, true};
        return {"gcm_push", {APP_ID, token, text}, 0, true};
    }
    // The phones of one push follow each other, one at a time.
    void expectWholePushes(const std::vector<HelperRun> &runs)
    {
        ASSERT_EQ(runs.size(), PHONES * THREADS * pushesOfAThread());
        for (size_t i = 0; i < runs.size(); ++i) {
            const std::string &text = runs[i - i % PHONES].arguments.back();
            const HelperRun expected = runFor(i % PHONES, text);
            ASSERT_EQ(runs[i].program, expected.program) << "run " << i;
            ASSERT_EQ(runs[i].arguments, expected.arguments) << "run " << i;
            ASSERT_TRUE(runs[i].alone) << "run " << i;
        }
    }
    // Each thread's pushes come in its order, and each once.
    void expectEachThreadsOrder(const std::vector<HelperRun> &runs)
    {
        std::map<std::string, size_t> next;
        for (size_t i = 0; i < runs.size(); i += PHONES) {
            const std::string &text = runs[i].arguments.back();
            const std::string thread = text.substr(0, text.find(':'));
            ASSERT_EQ(text, thread + ": push " + std::to_string(next[thread]++));
        }
        EXPECT_EQ(next.size(), THREADS);
    }
    // What is announced comes in the order in which it is delivered.
    void expectTheSameOrderAnnounced(const std::vector<HelperRun> &runs)
    {
        const std::vector<support::Heard> heard = sdk.events("recent");
        ASSERT_EQ(heard.size(), runs.size() + 1) << "and the marker";
        int64_t sequence = 0;
        for (size_t i = 0; i < runs.size(); ++i) {
            const support::Json record = support::Json(heard[i].text)["eventLog"][0];
            ASSERT_EQ(record["payload"]["msg"].text(), runs[i].arguments.back()) << "run " << i;
            ASSERT_EQ(record["payload"]["email"].text(),
                      std::to_string(i % PHONES) + "@example.org");
            if (sequence != 0) {
                ASSERT_EQ(record["sequence"].integer(), sequence + 1);
            }
            sequence = record["sequence"].integer();
        }
    }
    void expectDelivery()
    {
        const std::vector<HelperRun> runs = helpers.runs();
        expectWholePushes(runs);
        expectEachThreadsOrder(runs);
        expectTheSameOrderAnnounced(runs);
    }
    // What is left are the daemon's own lists.
    size_t memoryInUse()
    {
        std::filesystem::remove(helpers.folder.file("runs"));
        sdk.forgetHeard();
        forgetLog();
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    }
};

TEST_F(PushStorm, IsDeliveredInOrderAndExactlyOnceAndLeavesNothingBehind)
{
    // What the allocator keeps at hand for threads, and less for a run than its smallest block.
    const size_t tolerance = size_t{40} * 1024 + 20 * PHONES * THREADS * pushesOfAThread();
    pushFromAllThreads();  // fills the journal, and what the fakes keep for themselves
    const size_t before = memoryInUse();
    pushFromAllThreads();
    expectDelivery();
    const size_t after = memoryInUse();
    support::figure("memory_kept", after - before, "bytes");
    if (support::SPEED_COUNTS) {  // a sanitizer has an allocator, and looks for leaks, of its own
        EXPECT_LT(after, before + tolerance);
    }
}
