// The channel: the message boundary rule, delivery on the main loop, and the socket paths.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using Collector = ymtest::MessageCollector;

TEST(IPCChannel, BoundaryRuleNeedsTheKeyAndAClosingBrace)
{
    ymtest::CapturedStderr log;
    auto channel = YMSocketIPCChannel_SDK::create();
    Collector collector;
    channel->setDelegate(&collector);
    EXPECT_EQ(channel->onMessageRecieved("{\"from\":1}"), -1);               // no key
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":1,\"data\":[{"), -1);  // not closed
    EXPECT_EQ(channel->onMessageRecieved(""), -1);                          // nothing gathered
    EXPECT_EQ(channel->onMessageRecieved(" \r\n\t "), -1);                  // only blanks
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":1}\r\n  "), 0);     // trailing blanks kept
    EXPECT_EQ(channel->onMessageRecieved("{\"x\":\"commandId\"}"), 0);       // the key inside a value
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":1,\"data\":[{\"a\":1}"), 0);  // cut after an inner }
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "-[YMSocketIPCChannel_SDK onMessageRecieved:]: recieved msg: "), 7);

    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 3; }));
    EXPECT_EQ(collector.messages[0], "{\"commandId\":1}\r\n  ");
    EXPECT_EQ(collector.messages[2], "{\"commandId\":1,\"data\":[{\"a\":1}");

    // Without a delegate a whole message is dropped, and gathering starts afresh.
    channel->setDelegate(nullptr);
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":2}"), 0);
}

TEST(IPCChannel, MissingPathsAndMessagesAreRefused)
{
    ymtest::CapturedStderr log;
    EXPECT_EQ(YMSocketIPCChannel_SDK::ipcClientWithSocketPath(std::nullopt), nullptr);
    EXPECT_EQ(YMSocketIPCChannel_SDK::ipcServerWithSocketPath(std::string()), nullptr);
    auto idle = YMSocketIPCChannel_SDK::create();
    idle->sendMessage(std::nullopt);
    idle->sendMessage(std::string("{}"));  // neither socket: nothing happens
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[YMSocketIPCChannel_SDK initIPCClientWithSocketPath:]: socketPath is nil"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[YMSocketIPCChannel_SDK initIPCServerWithSocketPath:]: socketPath is nil"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[YMSocketIPCChannel_SDK sendMessage:]: message is nil"), 1);
}

TEST(IPCChannel, MessagesReachTheDelegateOnTheLoopThreadInOrder)
{
    ymtest::TemporaryDirectory folder;
    const std::string path = folder.path() + "/s.channel";
    Collector onServer, onClient;
    auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    ASSERT_NE(server, nullptr);
    server->setDelegate(&onServer);
    ASSERT_TRUE(ymtest::eventually([&] { return access(path.c_str(), F_OK) == 0; }));
    auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    ASSERT_NE(client, nullptr);
    client->setDelegate(&onClient);

    // Sent from another thread; delivered on this one, which runs the loop.
    std::thread sender([&] {
        for (int i = 1; i <= 20; ++i) {
            client->sendMessage("{\"commandId\":" + std::to_string(i) + "}");
        }
    });
    // Messages that arrived together come as one text; none is lost and the order holds.
    std::string expected;
    for (int i = 1; i <= 20; ++i)
        expected += "{\"commandId\":" + std::to_string(i) + "}";
    auto all = [&] {
        std::string joined;
        for (const std::string &message : onServer.messages)
            joined += message;
        return joined;
    };
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return all().size() >= expected.size(); }));
    sender.join();
    EXPECT_EQ(all(), expected);
    for (std::thread::id id : onServer.threads)
        EXPECT_EQ(id, std::this_thread::get_id());

    server->sendMessage(std::string("{\"commandId\":1,\"result\":\"1:OK\"}"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return onClient.messages.size() == 1; }));
    EXPECT_EQ(onClient.messages[0], "{\"commandId\":1,\"result\":\"1:OK\"}");
}

TEST(IPCChannel, LoopDescriptorCanBeHookedIntoAnotherPollLoop)
{
    ymMainLoop &loop = ymMainLoop::shared();
    loop.dispatch();
    struct pollfd idle = {loop.fileDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&idle, 1, 0), 0);  // nothing to do: not readable

    int ran = 0;
    std::thread([&loop, &ran] { loop.post([&ran] { ++ran; }); }).join();
    struct pollfd ready = {loop.fileDescriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    EXPECT_EQ(loop.dispatch(), 1u);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(poll(&idle, 1, 0), 0);
}

TEST(SocketPaths, LiveInTheGroupContainerCreatedPrivate)
{
    ymtest::TemporaryHome home;
    std::optional<std::string> container = YMSocketIPCHelper_SDK::groupContainerDir();
    ASSERT_EQ(container, home.groupContainer());
    struct stat status;
    ASSERT_EQ(stat(container->c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_EQ(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient(), home.groupContainer() + "/s.yumoclient");
    EXPECT_EQ(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost(), home.groupContainer() + "/s.yyhost");
}

TEST(SocketPaths, AreNilWithoutAHomeOrWhenTheContainerCannotBeMade)
{
    ymtest::TemporaryHome home;
    ymtest::writeFile(home.path() + "/Library", "a file where the folder should be");
    EXPECT_FALSE(YMSocketIPCHelper_SDK::groupContainerDir().has_value());
    EXPECT_FALSE(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient().has_value());
    unsetenv("HOME");
    EXPECT_FALSE(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost().has_value());
    EXPECT_EQ(YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost()), nullptr);
}

}  // namespace
