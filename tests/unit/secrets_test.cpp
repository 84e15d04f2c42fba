// Texts as the log shows them.

#include "main/scope.h"
#include "main/secrets.h"

#include <gtest/gtest.h>
#include <string>

static std::string shown(const std::string &json)
{
    const Owned<char> copy(withoutSecrets(json.c_str()));
    return copy ? copy.get() : "(null)";
}

TEST(Secrets, AreStarsInTheLog)
{
    EXPECT_EQ(shown(R"({"registeredDevices":[{"token":"abc","password":"p","email":"a@b"}]})"),
              R"({"registeredDevices":[{"token":"***","password":"*","email":"a@b"}]})");
    EXPECT_EQ(shown(R"({"rooms":[{"title":"A","camera_password":"12"}]})"),
              R"({"rooms":[{"title":"A","camera_password":"**"}]})");
}

TEST(Secrets, AreFoundWhateverTheSpacing)
{
    EXPECT_EQ(shown("{ \"token\" :\n\t\"abc\" , \"token\":\"d\"}"),
              "{ \"token\" :\n\t\"***\" , \"token\":\"*\"}");
}

TEST(Secrets, AreStarsToTheirLastCharacter)
{
    EXPECT_EQ(shown(R"({"password":"a\"b\\","title":"c"})"),
              R"({"password":"******","title":"c"})");
    EXPECT_EQ(shown(R"({"password":""})"), R"({"password":""})");
}

TEST(Secrets, AreMembersAndNotTexts)
{
    for (const std::string text :
         {R"({"title":"password","icon":"token"})", R"({"tokens":"abc","a\"token":"d"})",
          R"(["token","password"])", R"({"token":["a"],"title":"A"})", R"({"token":{"a":"b"}})",
          R"({"\u0074oke":"a","\u00740ken":"b","\uzzzzoken":"c"})"})
        EXPECT_EQ(shown(text), text);
}

TEST(Secrets, AreStarsHoweverTheyAreWritten)
{
    EXPECT_EQ(shown(R"({"\u0070assw\u006frd":"abc"})"), R"({"\u0070assw\u006frd":"***"})");
    EXPECT_EQ(shown(R"({"token":1234,"title":"A"})"), R"({"token":****,"title":"A"})");
    EXPECT_EQ(shown(R"([{"token":null}])"), R"([{"token":****}])");
}

TEST(Secrets, AreStarsInWhatIsNoJson)
{
    EXPECT_EQ(shown(R"({"token" "abc"})"), R"({"token" "***"})");
    EXPECT_EQ(shown(R"({"token":abc"d"})"), R"({"token":***"d"})");
    EXPECT_EQ(shown(R"({"token":"abc)"), R"({"token":"***)");
    EXPECT_EQ(shown(R"({"token":"abc\)"), R"({"token":"****)");
    for (const std::string text : {R"({"token)", R"({"token":)", R"({"token"})", "\"", "\"\\", ""})
        EXPECT_EQ(shown(text), text);
}
