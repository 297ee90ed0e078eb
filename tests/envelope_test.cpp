// The message envelope: the exact outbound texts, and what the SDK reads out of inbound ones.
#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <gtest/gtest.h>

#include "sdk/ymIPCMessage.h"

namespace {

nlohmann::json parsed(const std::string &text)
{
    std::optional<nlohmann::json> value = yStringUtils::toArrayOrNSDictionary(text);
    EXPECT_TRUE(value.has_value()) << text;
    return value.value_or(nlohmann::json());
}

TEST(Envelope, OutboundTextsAreByteExact)
{
    EXPECT_EQ(ymIPCMessage::presenceRequest(), R"({"commandId":1,"from":1,"version":"1.0.0","data":""})");
    EXPECT_EQ(ymIPCMessage::audioCommand(5, "2", "Headset", 2830, 3),
              R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":5}],)"
              R"("deviceIndex":"2","deviceName":"Headset","usbVid":"2830","usbPid":"3"})");
}

TEST(Envelope, OutboundDeviceTextsAreInsertedVerbatim)
{
    // A quote is not escaped: the text that goes out is not JSON, and is sent as it is.
    std::string quoted = ymIPCMessage::audioCommand(1, "0", "Big \"Box\"", 1, 1);
    EXPECT_NE(quoted.find(R"("deviceName":"Big "Box"")"), std::string::npos) << quoted;
    EXPECT_FALSE(yStringUtils::toArrayOrNSDictionary(quoted).has_value());

    // A missing text prints as "(null)"; identifiers print as signed decimals.
    std::string missing = ymIPCMessage::audioCommand(-7, std::nullopt, std::nullopt, 4294967295u, 2147483648u);
    EXPECT_EQ(missing, R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":-7}],)"
                       R"x("deviceIndex":"(null)","deviceName":"(null)","usbVid":"-1","usbPid":"-2147483648"})x");
}

TEST(Envelope, ResultIsReadAsBooleanCodeAndText)
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
}

TEST(Envelope, InboundFieldsFollowTheReadingRules)
{
    // commandId as a number or as decimal text; missing, or a message that is not an object, is 0.
    EXPECT_EQ(ymIPCMessage::commandId(parsed(R"({"commandId":2})")), 2);
    EXPECT_EQ(ymIPCMessage::commandId(parsed(R"({"commandId":" 1"})")), 1);
    EXPECT_EQ(ymIPCMessage::commandId(parsed(R"({"commandId":4294967297})")), 1);  // taken as 32 bits
    EXPECT_EQ(ymIPCMessage::commandId(parsed(R"({"from":1})")), 0);
    EXPECT_EQ(ymIPCMessage::commandId(parsed("5")), 0);
    EXPECT_EQ(ymIPCMessage::commandId(parsed(R"({"commandId":null})")), 0);

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

TEST(Envelope, ExportedNamesHoldTheirValuesAndCanBeReplaced)
{
    EXPECT_STREQ(IPCMsg_Content_CommandId, "commandId");
    EXPECT_STREQ(NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT, "YumoLauncher3rdSdkToYumoVideoClient");
    EXPECT_STREQ(NOTIFY_IPC_YYHOST_TO_YUMOSDK, "YyhostToYumoLauncher3rdSdk");
    EXPECT_STREQ(NOTIFY_IPC_3RDCLIENT_TO_YUMOSDK, "3rdClientToYumoSdk");
    EXPECT_STREQ(YMCLIENTSDK_SHAREDATA, "YumoClientSdk.ShareData");
    EXPECT_STREQ(reinterpret_cast<const char *>(YumoClientSdkVersionString),
                 "@(#)PROGRAM:YumoClientSdk  PROJECT:YumoClientSdk-1\n");
    EXPECT_EQ(YumoClientSdkVersionNumber, 1.0);

    const char *saved = NOTIFY_IPC_YUMOSDK_TO_YYHOST;
    NOTIFY_IPC_YUMOSDK_TO_YYHOST = "Elsewhere";
    EXPECT_STREQ(NOTIFY_IPC_YUMOSDK_TO_YYHOST, "Elsewhere");
    NOTIFY_IPC_YUMOSDK_TO_YYHOST = saved;
}

}  // namespace
