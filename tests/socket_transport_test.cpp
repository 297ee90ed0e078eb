// The socket server and client, and the channel over them (its message boundary rule, delivery on
// the main loop, the socket paths), over real Unix-domain sockets in temporary folders.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ySocketServerImpl.h>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::eventually;

// Records what it is handed; answers 0 (whole) unless a rule says otherwise.
class Recorder : public ySocketDelegate {
public:
    std::function<int32_t(const std::string &)> rule;

    int32_t onMessageRecieved(const std::string &message) override
    {
        std::lock_guard<std::mutex> guard(_lock);
        _texts.push_back(message);
        return rule ? rule(message) : 0;
    }
    std::vector<std::string> texts()
    {
        std::lock_guard<std::mutex> guard(_lock);
        return _texts;
    }
    size_t count() { return texts().size(); }

private:
    std::mutex _lock;
    std::vector<std::string> _texts;
};

// A server on the path, not started yet.
std::shared_ptr<ySocketServerImpl_SDK> makeServer(const std::string &path,
                                                  const std::shared_ptr<Recorder> &recorder = std::make_shared<Recorder>())
{
    auto server = ySocketServerImpl_SDK::create();
    server->setSocketPath(path);
    server->setDelegate(recorder);
    return server;
}

// Starts the server on a thread of its own, as the channel does.
void start(const std::shared_ptr<ySocketServerImpl_SDK> &server) { std::thread([server] { server->start(); }).detach(); }

// A server listening on the path.
std::shared_ptr<ySocketServerImpl_SDK> startServer(const std::string &path,
                                                   const std::shared_ptr<Recorder> &recorder = std::make_shared<Recorder>())
{
    auto server = makeServer(path, recorder);
    start(server);
    EXPECT_TRUE(eventually([&] { return ymtest::isSocketFile(path); }));
    return server;
}

// A client for the path; it connects when it first sends.
std::shared_ptr<ySocketClientImpl_SDK> makeClient(const std::string &path,
                                                  const std::shared_ptr<Recorder> &recorder = std::make_shared<Recorder>())
{
    auto client = ySocketClientImpl_SDK::create();
    client->setSocketPath(path);
    client->setDelegate(recorder);
    return client;
}

// A path of exactly `units` characters inside the folder.
std::string pathOfLength(const std::string &folder, size_t units)
{
    std::string path = folder + "/";
    path.append(units - path.size(), 's');
    return path;
}

class SocketTransport : public ::testing::Test {
protected:
    ymtest::TemporaryDirectory folder;
    std::string path = folder.path() + "/s.test";
    std::shared_ptr<Recorder> serverSide = std::make_shared<Recorder>();
};

TEST_F(SocketTransport, ClientAndServerExchangeTextBothWaysUpToTheSizeLimit)
{
    auto clientSide = std::make_shared<Recorder>();
    auto server = startServer(path, serverSide);
    auto client = makeClient(path, clientSide);

    // Not connected yet: the first send makes the attempt, waits for it, and writes.
    EXPECT_TRUE(client->send(std::string("hello server")));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }));
    EXPECT_EQ(serverSide->texts()[0], "hello server");

    EXPECT_TRUE(server->send(std::string("hello client \xf0\x9f\x8e\xa7")));
    ASSERT_TRUE(eventually([&] { return clientSide->count() == 1; }));
    EXPECT_EQ(clientSide->texts()[0], "hello client \xf0\x9f\x8e\xa7");

    // Nil and empty texts are refused and write nothing.
    EXPECT_FALSE(client->send(std::nullopt));
    EXPECT_FALSE(client->send(std::string()));
    EXPECT_TRUE(client->send(std::string("second")));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 2; }));
    EXPECT_EQ(serverSide->texts()[1], "second");

    // 65,535 bytes do not fit with the terminating zero: nothing is sent, the empty write
    // succeeds, and the answer is YES.
    EXPECT_TRUE(client->send(std::string(65535, 'x')));
    // 65,534 bytes do fit and arrive whole.
    serverSide->rule = [](const std::string &text) { return text.size() == 65534 ? 0 : -1; };
    EXPECT_TRUE(client->send(std::string(65534, 'y')));
    ASSERT_TRUE(eventually([&] { return !serverSide->texts().empty() && serverSide->texts().back().size() == 65534; }));
    for (const std::string &text : serverSide->texts())
        EXPECT_EQ(text.find('x'), std::string::npos);
}

TEST_F(SocketTransport, ChunkThatIsNotUtf8IsDroppedButTheDelegateIsStillAsked)
{
    serverSide->rule = [](const std::string &) { return -1; };
    auto server = startServer(path, serverSide);
    int peer = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(peer, "ab"));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }));
    ASSERT_TRUE(ymtest::writeText(peer, "\xc3"));  // half a character
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 2; }));
    ASSERT_TRUE(ymtest::writeText(peer, "cd"));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 3; }));
    EXPECT_EQ(serverSide->texts(), (std::vector<std::string>{"ab", "ab", "abcd"}));
    close(peer);
}

TEST_F(SocketTransport, WritesToAPeerThatStoppedReadingNeverRaiseSigpipe)
{
    // SIGPIPE keeps its default action, which would end this process.
    signal(SIGPIPE, SIG_DFL);
    ymtest::CapturedStderr log;
    auto server = startServer(path, serverSide);
    int live = ymtest::connectTo(path);
    int halfOpen = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(live, "a"));
    ASSERT_TRUE(ymtest::writeText(halfOpen, "b"));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 2; }));
    shutdown(halfOpen, SHUT_RD);  // writes to it now fail with EPIPE

    EXPECT_TRUE(server->send(std::string("ping")));
    EXPECT_EQ(ymtest::readText(live, 4), "ping");
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK send:]: send success..."), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK send:]: partial write! [4]"), 1);

    // The client answers YES for a failed write of a non-empty text.
    int listening = ymtest::listenOn(folder.path() + "/s.client");
    auto client = makeClient(folder.path() + "/s.client");
    ASSERT_TRUE(client->send(std::string("x")));
    int peer = ymtest::acceptOne(listening);
    shutdown(peer, SHUT_RD);
    EXPECT_TRUE(client->send(std::string("into the void")));
    close(peer);
    close(live);
    close(halfOpen);
    close(listening);
}

TEST_F(SocketTransport, PathLengthIsCountedInUtf16Units)
{
    ymtest::CapturedStderr log;
    // 103 units are accepted, 104 refused before any socket exists.
    std::string accepted = pathOfLength(folder.path(), 103);
    startServer(accepted);
    EXPECT_TRUE(ymtest::isSocketFile(accepted));

    EXPECT_FALSE(makeServer(pathOfLength(folder.path(), 104))->start());
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK start]: socket path is too long!, len = 104"), std::string::npos);
    EXPECT_FALSE(ymtest::isSocketFile(pathOfLength(folder.path(), 104)));

    auto client = makeClient(pathOfLength(folder.path(), 104));
    EXPECT_FALSE(client->send(std::string("x")));
    EXPECT_NE(log.text().find("-[ySocketClientImpl_SDK connect]: socket_path len = 104, too long"), std::string::npos);

    // Fewer than 104 units but more than 103 bytes: the address holds the first 103 bytes.
    std::string wide = folder.path() + "/";
    const size_t prefix = wide.size();
    while (wide.size() <= 103)
        wide += "\xc3\xa9";  // é: two bytes, one unit
    ASSERT_LT(prefix + (wide.size() - prefix) / 2, 104u);
    start(makeServer(wide));
    EXPECT_TRUE(eventually([&] { return ymtest::isSocketFile(wide.substr(0, 103)); }));
    EXPECT_FALSE(ymtest::isSocketFile(wide));
}

TEST_F(SocketTransport, EndClosesEverythingOnceAndReadersFinish)
{
    ymtest::CapturedStderr log;
    auto server = makeServer(path, serverSide);
    EXPECT_FALSE(server->end());  // never started
    start(server);
    ASSERT_TRUE(eventually([&] { return ymtest::isSocketFile(path); }));
    int peer = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(peer, "x"));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }));

    EXPECT_TRUE(server->end());
    EXPECT_FALSE(server->end());
    EXPECT_EQ(ymtest::readText(peer, 1), "");  // the peer sees the end
    ASSERT_TRUE(eventually([&] { return log.text().find("connection") != std::string::npos &&
                                        log.text().find("finished!") != std::string::npos; }));
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK end]: socket -1 is invalid!"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK end]: close success!"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK init]"), 1);
    // The accept loop goes on failing for the rest of the process, as it always has.
    ASSERT_TRUE(eventually([&] { return log.text().find("accept error, discard!") != std::string::npos; }));
    close(peer);
    log.keepAwayFromTerminal();
}

TEST(IPCChannel, BoundaryRuleNeedsTheKeyAndAClosingBraceAndNilIsRefused)
{
    ymtest::CapturedStderr log;
    auto channel = YMSocketIPCChannel_SDK::create();
    ymtest::MessageCollector collector;
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
    ymtest::MessageCollector onServer;
    auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    ASSERT_NE(server, nullptr);
    server->setDelegate(&onServer);
    ASSERT_TRUE(ymtest::eventually([&] { return ymtest::isSocketFile(path); }));
    auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    ASSERT_NE(client, nullptr);

    // Sent from another thread; delivered on this one, which runs the loop. Messages that arrived
    // together come as one text; none is lost and the order holds.
    std::string expected;
    for (int i = 1; i <= 20; ++i)
        expected += "{\"commandId\":" + std::to_string(i) + "}";
    std::thread sender([&] {
        for (int i = 1; i <= 20; ++i)
            client->sendMessage("{\"commandId\":" + std::to_string(i) + "}");
    });
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
}

TEST(SocketPaths, LiveInTheGroupContainerCreatedPrivateAndAreNilWithoutOne)
{
    ymtest::TemporaryHome home;
    std::optional<std::string> container = YMSocketIPCHelper_SDK::groupContainerDir();
    ASSERT_EQ(container, home.groupContainer());
    struct stat status;
    ASSERT_EQ(stat(container->c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_EQ(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient(), home.groupContainer() + "/s.yumoclient");
    EXPECT_EQ(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost(), home.groupContainer() + "/s.yyhost");

    // The container cannot be made, then there is no home at all.
    std::filesystem::remove_all(home.path() + "/Library");
    ymtest::writeFile(home.path() + "/Library", "a file where the folder should be");
    EXPECT_FALSE(YMSocketIPCHelper_SDK::groupContainerDir().has_value());
    EXPECT_FALSE(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient().has_value());
    unsetenv("HOME");
    EXPECT_FALSE(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost().has_value());
    EXPECT_EQ(YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost()), nullptr);
}

}  // namespace
