// The notification transport between processes on one session bus. The test command starts a
// private bus when none runs; without one these tests are skipped, never passed silently.
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <gtest/gtest.h>
#include <thread>

#include "platform/ymNotificationCenter.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

using Receiver = ymtest::MessageCollector;
using UserInfo = ymNotificationCenter::UserInfo;

class NotificationTransport : public ymtest::SessionTest {
protected:
    void SetUp() override
    {
        SessionTest::SetUp();
        manager->setDelegate(receiver);
    }
    ymtest::CapturedStderr log;
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
    std::shared_ptr<ymIPCMsgMgr> manager = ymIPCMsgMgr::create();
};

TEST_F(NotificationTransport, MessagesCrossBetweenProcessesBothWays)
{
    // The simulator plays a meeting client older than 5.6 and its host: it answers each message
    // under the answer name of whom it was sent to.
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.5.0");
    const std::string request = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";
    manager->sendIPCMessageToYumoClient(request);
    EXPECT_EQ(client.process().readLine(), "received notification client: " + request);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    EXPECT_NE(receiver->messages[0].find(R"("data":[{"PresenceStatus":1}])"), std::string::npos);
    manager->sendIPCMessageToYyhost(std::string(R"({"commandId":2,"data":[{"AudioCmd":5}],"deviceName":"Headset"})"));
    EXPECT_EQ(client.process().readLine(), R"(received notification host: {"commandId":2,"data":[{"AudioCmd":5}],"deviceName":"Headset"})");
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 2; }));
    EXPECT_NE(receiver->messages[1].find(R"("data":[{"AudioCmd":5}])"), std::string::npos);
    for (std::thread::id id : receiver->threads)
        EXPECT_EQ(id, std::this_thread::get_id());  // delivered on the loop's thread

    std::string text = log.text();
    EXPECT_NE(text.find("<< -[ymIPCMsgMgr sendIPCMessageToYumoClient:]: content=" + request), std::string::npos);
    EXPECT_NE(text.find(">> -[ymIPCMsgMgr onYumoClientMessageResponse:]: dict = {\n    content = \"{\\\"commandId\\\":1,"),
              std::string::npos);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ymIPCMsgMgr init]."), 1);
}

TEST_F(NotificationTransport, OnlyTheContentCrossesAndNamesAreReadAtEachUse)
{
    manager->cleanup();  // changes nothing: observation goes on
    auto lateReceiver = std::make_shared<Receiver>();
    ymIPCMsgMgr::create()->setDelegate(lateReceiver);  // a manager released at once stops hearing
    std::vector<std::pair<std::string, UserInfo>> seen;
    auto record = [&](const std::string &name, const UserInfo &userInfo) { seen.emplace_back(name, userInfo); };
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    center.addObserver("YumoLauncher3rdSdkToYyhost", record);
    center.addObserver("Renamed client's name", record);
    center.post("YyhostToYumoLauncher3rdSdk", UserInfo{{"other", "x"}});
    center.post("YumoVideoClientToYumoLauncher3rdSdk", UserInfo{{"content", "second"}});
    manager->sendIPCMessageToYyhost(std::string("payload"));
    manager->sendIPCMessageToYumoClient(std::nullopt);  // nil: no user information at all
    const char *saved = NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT;
    NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT = "Renamed client's name";
    manager->sendIPCMessageToYumoClient(std::string("renamed"));
    NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT = saved;
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1 && seen.size() == 2; }));
    EXPECT_EQ(receiver->messages[0], "second");
    EXPECT_TRUE(lateReceiver->messages.empty());
    EXPECT_EQ(seen[0], (std::pair<std::string, UserInfo>{"YumoLauncher3rdSdkToYyhost", {{"content", "payload"}}}));
    EXPECT_EQ(seen[1], (std::pair<std::string, UserInfo>{"Renamed client's name", {{"content", "renamed"}}}));
    std::string text = log.text();
    EXPECT_NE(text.find("dict = {\n    other = x;\n}"), std::string::npos);
    EXPECT_NE(text.find("-[ymIPCMsgMgr dealloc]."), std::string::npos);
    EXPECT_NE(text.find("<< -[ymIPCMsgMgr sendIPCMessageToYumoClient:]: content=(null)"), std::string::npos);
}

TEST(NotificationTransportWithoutBus, PostsAreDroppedAndNothingFails)
{
    // This process has not used the bus yet; the centre it gets now finds none.
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_FALSE(ymNotificationCenter::defaultCenter().isConnected());
    // Observers are kept for when a bus comes.
    EXPECT_NE(ymNotificationCenter::defaultCenter().addObserver("x", [](const std::string &, const UserInfo &) {}), 0u);
    ymtest::CapturedStderr log;
    auto manager = ymIPCMsgMgr::create();
    manager->sendIPCMessageToYumoClient(std::string("nobody hears this"));
    manager->onYumoClientMessageResponse(std::nullopt);
    EXPECT_NE(log.text().find("content=nobody hears this"), std::string::npos);
    EXPECT_NE(log.text().find("dict = (null)"), std::string::npos);

    // A companion may hand the handler a dictionary of its own: it is listed as the platform
    // lists one, keys in order, numbers quoted unless bare, content delivered.
    auto receiver = std::make_shared<ymtest::MessageCollector>();
    manager->setDelegate(receiver);
    manager->onYumoClientMessageResponse(ymValue::dictionary({{"content", "c"}, {"b", 5}, {"a", -5}, {"real", 1.5}, {"whole", 2.0},
                                                               {"yes", true}, {"list", ymValue::array({1})}, {"big", 1e20}, {"tenth", 0.1}}));
    EXPECT_NE(log.text().find("dict = {\n    a = \"-5\";\n    b = 5;\n    big = \"1e+20\";\n    content = c;\n"
                              "    list = (null);\n    real = \"1.5\";\n    tenth = \"0.1\";\n    whole = 2;\n    yes = 1;\n}"),
              std::string::npos)
        << log.text();
    EXPECT_EQ(receiver->messages, std::vector<std::string>{"c"});
}

}  // namespace
