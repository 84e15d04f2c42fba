// What a stranger who reads the log learns: no password and no token.

#include "support/daemon_on_its_own_bus.h"
#include "support/push_helpers.h"

#include <sstream>

using namespace support;

static constexpr const char *PUSH_MESSAGES = "com.OvrinTech.message.pushMsg";

// Each secret of the configuration holds this.
static constexpr const char *SECRET = "s3cr3t";

class SecretsInTheLog : public ConfigurableDaemon {
protected:
    // The lines at a level that the daemon shows unless it is asked for more; a text of several
    // lines belongs to the level of its first.
    std::string shownLog() const
    {
        std::istringstream log(daemon.log());
        std::string shown;
        bool isShown = true;
        for (std::string line; std::getline(log, line);) {
            if (line.size() > 1 && line[0] >= '2' && line[0] <= '6' && line[1] == ' ')
                isShown = line[0] >= '4';
            if (isShown)
                shown += line + '\n';
        }
        return shown;
    }
    const std::string configuration =
        R"({"cameras":[{"uid":"C","password":"s3cr3t1"}],)"
        R"("rooms":[{"title":"R","camera_password":"s3cr3t2",)"
        R"("extra_camera":[{"camera":"E","camera_password":"s3cr3t3"}]}],)"
        R"("registeredDevices":[{"token":"s3cr3t4 \"x","platform":"ios","password":"s3cr3t5"},)"
        R"({"token":"s3cr3t6)" +
        std::string(2000, 'x') + R"(","platform":"android"}]})";
    PushHelpers helpers;
};

TEST_F(SecretsInTheLog, AreNotShownAboveDebugLevel)
{
    platform.set("TUTK_UUID", "ABCDEFGHIJKLMNOPQRST");
    startWith("{}", helpers.settings());
    gatewayReady();
    EXPECT_EQ(set(configuration), 1);
    EXPECT_EQ(callForText("message", "The door is open", PUSH_MESSAGES), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() == 2; }));
    helpers.remove("ios_push");
    EXPECT_EQ(callForText("message", "The door is shut", PUSH_MESSAGES), "done");
    ASSERT_TRUE(eventually([&] { return helpers.count() == 3; }));
    EXPECT_NE(callForText("jsongetall", ""), "");
    EXPECT_EQ(callForNumber("jsondel", configuration), 1);

    EXPECT_NE(daemon.log().find(SECRET), std::string::npos) << "in what is for developers";
    const std::string shown = shownLog();
    EXPECT_NE(shown.find(R"("uid":"C","password":"*******"}],)"), std::string::npos);
    const size_t found = shown.find(SECRET);
    EXPECT_EQ(found, std::string::npos) << shown.substr(shown.rfind('\n', found) + 1, 300);
}

TEST_F(SecretsInTheLog, AreNotShownWhenTheyAreTooLong)
{
    startWith("{}");
    gatewayReady();
    const std::string secret = SECRET + std::string(200, 'x');
    set(R"({"cameras":[{"uid":"C","password":")" + secret + R"("}],"rooms":[{"title":"R",)" +
        R"("camera_password":")" + secret + R"(","extra_camera":[{"camera":"E",)" +
        R"("camera_password":")" + secret + R"("}]}],)" +
        R"("registeredDevices":[{"token":"T","password":")" + secret + R"("}]})");
    EXPECT_GE(daemon.timesLogged("src str too long: ***\n"), 4u);
    EXPECT_EQ(shownLog().find(SECRET), std::string::npos);
}

struct RefusedCase {
    const char *name;
    const char *text;
};

static void PrintTo(const RefusedCase &refused, std::ostream *out)
{
    *out << refused.text;
}

class RefusedSecretsInTheLog : public SecretsInTheLog,
                               public testing::WithParamInterface<RefusedCase> {};

TEST_P(RefusedSecretsInTheLog, AreNotShownAboveDebugLevel)
{
    startWith("{}");
    gatewayReady();
    EXPECT_EQ(set(GetParam().text), 0);
    const std::string shown = shownLog();
    EXPECT_NE(shown.find("error: on line 1: "), std::string::npos);
    EXPECT_EQ(shown.find(SECRET), std::string::npos) << shown;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedSecretsInTheLog,
    testing::Values(RefusedCase{"Unended", R"({"cameras":[{"uid":"C","password":"s3cr3t)"},
                    RefusedCase{"WithoutAColon", R"({"cameras":[{"password" "s3cr3t"}]})"},
                    RefusedCase{"WithEscapes", R"({"cameras":[{"pass\u0077ord":"s3cr3t"]})"},
                    RefusedCase{"NoText", R"({"cameras":[{"password":s3cr3t}]})"}),
    [](const auto &refused) { return std::string(refused.param.name); });

TEST_F(SecretsInTheLog, LeaveTheLibrarysMessageOfATextWithoutOneWhole)
{
    startWith("{}");
    gatewayReady();
    EXPECT_EQ(set(R"({"rooms":[{"title" "Hall"}]})"), 0);
    EXPECT_TRUE(daemon.logged("error: on line 1: ':' expected near '\"Hall\"'\n"));
}
