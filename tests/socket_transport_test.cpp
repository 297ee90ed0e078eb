// The socket server and client over real Unix-domain sockets in temporary folders.
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ySocketServerImpl.h>
#include <csignal>
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

bool socketFileExists(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

std::shared_ptr<ySocketServerImpl_SDK> startServer(const std::string &path, const std::shared_ptr<Recorder> &recorder)
{
    auto server = ySocketServerImpl_SDK::create();
    server->setSocketPath(path);
    server->setDelegate(recorder);
    std::thread([server] { server->start(); }).detach();
    EXPECT_TRUE(eventually([&] { return socketFileExists(path); }));
    return server;
}

// A client connected to the path, with its reader running.
std::shared_ptr<ySocketClientImpl_SDK> connectedClient(const std::string &path, const std::shared_ptr<Recorder> &recorder)
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
};

TEST_F(SocketTransport, ClientAndServerExchangeTextBothWays)
{
    auto serverSide = std::make_shared<Recorder>();
    auto clientSide = std::make_shared<Recorder>();
    auto server = startServer(path, serverSide);
    auto client = connectedClient(path, clientSide);

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
}

TEST_F(SocketTransport, LargeMessageIsGatheredUntilTheDelegateTakesIt)
{
    const std::string large(20000, 'L');
    auto serverSide = std::make_shared<Recorder>();
    serverSide->rule = [&](const std::string &text) { return text.size() >= large.size() ? 0 : -1; };
    auto server = startServer(path, serverSide);
    int peer = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(peer, large));

    ASSERT_TRUE(eventually([&] { return !serverSide->texts().empty() && serverSide->texts().back().size() == large.size(); }));
    std::vector<std::string> texts = serverSide->texts();
    EXPECT_GE(texts.size(), 3u);  // at most 8,191 bytes per read
    for (size_t i = 1; i < texts.size(); ++i)
        EXPECT_GT(texts[i].size(), texts[i - 1].size());  // each call sees everything gathered so far
    EXPECT_EQ(texts.back(), large);
    close(peer);
}

TEST_F(SocketTransport, TwoMessagesInOneReadAreHandedOverAsOneText)
{
    auto clientSide = std::make_shared<Recorder>();
    int listening = ymtest::listenOn(path);
    auto client = connectedClient(path, clientSide);
    std::thread connecting([client] { client->connect(); });
    int peer = ymtest::acceptOne(listening);
    ASSERT_TRUE(ymtest::writeText(peer, "{\"commandId\":1}{\"commandId\":2}"));
    ASSERT_TRUE(eventually([&] { return clientSide->count() == 1; }));
    EXPECT_EQ(clientSide->texts()[0], "{\"commandId\":1}{\"commandId\":2}");
    close(peer);
    connecting.join();  // the reader ends when the peer closes
    close(listening);
}

TEST_F(SocketTransport, ChunkThatIsNotUtf8IsDroppedButTheDelegateIsStillAsked)
{
    auto serverSide = std::make_shared<Recorder>();
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

TEST_F(SocketTransport, SendWithoutServerFailsAndTriesAgainNextTime)
{
    ymtest::CapturedStderr log;
    auto client = connectedClient(path, std::make_shared<Recorder>());
    EXPECT_FALSE(client->send(std::string("lost")));
    EXPECT_FALSE(client->send(std::string("lost again")));
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "socket connect -1 is not ready, need connect it again!"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketClientImpl_SDK connect]: connect error"), 2);
}

TEST_F(SocketTransport, WritesToAPeerThatStoppedReadingNeverRaiseSigpipe)
{
    // SIGPIPE keeps its default action, which would end this process.
    signal(SIGPIPE, SIG_DFL);
    ymtest::CapturedStderr log;
    auto serverSide = std::make_shared<Recorder>();
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
    auto client = connectedClient(folder.path() + "/s.client", std::make_shared<Recorder>());
    ASSERT_TRUE(client->send(std::string("x")));
    int peer = ymtest::acceptOne(listening);
    shutdown(peer, SHUT_RD);
    EXPECT_TRUE(client->send(std::string("into the void")));
    close(peer);
    close(live);
    close(halfOpen);
    close(listening);
}

TEST_F(SocketTransport, OversizedTextLeavesNothing)
{
    auto serverSide = std::make_shared<Recorder>();
    auto server = startServer(path, serverSide);
    auto client = connectedClient(path, std::make_shared<Recorder>());
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

TEST_F(SocketTransport, PathLengthIsCountedInUtf16Units)
{
    ymtest::CapturedStderr log;
    // 103 units are accepted, 104 refused before any socket exists.
    std::string accepted = pathOfLength(folder.path(), 103);
    startServer(accepted, std::make_shared<Recorder>());
    EXPECT_TRUE(socketFileExists(accepted));

    auto refused = ySocketServerImpl_SDK::create();
    refused->setSocketPath(pathOfLength(folder.path(), 104));
    EXPECT_FALSE(refused->start());
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK start]: socket path is too long!, len = 104"), std::string::npos);
    EXPECT_FALSE(ymtest::eventually([&] { return socketFileExists(pathOfLength(folder.path(), 104)); },
                                    std::chrono::milliseconds(0)));

    auto client = connectedClient(pathOfLength(folder.path(), 104), std::make_shared<Recorder>());
    EXPECT_FALSE(client->send(std::string("x")));
    EXPECT_NE(log.text().find("-[ySocketClientImpl_SDK connect]: socket_path len = 104, too long"), std::string::npos);

    // Fewer than 104 units but more than 103 bytes: the address holds the first 103 bytes.
    std::string wide = folder.path() + "/";
    const size_t prefix = wide.size();
    while (wide.size() <= 103)
        wide += "\xc3\xa9";  // é: two bytes, one unit
    ASSERT_LT(prefix + (wide.size() - prefix) / 2, 104u);
    auto cut = ySocketServerImpl_SDK::create();
    cut->setSocketPath(wide);
    std::thread([cut] { cut->start(); }).detach();
    EXPECT_TRUE(eventually([&] { return socketFileExists(wide.substr(0, 103)); }));
    EXPECT_FALSE(socketFileExists(wide));
}

TEST_F(SocketTransport, StaleSocketFileIsTakenOver)
{
    ymtest::writeFile(path, "stale");
    auto firstSide = std::make_shared<Recorder>();
    auto first = startServer(path, firstSide);

    auto secondSide = std::make_shared<Recorder>();
    auto second = ySocketServerImpl_SDK::create();
    second->setSocketPath(path);
    second->setDelegate(secondSide);
    std::thread([second] { second->start(); }).detach();
    // The second server removed the first one's file and bound its own: new peers reach it.
    ASSERT_TRUE(eventually([&] {
        int fd = ymtest::connectTo(path);
        if (fd < 0)
            return false;
        ymtest::writeText(fd, "who?");
        close(fd);
        return secondSide->count() > 0;
    }));
}

TEST_F(SocketTransport, EndClosesEverythingOnceAndReadersFinish)
{
    ymtest::CapturedStderr log;
    auto serverSide = std::make_shared<Recorder>();
    auto server = ySocketServerImpl_SDK::create();
    server->setSocketPath(path);
    server->setDelegate(serverSide);
    EXPECT_FALSE(server->end());  // never started
    std::thread([server] { server->start(); }).detach();
    ASSERT_TRUE(eventually([&] { return socketFileExists(path); }));
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

}  // namespace
