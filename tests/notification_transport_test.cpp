// The notification transport between processes on one session bus. The test command starts a
// private bus when none runs; without one these tests are skipped, never passed silently.
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <gtest/gtest.h>
#include <thread>

#include "platform/ymNotificationCenter.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

using Receiver = ymtest::MessageCollector;

class NotificationTransport : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }
};

TEST_F(NotificationTransport, MessagesCrossBetweenProcessesBothWays)
{
    ymtest::CapturedStderr log;
    auto receiver = std::make_shared<Receiver>();
    auto manager = ymIPCMsgMgr::create();
    manager->setDelegate(receiver);

    // The peer plays the meeting client and the host: whatever reaches it comes straight back
    // under the matching answer name.
    ymtest::ChildProcess client(ymtest::helperProgram("notification_peer"),
                                {"echo", "YumoLauncher3rdSdkToYumoVideoClient", "YumoVideoClientToYumoLauncher3rdSdk"});
    ASSERT_EQ(client.readLine(), "ready");
    ymtest::ChildProcess host(ymtest::helperProgram("notification_peer"),
                              {"echo", "YumoLauncher3rdSdkToYyhost", "YyhostToYumoLauncher3rdSdk"});
    ASSERT_EQ(host.readLine(), "ready");

    manager->sendIPCMessageToYumoClient(std::string(R"({"commandId":1,"from":1,"version":"1.0.0","data":""})"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    EXPECT_EQ(client.readLine(), "echoed YumoLauncher3rdSdkToYumoVideoClient with 1 keys");
    manager->sendIPCMessageToYyhost(std::string("to the host"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 2; }));
    EXPECT_EQ(host.readLine(), "echoed YumoLauncher3rdSdkToYyhost with 1 keys");

    EXPECT_EQ(receiver->messages[0], R"({"commandId":1,"from":1,"version":"1.0.0","data":""})");
    EXPECT_EQ(receiver->messages[1], "to the host");
    for (std::thread::id id : receiver->threads)
        EXPECT_EQ(id, std::this_thread::get_id());  // delivered on the loop's thread

    std::string text = log.text();
    EXPECT_NE(text.find(R"(<< -[ymIPCMsgMgr sendIPCMessageToYumoClient:]: content={"commandId":1,)"), std::string::npos);
    EXPECT_NE(text.find("<< -[ymIPCMsgMgr sendIPCMessageToYyhost:]: content=to the host"), std::string::npos);
    EXPECT_NE(text.find(">> -[ymIPCMsgMgr onYumoClientMessageResponse:]: dict = {\n    content = \"to the host\";\n}"),
              std::string::npos);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ymIPCMsgMgr init]."), 1);
}

TEST_F(NotificationTransport, NotificationWithoutContentIsLoggedAndDropped)
{
    ymtest::CapturedStderr log;
    auto receiver = std::make_shared<Receiver>();
    auto manager = ymIPCMsgMgr::create();
    manager->setDelegate(receiver);
    manager->cleanup();  // changes nothing: observation goes on

    ymtest::ChildProcess poster(ymtest::helperProgram("notification_peer"),
                                {"post", "YyhostToYumoLauncher3rdSdk", "other", "x"});
    EXPECT_EQ(poster.wait(), 0);
    ymtest::ChildProcess second(ymtest::helperProgram("notification_peer"),
                                {"post", "YumoVideoClientToYumoLauncher3rdSdk", "content", "second"});
    EXPECT_EQ(second.wait(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    EXPECT_EQ(receiver->messages[0], "second");
    EXPECT_NE(log.text().find("dict = {\n    other = x;\n}"), std::string::npos);
}

TEST_F(NotificationTransport, PostsCarryOnlyTheContentAndNamesAreReadAtEachUse)
{
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    std::vector<std::pair<std::string, ymNotificationCenter::UserInfo>> seen;
    auto record = [&](const std::string &name, const ymNotificationCenter::UserInfo &userInfo) {
        seen.emplace_back(name, userInfo);
    };
    center.addObserver("YumoLauncher3rdSdkToYyhost", record);
    center.addObserver("RenamedClientName", record);
    auto manager = ymIPCMsgMgr::create();

    ymtest::CapturedStderr log;
    manager->sendIPCMessageToYyhost(std::string("payload"));
    manager->sendIPCMessageToYumoClient(std::nullopt);  // nil: no user information at all
    const char *saved = NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT;
    NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT = "RenamedClientName";
    manager->sendIPCMessageToYumoClient(std::string("renamed"));
    NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT = saved;

    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen[0].first, "YumoLauncher3rdSdkToYyhost");
    EXPECT_EQ(seen[0].second, (ymNotificationCenter::UserInfo{{"content", "payload"}}));
    EXPECT_EQ(seen[1].first, "RenamedClientName");
    EXPECT_EQ(seen[1].second, (ymNotificationCenter::UserInfo{{"content", "renamed"}}));
    EXPECT_NE(log.text().find("<< -[ymIPCMsgMgr sendIPCMessageToYumoClient:]: content=(null)"), std::string::npos);
}

TEST_F(NotificationTransport, ManagerThatIsGoneStopsHearing)
{
    auto receiver = std::make_shared<Receiver>();
    {
        ymtest::CapturedStderr log;
        auto manager = ymIPCMsgMgr::create();
        manager->setDelegate(receiver);
        manager.reset();
        EXPECT_NE(log.text().find("-[ymIPCMsgMgr dealloc]."), std::string::npos);
    }
    auto witness = ymIPCMsgMgr::create();
    auto witnessReceiver = std::make_shared<Receiver>();
    witness->setDelegate(witnessReceiver);
    ymNotificationCenter::defaultCenter().post("YumoVideoClientToYumoLauncher3rdSdk", ymNotificationCenter::UserInfo{{"content", "late"}});
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return witnessReceiver->messages.size() == 1; }));
    EXPECT_TRUE(receiver->messages.empty());
}

}  // namespace

namespace {

TEST(NotificationTransportWithoutBus, PostsAreDroppedAndNothingFails)
{
    // This process has not used the bus yet; the centre it gets now finds none.
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_FALSE(ymNotificationCenter::defaultCenter().isConnected());
    // Observers are kept for when a bus comes.
    EXPECT_NE(ymNotificationCenter::defaultCenter().addObserver("x", [](const std::string &, const ymNotificationCenter::UserInfo &) {}), 0u);
    ymtest::CapturedStderr log;
    auto manager = ymIPCMsgMgr::create();
    manager->sendIPCMessageToYumoClient(std::string("nobody hears this"));
    manager->onYumoClientMessageResponse(std::nullopt);
    EXPECT_NE(log.text().find("content=nobody hears this"), std::string::npos);
    EXPECT_NE(log.text().find("dict = (null)"), std::string::npos);
}

}  // namespace
