// The D-Bus policy of the package, on a bus of the system's type with its stock rules: who is
// served, and that strangers neither reach the daemon nor hear what it announces.
//
// Accounts that every machine has stand in for those of the gateway.

#include "support/daemon_on_its_own_bus.h"
#include "support/scale.h"

#include <atomic>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>

using namespace support;
using testing::IsEmpty;

static constexpr const char *OWNER = "bin";      // runs the daemon
static constexpr const char *MEMBER = "daemon";  // and the group of that name
static constexpr const char *STRANGER = "nobody";
static constexpr const char *DENIED = "org.freedesktop.DBus.Error.AccessDenied";
static constexpr const char *COMMANDS = "com.OvrinTech.signal.json.command";
static constexpr const char *ANNOUNCEMENTS = "com.OvrinTech.signal.eventLog";
static constexpr const char *SDK_NAME = "com.ovrinbus.sdk";
static constexpr const char *SWITCH_APP = "com.OvrinTech.switch.app";
static constexpr uint16_t REPORT = 5001;

// As /usr/share/dbus-1/system.conf has them.
static constexpr const char *STOCK_RULES = R"(
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>
  <policy user="root">
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Monitoring"/>
  </policy>)";

// Those of the two daemons that run as root.
static constexpr const char *RULES_OF_THE_OTHERS = R"(
  <policy user="root">
    <allow own="com.ovrinbus.sdk"/>
    <allow own="com.ovrinbus.platform"/>
  </policy>)";

// What makes it run at all where the package brings no rules.
static constexpr const char *NO_POLICY = R"(
  <policy user="bin">
    <allow own="com.ovrinbus.app"/>
    <allow send_type="method_call"/>
  </policy>
  <policy user="root">
    <allow send_type="method_call"/>
  </policy>)";

struct MethodRow {
    const char *interface;
    const char *member;
    std::vector<Argument> arguments;
    const char *reply;  // its type, "" when there is none
};

static const MethodRow METHODS[] = {
    {APP, "jsongettitles", {"scenes"}, "s"},
    {APP, "jsongetgroup", {"rooms"}, "s"},
    {APP, "jsonsetall", {R"({"rooms":[{"title":"Forged"}]})"}, "i"},
    {APP, "enablelock", {"1"}, ""},
    {APP, "jsongetall", {"all"}, "s"},
    {APP, "jsondel", {R"({"rooms":[{"title":"Forged"}]})"}, "i"},
    {APP, "jsonrename", {R"(["rooms","Hall","Forged"])"}, "i"},
    {APP, "jsongeteventbyseq", {"1"}, "s"},
    {APP, "jsongetmacroeventbyseq", {"1"}, "s"},
    {APP, "doscene", {"Light"}, "s"},
    {APP, "doscenemode", {"2"}, "s"},
    {APP, "setDST", {}, ""},
    {APP, "enableastclock", {"2"}, "s"},
    {APP, "setastclock_lon", {}, ""},
    {APP, "setastclock_lat", {}, ""},
    {APP, "getDat", {"all"}, "s"},
    {SWITCH_APP, "setHomeScene", {int32_t{0}}, "i"},
    {SWITCH_APP, "resetConfig", {int32_t{0}}, "i"},
    {SWITCH_APP, "backupConfig", {int32_t{0}}, "i"},
    {SWITCH_APP, "restoreConfig", {int32_t{0}}, "i"},
    {SWITCH_APP, "restoreConfig2", {int32_t{0}}, "i"},
    {SWITCH_APP, "backupOvrinData", {int32_t{0}}, "i"},
    {"com.OvrinTech.message.pushMsg", "message", {"Forged"}, "s"},
    {APP, "setRecentEventLogNum", {uint32_t{1}}, "u"},
    {ZWAVE_EVENT, "event", {REPORT, uint16_t{5}, uint16_t{0}}, "u"},
};

// Somebody on the bus: who calls and sends, and whose ears hear what there is to hear.
struct Person {
    Client client;
    Peer ears;
    std::atomic<int> heard{0};    // announcements, and what was meant for others
    std::atomic<int> forged{0};   // what the stranger has sent
    std::atomic<int> reports{0};  // of devices
};

class BusPolicy : public ConfigurableDaemon {
protected:
    static constexpr int EACH = 100;

    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can be several users";
        for (const char *account : {OWNER, MEMBER, STRANGER}) {
            if (!getpwnam(account))
                GTEST_SKIP() << "no user " << account;
        }
        files.write("app.conf", policyHere());
    }
    void TearDown() override
    {
        for (Person *person : {&stranger, &member, &owner}) {
            person->client.leave();
            person->ears.leave();
        }
        ConfigurableDaemon::TearDown();
    }
    static std::string policyHere()
    {
        std::ostringstream text;
        text << std::ifstream(PACKAGING_FOLDER "/com.ovrinbus.app.conf").rdbuf();
        return replaced(replaced(text.str(), R"(user="ovrin")", R"(user="bin")"),
                        R"(group="ovrin")", R"(group="daemon")");
    }
    static std::string replaced(std::string text, const std::string &old, const std::string &by)
    {
        EXPECT_NE(text.find(old), std::string::npos) << old;
        for (size_t at = text.find(old); at != std::string::npos; at = text.find(old, at))
            text.replace(at, old.size(), by);
        return text;
    }
    std::string includedPolicy() const
    {
        return "<include>" + files.file("app.conf").string() + "</include>";
    }
    void startHome(const std::string &rules)
    {
        ASSERT_NO_FATAL_FAILURE(
            bus.startAsSystemBus(std::string(STOCK_RULES) + RULES_OF_THE_OTHERS + rules));
        platform.join(busThread, bus.address());
        sdk.join(busThread, bus.address());
        client.join(busThread, bus.address());
        joinAs(STRANGER, stranger);
        busThread.run([this] {
            strangersName = dbus_bus_get_unique_name(stranger.client.peer.connection());
        });
        joinAs(MEMBER, member);
        joinAs(OWNER, owner);
        sdk.set(device(5, 0, SWITCH));
        sdk.set(device(20, 0, SWITCH));
        ASSERT_NO_FATAL_FAILURE(daemon.runAs(OWNER));
        startReady(R"({"rooms":[{"title":"Hall"}],"scenes":[{"title":"Light","comps":[
            {"value":255,"target":{"dev":20}}]}],"registeredDevices":[{"token":"Secret"}]})");
    }
    // The bus asks the socket who has connected it. The bus thread alone takes that user on, and
    // only as long as it connects: the calls of the C library would change every thread.
    void become(uid_t user, gid_t group)
    {
        busThread.run([&] {
            ASSERT_EQ(syscall(SYS_setresuid, -1, 0, -1), 0);
            ASSERT_EQ(syscall(SYS_setgroups, 1, &group), 0);
            ASSERT_EQ(syscall(SYS_setresgid, -1, group, -1), 0);
            ASSERT_EQ(syscall(SYS_setresuid, -1, user, -1), 0);
        });
    }
    void joinAs(const char *account, Person &person)
    {
        const passwd &user = *getpwnam(account);
        become(user.pw_uid, user.pw_gid);
        person.client.join(busThread, bus.address());
        person.ears.join(busThread, bus.address(), [this, &person](DBusMessage *message) {
            if (dbus_message_has_sender(message, strangersName.c_str()))
                ++person.forged;
            if (dbus_message_has_interface(message, EVENT_SIGNALS))
                ++person.reports;
            const bool isSignal = dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL;
            if (!isSignal || dbus_message_has_interface(message, ANNOUNCEMENTS))
                ++person.heard;
        });
        become(0, 0);
        // The bus may refuse what asks for messages to others.
        for (const char *rule :
             {"type='signal'", "eavesdrop='true',type='signal'",
              "eavesdrop='true',type='method_call'", "eavesdrop='true',type='method_return'"})
            busThread.run([&] { dbus_bus_add_match(person.ears.connection(), rule, nullptr); });
    }
    // Everything that person has sent has been through the bus.
    void throughTheBus(Person &person)
    {
        person.client.peer.nameHasOwner(APP_NAME);
    }
    std::string uniqueNameOf(const std::string &name)
    {
        std::string result;
        busThread.run([&] {
            const Message question(dbus_message_new_method_call(
                DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "GetNameOwner"));
            const char *text = name.c_str();
            dbus_message_append_args(question.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
            const Message reply(dbus_connection_send_with_reply_and_block(
                client.peer.connection(), question.get(), 8000, nullptr));
            if (reply && dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_STRING, &text,
                                               DBUS_TYPE_INVALID))
                result = text;
        });
        return result;
    }
    // That of the connection by which the daemon asks and announces.
    std::string outboundName()
    {
        return platform.requests().at(0).sender;
    }
    // A call that the libraries would not send so: without an interface, or to a connection.
    void callPlainly(Person &person, const std::string &destination, const char *method)
    {
        busThread.run([&] {
            const Message call(
                dbus_message_new_method_call(destination.c_str(), "/", nullptr, method));
            const char *text = "rooms";
            dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
            person.client.peer.send(call.get());
        });
    }
    // How many messages have reached the daemon's listener, not counting those that make sure of
    // it.
    size_t arrived()
    {
        listenerIsIdle();
        return daemon.timesLogged("enter filter_func") - ++looks;
    }
    bool mayOwnTheName(Person &person)
    {
        int result = 0;
        busThread.run([&] {
            result = dbus_bus_request_name(person.client.peer.connection(), APP_NAME,
                                           DBUS_NAME_FLAG_REPLACE_EXISTING, nullptr);
        });
        return result > 0;
    }
    void everybodyIsTold(int times)
    {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(set(R"({"registeredDevices":[{"token":"Secret","username":")" +
                          std::to_string(i) + R"("}]})"),
                      1);
            eventHandled(REPORT, 5, 0);
        }
        ASSERT_TRUE(eventually(
            [&] { return sdk.events("jsongetall").size() >= static_cast<size_t>(times); }));
    }
    void forge(Person &person, int times)
    {
        const std::vector<Argument> event = {REPORT, uint16_t{5}, uint16_t{0}, uint16_t{0}, ""};
        const std::vector<Argument> command = {switchCommand(20, 0, 255)};
        const std::string listener = uniqueNameOf(APP_NAME);
        const std::string radio = uniqueNameOf(SDK_NAME);
        const auto send = [&](const std::string &destination, const char *interface,
                              const char *signal, const std::vector<Argument> &arguments) {
            person.client.signal("/com/OvrinTech/process/zwave", interface, signal, arguments,
                                 destination);
        };
        for (int i = 0; i < times; ++i) {
            send("", EVENT_SIGNALS, "triggerAPP", event);
            send("", EVENT_SIGNALS, "trigger", {});
            send("", EVENT_SIGNALS, "command", {});
            send(APP_NAME, EVENT_SIGNALS, "triggerAPP", event);
            send(listener, EVENT_SIGNALS, "triggerAPP", event);
            send(APP_NAME, "com.example", "anything", event);
            send("", COMMANDS, "command", command);
            send(SDK_NAME, COMMANDS, "command", command);
            send(radio, COMMANDS, "command", command);
            send("", COMMANDS, "kick_thedog", {uint16_t{1}});
            send("", ANNOUNCEMENTS, "jsongetall", {"{}"});
        }
        throughTheBus(person);
    }

    Person stranger, member, owner;
    std::string strangersName;
    TempDir files;
    size_t looks = 0;
};

TEST_F(BusPolicy, TurnsEveryCallOfAStrangerAway)
{
    ASSERT_NO_FATAL_FAILURE(startHome(includedPolicy()));
    const std::string before = callForText("jsongetall", "all");
    const size_t reached = arrived();
    size_t denied = 0;
    for (const MethodRow &row : METHODS) {
        std::vector<std::shared_ptr<PendingReply>> replies;
        for (int i = 0; i < EACH; ++i)
            replies.push_back(stranger.client.call(row.interface, row.member, row.arguments));
        for (const auto &reply : replies) {
            ASSERT_TRUE(eventually([&] { return reply->arrived(); })) << row.member;
            ASSERT_EQ(reply->error(), DENIED) << row.member;
            ++denied;
        }
    }
    for (const std::string &destination :
         {std::string(APP_NAME), uniqueNameOf(APP_NAME), outboundName()}) {
        for (const MethodRow &row : METHODS)
            callPlainly(stranger, destination, row.member);
    }
    throughTheBus(stranger);
    const size_t served = arrived() - reached;
    EXPECT_EQ(served, 0u);
    EXPECT_EQ(callForText("jsongetall", "all"), before);
    EXPECT_EQ(denied, std::size(METHODS) * EACH);
    figure("calls_served", static_cast<int64_t>(served), "of 2500");
}

TEST_F(BusPolicy, LetsNoForgedSignalThrough)
{
    ASSERT_NO_FATAL_FAILURE(startHome(includedPolicy()));
    const size_t reached = arrived();
    sdk.forgetHeard();
    forge(stranger, EACH);
    member.ears.nameHasOwner(APP_NAME);  // what was to come has come
    const size_t through = arrived() - reached + sdk.commands().size() + member.forged;
    EXPECT_EQ(through, 0u);
    EXPECT_EQ(announced(REPORT, 5), 0u);
    EXPECT_THAT(sdk.events("jsongetall"), IsEmpty());
    EXPECT_LT(sdk.kicks().size(), size_t{EACH}) << "the daemon's own come once a second";
    figure("forgeries_through", static_cast<int64_t>(through), "of 1100");
}

TEST_F(BusPolicy, KeepsAnnouncementsFromStrangers)
{
    const int times = inFull(EACH, 10);
    ASSERT_NO_FATAL_FAILURE(startHome(includedPolicy()));
    sdk.forgetHeard();
    stranger.heard = owner.heard = member.heard = 0;
    everybodyIsTold(times);
    stranger.ears.nameHasOwner(APP_NAME);  // what was to come has come
    EXPECT_EQ(stranger.heard, 0);
    const int made =
        static_cast<int>(sdk.events("recent").size() + sdk.events("jsongetall").size());
    EXPECT_GE(made, 2 * times);
    EXPECT_TRUE(eventually([&] { return member.heard >= made; }));
    EXPECT_TRUE(eventually([&] { return owner.heard >= made; }));
    figure("overheard", stranger.heard, "of " + std::to_string(made));
}

TEST_F(BusPolicy, GivesTheNameToItsOwnerOnly)
{
    ASSERT_NO_FATAL_FAILURE(startHome(includedPolicy()));
    for (Person *person : {&stranger, &member})
        EXPECT_FALSE(mayOwnTheName(*person));
    bool rootMay = true;
    busThread.run([&] {
        rootMay = dbus_bus_request_name(client.peer.connection(), APP_NAME,
                                        DBUS_NAME_FLAG_REPLACE_EXISTING, nullptr) > 0;
    });
    EXPECT_FALSE(rootMay);
    EXPECT_TRUE(mayOwnTheName(owner)) << "in the queue behind the daemon";
}

TEST_F(BusPolicy, ServesRootTheOwnerAndTheGroup)
{
    ASSERT_NO_FATAL_FAILURE(startHome(includedPolicy()));
    for (Client *served : {&client, &member.client, &owner.client}) {
        const size_t reached = arrived();
        for (const MethodRow &row : METHODS) {
            const auto reply = served->call(row.interface, row.member, row.arguments);
            if (*row.reply == '\0')
                continue;
            // A configuration that was reset has nothing to hand out until it is saved again.
            ASSERT_TRUE(eventually([&] { return reply->arrived(); })) << row.member;
            EXPECT_EQ(reply->signature(), row.reply) << row.member << " " << reply->error();
        }
        EXPECT_EQ(arrived() - reached, std::size(METHODS));
        const int heard = member.reports;
        sdk.forgetHeard();
        served->signal("/", EVENT_SIGNALS, "triggerAPP",
                       {REPORT, uint16_t{5}, uint16_t{0}, uint16_t{0}, ""});
        served->signal("/", COMMANDS, "command", {"a command of another"});
        EXPECT_TRUE(eventually([&] { return announced(REPORT, 5) > 0; }));
        EXPECT_TRUE(eventually([&] { return member.reports > heard; })) << "others hear it too";
        EXPECT_TRUE(eventually([&] { return sdk.heard("a command of another"); }));
    }
}

// What the rules are for, and that the tests above would see it.
TEST_F(BusPolicy, IsNeeded)
{
    ASSERT_NO_FATAL_FAILURE(startHome(NO_POLICY));
    const size_t reached = arrived();
    sdk.forgetHeard();
    stranger.heard = 0;
    forge(stranger, 10);
    EXPECT_EQ(arrived() - reached, 60u) << "forged events reach the daemon";
    EXPECT_EQ(sdk.commands().size(), 30u) << "and forged commands the SDK daemon";
    EXPECT_EQ(member.forged, 60) << "and whatever others listen to";
    everybodyIsTold(1);
    EXPECT_TRUE(eventually([&] { return stranger.heard > 0; })) << "and passwords the stranger";
}
