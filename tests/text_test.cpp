// The texts the SDK reads and writes: the message envelope (outbound texts as the SDK writes them;
// the facade tests check them on the wire), what it reads out of inbound ones, the JSON and string
// helpers, Foundation's text readings, values, and the command runners.
#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymValue.h>
#include <gtest/gtest.h>

#include "foundation/ymTextRules.h"
#include "sdk/ymIPCMessage.h"

namespace {

nlohmann::json parsed(const std::string &text)
{
    std::optional<nlohmann::json> value = yStringUtils::toArrayOrNSDictionary(text);
    EXPECT_TRUE(value.has_value()) << text;
    return value.value_or(nlohmann::json());
}

TEST(Envelope, OutboundTextsAndExportedNames)
{
    // Names and indexes are escaped as JSON requires, and travel whole; other bytes go as they are.
    const std::string name = "H\",\"deviceIndex\":\"9 \\ \t\n\x01 \xc3\xa9";
    std::string escaped = ymIPCMessage::audioCommand(1, "0\"", name, 1, 1);
    EXPECT_EQ(escaped, R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":1}],"deviceIndex":"0\"",)"
                       R"("deviceName":"H\",\"deviceIndex\":\"9 \\ \t\n\u0001 )" "\xc3\xa9" R"(","usbVid":"1","usbPid":"1"})");
    EXPECT_EQ(parsed(escaped)["deviceName"], name);
    EXPECT_EQ(parsed(escaped)["deviceIndex"], "0\"");

    // A missing text prints as "(null)"; identifiers print as signed decimals.
    std::string missing = ymIPCMessage::audioCommand(-7, std::nullopt, std::nullopt, 4294967295u, 2147483648u);
    EXPECT_EQ(missing, R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":-7}],)"
                       R"x("deviceIndex":"(null)","deviceName":"(null)","usbVid":"-1","usbPid":"-2147483648"})x");

    // Exported names (the others are checked where they are used: on the bus, in the list's path).
    EXPECT_STREQ(NOTIFY_IPC_3RDCLIENT_TO_YUMOSDK, "3rdClientToYumoSdk");
    EXPECT_STREQ(reinterpret_cast<const char *>(YumoClientSdkVersionString), "@(#)PROGRAM:YumoClientSdk  PROJECT:YumoClientSdk-1\n");
    EXPECT_EQ(YumoClientSdkVersionNumber, 1.0);
}

TEST(Envelope, InboundFieldsAndResultFollowTheReadingRules)
{
    struct Case {
        const char *result;
        bool error;
        int32_t code;
        std::optional<std::string> text;
    };
    const Case cases[] = {
        {"1:OK", false, 1, "OK"},
        {"0:Error YumoClientNotRunning", true, 0, "Error YumoClientNotRunning"},
        {"a:b:c", false, 0, std::nullopt},          // three parts: no result at all
        {"yes:x", false, 0, "x"},                   // "yes" reads true, and as the number 0
        {"  -0012:lead", false, -12, "lead"},       // blanks, sign, zeros, then a digit 1-9
        {"00:", true, 0, ""},                       // zeros only read false; the text is empty
        {"T:t", false, 0, "t"},
        {"99999999999:big", false, 2147483647, "big"},  // the integer reading saturates
        {"nocolon", false, 0, std::nullopt},
    };
    for (const Case &c : cases) {
        nlohmann::json message = {{"commandId", 1}, {"result", c.result}};
        ymIPCMessage::ResultReading reading = ymIPCMessage::result(message);
        EXPECT_EQ(reading.error, c.error) << c.result;
        EXPECT_EQ(reading.code, c.code) << c.result;
        EXPECT_EQ(reading.text, c.text) << c.result;
    }
    // No "result", or one that is not a string, counts as none.
    for (const nlohmann::json &message : {nlohmann::json{{"commandId", 1}}, nlohmann::json{{"result", 5}}}) {
        ymIPCMessage::ResultReading reading = ymIPCMessage::result(message);
        EXPECT_FALSE(reading.error);
        EXPECT_EQ(reading.code, 0);
        EXPECT_FALSE(reading.text.has_value());
    }

    // commandId as a number (taken as 32 bits) or decimal text; missing, or not an object: 0.
    const std::pair<const char *, int32_t> ids[] = {{R"({"commandId":2})", 2}, {R"({"commandId":" 1"})", 1}, {R"({"commandId":4294967297})", 1},
                                                    {R"({"from":1})", 0},      {"5", 0},                     {R"({"commandId":null})", 0}};
    for (const auto &[text, id] : ids)
        EXPECT_EQ(ymIPCMessage::commandId(parsed(text)), id) << text;

    // The last element holding the key wins; elements that are not objects are passed over.
    nlohmann::json presence = parsed(R"({"commandId":1,"data":[{"PresenceStatus":3},7,{"x":1},{"PresenceStatus":"4"}]})");
    EXPECT_EQ(ymIPCMessage::presenceStatus(presence), 4);
    EXPECT_EQ(ymIPCMessage::presenceStatus(parsed(R"({"commandId":1,"data":""})")), 0);

    nlohmann::json audio = parsed(R"({"commandId":2,"data":[{"AudioCmd":5},{"AudioCmd":6.9}],"deviceName":"Headset"})");
    EXPECT_EQ(ymIPCMessage::audioCmd(audio), 6);
    EXPECT_EQ(ymIPCMessage::deviceName(audio), "Headset");
    EXPECT_EQ(ymIPCMessage::deviceIndex(audio), "0");  // absent index reads "0"
    EXPECT_EQ(ymIPCMessage::audioCmd(parsed(R"({"commandId":2,"data":{"AudioCmd":5}})")), 0);
    EXPECT_EQ(ymIPCMessage::deviceIndex(parsed(R"({"deviceIndex":"3"})")), "3");
    EXPECT_FALSE(ymIPCMessage::deviceIndex(parsed(R"({"deviceIndex":3})")).has_value());
    EXPECT_FALSE(ymIPCMessage::deviceName(parsed(R"({"deviceIndex":"3"})")).has_value());
}

// Every field of a reading as one text: one comparison checks them all.
std::string fields(const ymIPCMessage::Reading &reading)
{
    auto optional = [](const std::optional<std::string> &text) { return text ? "\"" + *text + "\"" : std::string("none"); };
    return std::to_string(reading.commandId) + " " + std::to_string(reading.result.error) + " " + std::to_string(reading.result.code) + " " +
           optional(reading.result.text) + " " + std::to_string(reading.presenceStatus) + " " + std::to_string(reading.audioCmd) + " " +
           optional(reading.deviceName) + " " + optional(reading.deviceIndex);
}

TEST(Envelope, APlainMessageReadFromItsTextReadsAsParsedAndAnyOtherIsParsed)
{
    const char *const plain[] = {
        R"({"commandId":2,"data":[{"AudioCmd":5}],"deviceIndex":"1","deviceName":"Headset","from":2,"version":"1.0.0"})",
        R"({"commandId":1,"from":2,"version":"1.0.0","result":"1:OK","data":[{"PresenceStatus":3}]})",
        " \t\r\n{ \"commandId\" : \" 1\" , \"result\" : \"a:b:c\" , \"data\" : [ 7 , { \"x\" : { \"y\" : [ null , true ] } } ,"
        " { \"PresenceStatus\" : \"4\" } ] } \n",
        R"({"commandId":4294967297,"data":[{"AudioCmd":true},{"AudioCmd":"-3x"}],"deviceIndex":3,"deviceName":"Casque é 🎧"})",
        R"({"commandId":18446744073709551615,"data":[{"AudioCmd":-9223372036854775808}],"deviceName":null})",
        R"({"commandId":-0,"data":{"AudioCmd":5},"result":"00:","deviceIndex":""})",
        R"({"commandId":null,"n":[-1,0,false],"deviceName":["x"]})",
        R"({})",
    };
    for (const char *text : plain) {
        std::optional<ymIPCMessage::Reading> reading = ymIPCMessage::read(std::string_view(text));
        ASSERT_TRUE(reading.has_value()) << text;
        EXPECT_EQ(fields(*reading), fields(ymIPCMessage::read(parsed(text)))) << text;
    }
    EXPECT_EQ(fields(*ymIPCMessage::read(std::string_view(plain[0]))), "2 0 0 none 0 5 \"Headset\" \"1\"");

    // Parsed instead: an escape, a key given twice, a needed number kept as a real, something
    // other than an object, too many members or too deep a nesting; and texts that are not JSON.
    std::string many = "{";
    for (int i = 0; i < 17; ++i)
        many += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
    many += "}";
    const std::string deep = R"({"commandId":1,"x":)" + std::string(40, '[') + std::string(40, ']') + "}";
    const std::string parsedInstead[] = {
        R"({"commandId":2,"deviceName":"Head\"set"})", R"({"commandId":1,"commandId":2})", R"({"commandId":2,"data":[{"AudioCmd":6.9}]})",
        R"({"commandId":18446744073709551616})", R"({"commandId":-9223372036854775809})", R"({"data":[{"AudioCmd":1,"AudioCmd":2}]})",
        "[1]", "5", many, deep, "\xef\xbb\xbf{\"commandId\":1}", R"({"n":[-1.5e+3,0.25,1E-2]})",
    };
    for (const std::string &text : parsedInstead) {
        EXPECT_FALSE(ymIPCMessage::read(std::string_view(text)).has_value()) << text;
        EXPECT_TRUE(yStringUtils::toArrayOrNSDictionary(text).has_value()) << text;
    }
    const std::string notJSON[] = {R"({"a":1e607})", R"({"a":01})", R"({"a":1,})", R"({"a":1} x)", "{\"a\":\"\x01\"}", "{\"a\":\"\xc3(\"}",
                                   "{\"a\":\"\xed\xa0\x80\"}", R"({"a":-})", R"({"a":1.})", R"({"a":tru})", R"({"a" 1})", R"({"a":1)"};
    for (const std::string &text : notJSON) {
        EXPECT_FALSE(ymIPCMessage::read(std::string_view(text)).has_value()) << text;
        EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(text).has_value()) << text;
    }
}

TEST(StringUtils, ReadingAndWritingTellNilFromEmpty)
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

    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary("5"), nlohmann::json(5));
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary("\"s\""), nlohmann::json("s"));
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionary("null"), nlohmann::json(nullptr));
    EXPECT_TRUE(yStringUtils::toArrayOrNSDictionary(R"({"a":1})")->is_object());
    for (const char *bad : {"not json", "{\"a\":", "{\"a\":1} trailing", "[1,]", "\"\xff\""})
        EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(std::string(bad)).has_value()) << bad;
    ymData bytes = {'[', '1', ']'};
    EXPECT_EQ(yStringUtils::toArrayOrNSDictionaryWithData(bytes), nlohmann::json::array({1}));

    EXPECT_EQ(yStringUtils::toJSONString(nlohmann::json::object()), "{}");  // an empty object still has text, so it is returned

    std::optional<std::string> text = yStringUtils::toJSONString(nlohmann::json{{"deviceName", "A"}, {"usbVid", 2830}});
    EXPECT_EQ(text, "{\n  \"deviceName\": \"A\",\n  \"usbVid\": 2830\n}");

    // Text that is not UTF-8 cannot be written: no data, and an empty string (not nil).
    nlohmann::json broken = {{"name", std::string("\xff\xfe")}};
    EXPECT_FALSE(yStringUtils::toJSONData(broken).has_value());
    EXPECT_EQ(yStringUtils::toJSONString(broken), "");
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

TEST(TextRules, FoundationReadingsOfTextsAndValues)
{
    EXPECT_EQ(ymText::intValue("  \n+42abc"), 42);
    EXPECT_EQ(ymText::intValue("abc"), 0);
    EXPECT_EQ(ymText::intValue("-2147483649"), INT32_MIN);
    EXPECT_EQ(ymText::integerValue("9223372036854775808"), INT64_MAX);
    for (auto [text, value] : {std::pair{" +0007", true}, {"0", false}, {"no", false}, {"yes", true}})
        EXPECT_EQ(ymText::boolValue(text), value) << text;

    for (auto [text, units] : {std::pair{"abc", 3u}, {"\xc3\xa9", 1u}, {"\xf0\x9f\x8e\xa7", 2u}})  // é; 🎧 takes a surrogate pair
        EXPECT_EQ(ymText::utf16Length(text), units) << text;
    EXPECT_EQ(ymText::componentsSeparatedBy("5.6.", "."), (std::vector<std::string>{"5", "6", ""}));
    EXPECT_EQ(ymText::trimmingWhitespaceAndNewlines(" \t{}\r\n\xe2\x80\xa8\xe3\x80\x80"), "{}");
    EXPECT_EQ(ymText::trimmingWhitespaceAndNewlines("{}\xe3\x81\xae"), "{}\xe3\x81\xae");  // a letter, not a space
    // A no-break space first, paragraph separators (U+2029) on both sides, a next-line last.
    EXPECT_EQ(ymText::trimmingWhitespaceAndNewlines("\xc2\xa0\xe2\x80\xa9{}\xe2\x80\xa9\xc2\x85"), "{}");
    EXPECT_EQ(ymText::appendingPathComponent("/a/b/", "/s.yyhost"), "/a/b/s.yyhost");

    EXPECT_TRUE(ymValue().isNull());
    EXPECT_EQ(ymValue(2830).integerValue(), 2830);
    EXPECT_EQ(ymValue(6.9).integerValue(), 6);
    EXPECT_EQ(ymValue(true).integerValue(), 1);
    EXPECT_EQ(ymValue("12").integerValue(), 0);  // a text is no number
    EXPECT_TRUE(ymValue(1).isNumber() && ymValue(1.5).isNumber());
    EXPECT_FALSE(ymValue("1").isNumber() || ymValue(false).isNumber());
    EXPECT_EQ(ymValue(1), ymValue(1L));
    EXPECT_NE(ymValue(1), ymValue(1.0));
    ymValue device = ymValue::dictionary({{"usbVid", 2830}, {"name", "Headset"}});
    EXPECT_EQ(device.find("name")->text(), "Headset");
    EXPECT_EQ(device.find("none"), nullptr);
    EXPECT_EQ(ymValue(nullptr), ymValue(static_cast<const char *>(nullptr)));
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

}  // namespace
