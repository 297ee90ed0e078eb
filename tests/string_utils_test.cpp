// JSON and string helpers, Foundation's text readings, and the command runners.
#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/yStringUtils.h>
#include <gtest/gtest.h>

#include "foundation/ymTextRules.h"

namespace {

TEST(StringUtils, NilEmptyAndNullAreTold)
{
    EXPECT_TRUE(yStringUtils::isNullString(std::nullopt));
    EXPECT_TRUE(yStringUtils::isNullString(nlohmann::json()));
    EXPECT_FALSE(yStringUtils::isNullString(nlohmann::json("")));
    EXPECT_FALSE(yStringUtils::isNullString(nlohmann::json(0)));

    EXPECT_FALSE(yStringUtils::toJSONData(std::nullopt).has_value());
    EXPECT_FALSE(yStringUtils::toJSONString(std::nullopt).has_value());
    EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(std::nullopt).has_value());
    EXPECT_FALSE(yStringUtils::stringToNSData(std::nullopt).has_value());
    EXPECT_FALSE(yStringUtils::toArrayOrNSDictionaryWithData(std::nullopt).has_value());
    // The empty string is not nil, but zero bytes do not parse.
    EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(std::string()).has_value());
    EXPECT_EQ(yStringUtils::stringToNSData(std::string())->size(), 0u);
}

TEST(StringUtils, WritingIsPrettyAndFailsSoftly)
{
    std::optional<std::string> empty = yStringUtils::toJSONString(nlohmann::json::object());
    EXPECT_EQ(empty, "{}");  // an empty object still has text, so it is returned

    std::optional<std::string> text = yStringUtils::toJSONString(nlohmann::json{{"deviceName", "A"}, {"usbVid", 2830}});
    ASSERT_TRUE(text.has_value());
    EXPECT_NE(text->find('\n'), std::string::npos);
    EXPECT_NE(text->find("  \"deviceName\""), std::string::npos);
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary(text)->at("usbVid"), 2830);

    // Text that is not UTF-8 cannot be written: no data, and an empty string (not nil).
    nlohmann::json broken = {{"name", std::string("\xff\xfe")}};
    EXPECT_FALSE(yStringUtils::toJSONData(broken).has_value());
    EXPECT_EQ(yStringUtils::toJSONString(broken), "");
}

TEST(StringUtils, ReadingAllowsFragmentsAndRejectsMalformedText)
{
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary("5"), nlohmann::json(5));
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary("\"s\""), nlohmann::json("s"));
    std::optional<nlohmann::json> null = yStringUtils::toArrayOrNSDictionary("null");
    ASSERT_TRUE(null.has_value());
    EXPECT_TRUE(null->is_null());
    EXPECT_TRUE(yStringUtils::toArrayOrNSDictionary(R"({"a":1})")->is_object());
    for (const char *bad : {"not json", "{\"a\":", "{\"a\":1} trailing", "[1,]", "\"\xff\""})
        EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(std::string(bad)).has_value()) << bad;
    ymData bytes = {'[', '1', ']'};
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionaryWithData(bytes), nlohmann::json::array({1}));
}

TEST(StringUtils, TextHeightGrowsAsTheWidthShrinks)
{
    const std::string text = "The quick brown fox jumps over the lazy dog, again and again and again.";
    const std::string font = "DejaVu Sans 12";
    double oneLine = yStringUtils::heightForStringDrawing("Fox", font, 1000);
    double wide = yStringUtils::heightForStringDrawing(text, font, 2000);
    double medium = yStringUtils::heightForStringDrawing(text, font, 150);
    double narrow = yStringUtils::heightForStringDrawing(text, font, 40);
    EXPECT_GT(oneLine, 10.0);
    EXPECT_LT(oneLine, 20.0);  // one line of a 12-point font
    EXPECT_DOUBLE_EQ(wide, oneLine);
    EXPECT_GT(medium, wide);
    EXPECT_GT(narrow, medium);
    EXPECT_GT(yStringUtils::heightForStringDrawing(text, "DejaVu Sans 24", 150), medium);
}

TEST(TextRules, FoundationReadings)
{
    EXPECT_EQ(ymText::intValue("  \n+42abc"), 42);
    EXPECT_EQ(ymText::intValue("abc"), 0);
    EXPECT_EQ(ymText::intValue("-2147483649"), INT32_MIN);
    EXPECT_EQ(ymText::integerValue("9223372036854775808"), INT64_MAX);
    EXPECT_TRUE(ymText::boolValue(" +0007"));
    EXPECT_FALSE(ymText::boolValue("0"));
    EXPECT_FALSE(ymText::boolValue("no"));
    EXPECT_TRUE(ymText::boolValue("yes"));

    EXPECT_EQ(ymText::utf16Length("abc"), 3u);
    EXPECT_EQ(ymText::utf16Length("\xc3\xa9"), 1u);          // é
    EXPECT_EQ(ymText::utf16Length("\xf0\x9f\x8e\xa7"), 2u);  // 🎧 takes a surrogate pair
    EXPECT_EQ(ymText::componentsSeparatedBy("5.6.", "."), (std::vector<std::string>{"5", "6", ""}));
    EXPECT_EQ(ymText::trimmingWhitespaceAndNewlines(" \t{}\r\n\xe2\x80\xa8"), "{}");
    EXPECT_EQ(ymText::appendingPathComponent("/a/b/", "/s.yyhost"), "/a/b/s.yyhost");
}

TEST(Command, OutputIsUntrimmedAndStatusIsTheShells)
{
    EXPECT_EQ(CMD::runAsCommand("echo word"), "word\n");
    EXPECT_EQ(CMD::runAsCommand("true"), "");
    EXPECT_EQ(CMD::runAsCommand("printf 'a b' | tr ' ' '_'"), "a_b");  // a whole shell line
    EXPECT_FALSE(CMD::runAsCommand("printf '\\377'").has_value());     // not UTF-8
    EXPECT_EQ(CMD::runAsCommand_ret("exit 3"), 3);
    EXPECT_EQ(CMD::runAsCommand_ret("true"), 0);
    EXPECT_EQ(CMD::runAsCommand_ret("kill -TERM $$"), 15);
}

TEST(Command, StatusRunnerInheritsTheStreams)
{
    // The output is not captured: it reaches whatever descriptor 1 is, here a file.
    char path[] = "/tmp/ymcmdXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    dup2(fd, STDOUT_FILENO);
    int status = CMD::runAsCommand_ret("echo inherited");
    dup2(saved, STDOUT_FILENO);
    close(saved);
    char buffer[64] = {};
    ASSERT_GT(pread(fd, buffer, sizeof buffer - 1, 0), 0);
    close(fd);
    unlink(path);
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(buffer, "inherited\n");
}

}  // namespace
