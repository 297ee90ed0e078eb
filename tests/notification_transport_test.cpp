// The notification transport between processes on one session bus. The test command starts a
// private bus when none runs; without one these tests are skipped, never passed silently.
#include <YumoClientSdk/ymCommandStatus.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <array>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/ymNotificationCenter.h"
#include "sdk/ymNotificationTransport.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

using Receiver = ymtest::MessageCollector;
using UserInfo = ymNotificationCenter::UserInfo;
const std::string kPresenceRequest = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";

// Runs the call on a thread of its own and answers whether it returned within a generous bound:
// a liveness check against a hang, never a measure of time.
template <typename Call>
bool returns(Call call)
{
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread([call, done]() mutable {
        call();
        done->store(true);
    }).detach();
    return ymtest::eventually([&] { return done->load(); }, std::chrono::seconds(30));
}

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
    manager->sendIPCMessageToYumoClient(kPresenceRequest);
    EXPECT_EQ(client.process().readLine(), "received notification client: " + kPresenceRequest);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    EXPECT_NE(receiver->messages[0].find(R"("data":[{"PresenceStatus":1}])"), std::string::npos);
    manager->sendIPCMessageToYyhost(std::string(R"({"commandId":2,"data":[{"AudioCmd":5}],"deviceName":"Headset"})"));
    EXPECT_EQ(client.process().readLine(), R"(received notification host: {"commandId":2,"data":[{"AudioCmd":5}],"deviceName":"Headset"})");
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 2; }));
    EXPECT_NE(receiver->messages[1].find(R"("data":[{"AudioCmd":5}])"), std::string::npos);
    for (std::thread::id id : receiver->threads)
        EXPECT_EQ(id, std::this_thread::get_id());  // delivered on the loop's thread

    std::string text = log.text();
    EXPECT_NE(text.find("<< -[ymIPCMsgMgr sendIPCMessageToYumoClient:]: content=" + kPresenceRequest), std::string::npos);
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

TEST_F(NotificationTransport, ReleasedFacadesLeaveOneHandlerPerNotification)
{
    // Each facade made its manager, and takes it with it when released.
    for (int i = 0; i < 50; ++i)
        ymSdkImplement::create();
    ymNotificationCenter::defaultCenter().post(NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK, UserInfo{{"content", "once"}});
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    // Every handler of a notification runs in the same turn of the loop: only the survivor's ran.
    EXPECT_EQ(ymtest::countLinesContaining(ymtest::sdkLog() + log.text(), "onYumoClientMessageResponse:]: dict = {"), 1);
    EXPECT_EQ(receiver->messages, std::vector<std::string>{"once"});
}

TEST_F(NotificationTransport, TheChildOfAForkConnectsAfresh)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer does not let a child of a threaded process start threads";
#endif
    std::vector<std::string> heard;
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    center.addObserver("ForkedSays", [&](const std::string &, const UserInfo &userInfo) { heard.push_back(userInfo.at("from")); });
    pid_t child = fork();
    if (child == 0) {
        // The parent's connection and observers are not the child's: it connects on its own.
        bool connected = ymNotificationCenter::defaultCenter().isConnected();
        ymNotificationCenter::defaultCenter().post("ForkedSays", UserInfo{{"from", "child"}});
        _exit(connected ? 0 : 1);
    }
    ASSERT_GT(child, 0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    center.post("ForkedSays", UserInfo{{"from", "parent"}});  // the parent's connection goes on
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return heard.size() == 2; }));
    EXPECT_EQ(heard, (std::vector<std::string>{"child", "parent"}));
}

// A session bus of the test's own, made this process's bus before the process has used one.
class NotificationTransportOnAStoppedBus : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (access("/usr/bin/dbus-daemon", X_OK) != 0)
            GTEST_SKIP() << "no /usr/bin/dbus-daemon";
        const std::string address = "unix:path=" + home.path() + "/bus";
        daemon = std::make_unique<ymtest::ChildProcess>(
            "/usr/bin/dbus-daemon", std::vector<std::string>{"--session", "--nofork", "--address=" + address, "--print-address=1"});
        ASSERT_TRUE(daemon->readLine());  // printed once it listens
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    ymtest::TemporaryHome home;
    std::unique_ptr<ymtest::ChildProcess> daemon;
};

TEST_F(NotificationTransportOnAStoppedBus, CallsReturnAndTheBusServesOnceItGoesOn)
{
    // A meeting client older than 5.6 observing on the bus; then the bus stops before this
    // process has used it.
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.5.0");
    ASSERT_EQ(kill(daemon->pid(), SIGSTOP), 0);

    // The first post, the first observations and the calls after them return.
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    ASSERT_TRUE(returns([&center] { center.post("Unheard", std::nullopt); }));
    auto manager = std::make_shared<std::shared_ptr<ymIPCMsgMgr>>();
    ASSERT_TRUE(returns([manager] { *manager = ymIPCMsgMgr::create(); }));
    auto receiver = std::make_shared<Receiver>();
    (*manager)->setDelegate(receiver);
    ASSERT_TRUE(returns([manager] { (*manager)->sendIPCMessageToYumoClient(std::string("lost")); }));
    ASSERT_TRUE(returns([&center] { center.addObserver("Later", [](const std::string &, const UserInfo &) {}); }));
    EXPECT_FALSE(center.isConnected());

    // Once the bus goes on, the centre connects again, the manager's observations with it: a
    // request reaches the client, and its answer the manager.
    ASSERT_EQ(kill(daemon->pid(), SIGCONT), 0);
    ASSERT_TRUE(ymtest::eventually([&] { return center.isConnected(); }));
    (*manager)->sendIPCMessageToYumoClient(kPresenceRequest);
    EXPECT_EQ(client.process().readLine(), "received notification client: " + kPresenceRequest);  // the lost one never came
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 1; }));
    EXPECT_NE(receiver->messages[0].find(R"("data":[{"PresenceStatus":1}])"), std::string::npos);

    // Stopped again while connected: calls return, and what was posted meanwhile goes out once
    // the bus goes on.
    ASSERT_EQ(kill(daemon->pid(), SIGSTOP), 0);
    ASSERT_TRUE(returns([&center] { center.addObserver("WhileStopped", [](const std::string &, const UserInfo &) {}); }));
    const std::string second = R"({"commandId":1,"from":1,"version":"1.0.0","data":"again"})";
    ASSERT_TRUE(returns([manager, second] { (*manager)->sendIPCMessageToYumoClient(second); }));
    ASSERT_EQ(kill(daemon->pid(), SIGCONT), 0);
    EXPECT_EQ(client.process().readLine(), "received notification client: " + second);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return receiver->messages.size() == 2; }));
}

TEST_F(NotificationTransportOnAStoppedBus, SendsThatMakeTheManagerAtOnceShareOne)
{
    // The bus stopped: the first send to make the manager waits for the handshake's bound, long
    // enough for the other sends to come while it is made.
    ASSERT_EQ(kill(daemon->pid(), SIGSTOP), 0);

    auto receiver = std::make_shared<Receiver>();
    auto transport = std::make_shared<ymNotificationTransport>();
    transport->open(receiver, false);
    constexpr int kSenders = 4;
    auto answers = std::make_shared<std::array<std::atomic<int32_t>, kSenders>>();
    auto made = std::make_shared<std::array<std::shared_ptr<ymIPCMsgMgr>, kSenders>>();
    ASSERT_TRUE(returns([transport, answers, made] {
        std::vector<std::thread> senders;
        for (int i = 0; i < kSenders; ++i)
            senders.emplace_back([transport, answers, made, i] {
                (*answers)[i] = transport->send(ymTransport::Peer::meetingClient, kPresenceRequest);
                (*made)[i] = transport->manager();
            });
        for (std::thread &sender : senders)
            sender.join();
    }));
    for (int i = 0; i < kSenders; ++i) {
        EXPECT_EQ((*answers)[i].load(), ymCommandStatusSent) << i;
        EXPECT_TRUE((*made)[i] && (*made)[i] == (*made)[0]) << i;
    }
    ASSERT_EQ(kill(daemon->pid(), SIGCONT), 0);
    transport->close();
    EXPECT_FALSE(transport->manager());
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
