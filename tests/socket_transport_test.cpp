// The socket server and client on the I/O thread, and the channel over them (its boundary rule,
// delivery on the main loop, the socket paths), over real Unix-domain sockets in temporary folders.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ySocketServerImpl.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "platform/ymIOLoop.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::eventually;

// Records what it is handed, and on which thread; answers 0.
class Recorder : public ySocketDelegate {
public:
    int32_t onMessageRecieved(const std::string &message) override
    {
        std::lock_guard<std::mutex> guard(_lock);
        _texts.push_back(message);
        _threads.push_back(std::this_thread::get_id());
        return 0;
    }
    std::vector<std::string> texts()
    {
        std::lock_guard<std::mutex> guard(_lock);
        return _texts;
    }
    std::vector<std::thread::id> threads()
    {
        std::lock_guard<std::mutex> guard(_lock);
        return _threads;
    }
    size_t count() { return texts().size(); }

private:
    std::mutex _lock;
    std::vector<std::string> _texts;
    std::vector<std::thread::id> _threads;
};

// A server for the path, started: listening, or (`starts` false) refused.
std::shared_ptr<ySocketServerImpl_SDK> startServer(const std::string &path, const std::shared_ptr<Recorder> &recorder, bool starts = true)
{
    auto server = ySocketServerImpl_SDK::create();
    server->setSocketPath(path);
    server->setDelegate(recorder);
    EXPECT_EQ(server->start(), starts);
    return server;
}

// A client for the path; it connects when asked, or when it first sends.
std::shared_ptr<ySocketClientImpl_SDK> makeClient(const std::string &path, const std::shared_ptr<Recorder> &recorder)
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

std::string message(int n)
{
    return "{\"commandId\":2,\"n\":" + std::to_string(n) + ",\"u\":\"\\u00a9\\u00AF\",\"s\":\"}{\\\"\xc3\xa9\"}";
}

class SocketTransport : public ::testing::Test {
protected:
    ymtest::TemporaryDirectory folder;
    std::string path = folder.path() + "/s.test";
    std::shared_ptr<Recorder> serverSide = std::make_shared<Recorder>();
    std::shared_ptr<Recorder> clientSide = std::make_shared<Recorder>();
};

TEST_F(SocketTransport, EveryMessageArrivesOnceInOrderHoweverTheBytesAreCut)
{
    auto server = startServer(path, serverSide);
    int peer = ymtest::connectTo(path);
    std::vector<std::string> expected;
    std::string stream;
    for (int i = 0; i < 300; ++i) {
        // Stray bytes between some of them: blanks, a zero byte, text that begins no message.
        if (i % 7 == 0)
            stream += std::string(" \n\0xyz\"]}", 9);
        expected.push_back(message(i));
        stream += expected.back();
    }
    // All at once, then byte by byte: cuts inside a character and right after an inner "}".
    ASSERT_TRUE(ymtest::writeText(peer, stream.substr(0, stream.size() / 2)));
    for (char byte : stream.substr(stream.size() / 2))
        ASSERT_TRUE(ymtest::writeText(peer, std::string(1, byte)));
    ASSERT_TRUE(eventually([&] { return serverSide->count() >= expected.size(); }));
    EXPECT_EQ(serverSide->texts(), expected);
    // The delegate is called on the I/O thread, never on a caller's.
    for (std::thread::id id : serverSide->threads())
        EXPECT_NE(id, std::this_thread::get_id());

    // A text that is not JSON costs only itself: an unterminated string (the peer broke off and
    // began again), a missing brace, a bad literal, bytes that are not UTF-8.
    ymtest::CapturedStderr log;
    const std::vector<std::string> broken = {R"({"commandId":1,"data":"never closed)", R"({"commandId":1,"data":[)",
                                             R"({"commandId":1,"x":tru})", "{\"commandId\":1,\"x\":\"\xc3\"}"};
    for (const std::string &text : broken)
        ASSERT_TRUE(ymtest::writeText(peer, text + message(1000)));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == expected.size() + broken.size(); }));
    for (size_t i = expected.size(); i < serverSide->count(); ++i)
        EXPECT_EQ(serverSide->texts()[i], message(1000));
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "not a JSON message, dropped: {\"commandId\":1"), 4);

    // A text past 16 MiB is dropped with a log line, and the next message arrives.
    std::string huge = "{\"commandId\":3,\"pad\":\"" + std::string(17 << 20, 'p') + "\"}";
    std::thread writer([&] { ymtest::writeText(peer, huge + message(2000)); });
    ASSERT_TRUE(eventually([&] { return serverSide->count() == expected.size() + broken.size() + 1; }));
    writer.join();
    EXPECT_EQ(serverSide->texts().back(), message(2000));
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "more than 16777216 bytes without the end of a message, dropped"), 1);

    // A peer that breaks a message off where a value was due, sends a whole one, and falls quiet:
    // the broken text is given up after the wait limit, and the whole one arrives.
    ASSERT_TRUE(ymtest::writeText(peer, R"({"commandId":1,"data":)" + message(3000)));
    ASSERT_TRUE(eventually([&] { return serverSide->texts().back() == message(3000); }));
    close(peer);
}

class Collector : public ySocketFraming::Receiver {
public:
    std::vector<std::string> messages;
    void messageSplit(std::string_view message) override { messages.emplace_back(message); }
    void textDropped(Dropped, std::string_view) override {}
};

TEST(Framing, AMessageAfterABrokenOneArrivesWhereverTheReadsAreCut)
{
    // The peer broke off where a value was due, and began again.
    const std::string broken = R"({"commandId":2,"data":{"PresenceStatus":)";
    const std::string stream = broken + R"({"commandId":99,"result":0}{"commandId":100})";
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        ySocketFraming::Splitter splitter;
        Collector collector;
        splitter.feed(std::string_view(stream).substr(0, cut), collector);
        splitter.feed(std::string_view(stream).substr(cut), collector);
        // The broken text swallowed the next message as its value; the one after shows it broken.
        EXPECT_EQ(collector.messages, (std::vector<std::string>{R"({"commandId":99,"result":0})", R"({"commandId":100})"}))
            << "cut at " << cut;
    }
    // With nothing after it, the swallowed message comes when the broken text is given up.
    ySocketFraming::Splitter splitter;
    Collector collector;
    splitter.feed(broken + R"({"commandId":99,"result":0})", collector);
    EXPECT_TRUE(collector.messages.empty());
    ASSERT_TRUE(splitter.unfinished());
    splitter.abandon(collector);
    EXPECT_EQ(collector.messages, std::vector<std::string>{R"({"commandId":99,"result":0})"});
    EXPECT_FALSE(splitter.unfinished());
}

TEST(Framing, ReadingAgainIsPaidForWithTheBytesRead)
{
    // A message nested inside texts broken off is found by reading the same bytes again from each
    // next "{": a little nesting costs little, but a peer may not make the reader work on without
    // end, so reading again stops once it has cost what was read and one message more.
    const std::pair<int, std::vector<std::string>> cases[] = {{3, {R"({"commandId":7})", R"({"commandId":8})"}}, {500, {R"({"commandId":8})"}}};
    for (const auto &[depth, expected] : cases) {
        std::string stream;
        for (int level = 0; level < depth; ++level)
            stream += R"({"a":)";
        stream += R"({"commandId":7}!{"commandId":8})";
        ySocketFraming::Splitter splitter;
        Collector collector;
        splitter.feed(stream, collector);
        EXPECT_EQ(collector.messages, expected) << depth;
        EXPECT_FALSE(splitter.unfinished());
    }
}

TEST_F(SocketTransport, TextsFromManyThreadsGoOutWholeAndInOrder)
{
    int listening = ymtest::listenOn(path);
    auto client = makeClient(path, clientSide);
    // Texts far larger than the socket takes at once: most go through the I/O thread's queue.
    auto text = [](int thread, int i) { return "{\"commandId\":2,\"t\":" + std::to_string(thread) + ",\"i\":" + std::to_string(i) +
                                               ",\"pad\":\"" + std::string(20000, 'a' + thread) + "\"}"; };
    std::vector<std::thread> senders;
    for (int t = 0; t < 8; ++t)
        senders.emplace_back([&, t] {
            for (int i = 0; i < 40; ++i)
                EXPECT_TRUE(client->send(text(t, i)));
        });
    int peer = ymtest::acceptOne(listening);
    size_t expectedBytes = 0;
    for (int t = 0; t < 8; ++t)
        for (int i = 0; i < 40; ++i)
            expectedBytes += text(t, i).size();
    std::string received = ymtest::readText(peer, expectedBytes);
    for (std::thread &sender : senders)
        sender.join();
    ASSERT_EQ(received.size(), expectedBytes);
    // Cut where each text ends: each is whole, and each thread's come in its order.
    std::vector<int> next(8, 0);
    for (size_t at = 0; at < received.size();) {
        size_t end = received.find("\"}", at) + 2;
        std::string one = received.substr(at, end - at);
        int t = std::stoi(one.substr(one.find("\"t\":") + 4));
        EXPECT_EQ(one, text(t, next[t]));
        ++next[t];
        at = end;
    }
    EXPECT_EQ(next, std::vector<int>(8, 40));
    close(peer);
    close(listening);
}

TEST_F(SocketTransport, ExchangeBothWaysAndTheSizeLimitOfASentText)
{
    auto server = startServer(path, serverSide);
    auto client = makeClient(path, clientSide);
    // Not connected yet: the first send makes the attempt, waits for it, and writes.
    EXPECT_TRUE(client->send(message(1)));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }));
    EXPECT_TRUE(server->send(message(2)));
    ASSERT_TRUE(eventually([&] { return clientSide->count() == 1; }));
    EXPECT_EQ(clientSide->texts()[0], message(2));

    // Nil and empty texts are refused; 65,535 bytes do not fit with the terminating zero: nothing
    // is sent and the answer is YES; 65,534 bytes arrive whole.
    EXPECT_FALSE(client->send(std::nullopt));
    EXPECT_FALSE(client->send(std::string()));
    std::string tooLong = "{\"commandId\":2,\"p\":\"" + std::string(65535 - 22, 'x') + "\"}";
    std::string longest = "{\"commandId\":2,\"p\":\"" + std::string(65534 - 22, 'y') + "\"}";
    EXPECT_TRUE(client->send(tooLong));
    EXPECT_TRUE(client->send(longest));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 2; }));
    EXPECT_EQ(serverSide->texts()[1], longest);
}

TEST_F(SocketTransport, WritesToAPeerThatStoppedReadingNeverRaiseSigpipe)
{
    // SIGPIPE keeps its default action, which would end this process.
    signal(SIGPIPE, SIG_DFL);
    ymtest::CapturedStderr log;
    auto server = startServer(path, serverSide);
    int live = ymtest::connectTo(path);
    int halfOpen = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(live, message(1)));
    ASSERT_TRUE(ymtest::writeText(halfOpen, message(2)));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 2; }));
    shutdown(halfOpen, SHUT_RD);  // writes to it now fail with EPIPE

    EXPECT_TRUE(server->send(message(3)));
    EXPECT_EQ(ymtest::readText(live, message(3).size()), message(3));
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK send:]: send success..."), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK send:]: partial write! [" +
                                                     std::to_string(message(3).size()) + "]"),
              1);

    // The client answers YES for a failed write of a non-empty text.
    int listening = ymtest::listenOn(folder.path() + "/s.client");
    auto client = makeClient(folder.path() + "/s.client", clientSide);
    ASSERT_TRUE(client->send(message(4)));
    int peer = ymtest::acceptOne(listening);
    shutdown(peer, SHUT_RD);
    EXPECT_TRUE(client->send(message(5)));
    for (int fd : {peer, live, halfOpen, listening})
        close(fd);
}

TEST_F(SocketTransport, PathLengthIsCountedInUtf16Units)
{
    ymtest::CapturedStderr log;
    // 103 units are accepted, 104 refused before any socket exists.
    std::string accepted = pathOfLength(folder.path(), 103);
    auto server = startServer(accepted, serverSide);
    EXPECT_TRUE(ymtest::isSocketFile(accepted));

    auto refused = startServer(pathOfLength(folder.path(), 104), serverSide, false);
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK start]: socket path is too long!, len = 104"), std::string::npos);
    EXPECT_FALSE(ymtest::isSocketFile(pathOfLength(folder.path(), 104)));

    auto client = makeClient(pathOfLength(folder.path(), 104), clientSide);
    EXPECT_FALSE(client->send(message(1)));
    EXPECT_NE(log.text().find("-[ySocketClientImpl_SDK connect]: socket_path len = 104, too long"), std::string::npos);

    // Fewer than 104 units but more than 103 bytes: the address holds the first 103 bytes.
    std::string wide = folder.path() + "/";
    while (wide.size() <= 103)
        wide += "\xc3\xa9";  // é: two bytes, one unit
    auto cut = startServer(wide, serverSide);
    EXPECT_TRUE(ymtest::isSocketFile(wide.substr(0, 103)));
    EXPECT_FALSE(ymtest::isSocketFile(wide));
}

TEST_F(SocketTransport, AServerWhoseIOThreadIsHeldPastTheWaitAnswersNoAndListensNowhere)
{
    ymtest::CapturedStderr log;
    ymIOLoop::Use use;
    ASSERT_TRUE(use.running());
    // The I/O thread busy for longer than a start waits for it.
    auto released = std::make_shared<std::promise<void>>();
    std::shared_future<void> release = released->get_future().share();
    ASSERT_TRUE(ymIOLoop::shared().post([release] { release.wait_for(std::chrono::seconds(60)); }));
    auto server = startServer(path, serverSide, false);
    released->set_value();
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK start]: listen error!"), std::string::npos);
    ASSERT_TRUE(ymIOLoop::shared().runAndWait([] {}, std::chrono::seconds(10)));  // the start's own work has run
    int stray = ymtest::connectTo(path);
    EXPECT_LT(stray, 0);
    if (stray >= 0)
        close(stray);

    // Once the thread is free, the same server starts.
    EXPECT_TRUE(server->start());
    int peer = ymtest::connectTo(path);
    ASSERT_GE(peer, 0);
    ASSERT_TRUE(ymtest::writeText(peer, message(1)));
    EXPECT_TRUE(eventually([&] { return serverSide->count() == 1; }));
    close(peer);
}

TEST_F(SocketTransport, ClientConnectsAgainByItselfWhenItsPeerComesBack)
{
    ymtest::CapturedStderr log;
    auto client = makeClient(folder.path() + "/elsewhere/s.test", clientSide);
    client->connect();  // a folder that is not there: nothing to watch
    client->setSocketPath(path);
    client->connect();  // nobody listens yet
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "-[ySocketClientImpl_SDK connect]: connect error"), 2);
    for (int round = 0; round < 3; ++round) {
        // A peer listens (the old socket file, if any, replaced): the client connects without
        // being asked to, and hears what the peer says.
        int listening = ymtest::listenOn(path);
        int peer = ymtest::acceptOne(listening);
        ASSERT_TRUE(ymtest::writeText(peer, message(round)));  // a peer was accepted
        ASSERT_TRUE(eventually([&] { return clientSide->count() == static_cast<size_t>(round + 1); }));
        EXPECT_EQ(clientSide->texts().back(), message(round));
        // The peer goes away. (The client may connect again before the listening socket has
        // closed too, and then see that connection end as well.)
        close(peer);
        close(listening);
        if (round == 1)
            unlink(path.c_str());
        ASSERT_TRUE(eventually([&] {
            return ymtest::countLinesContaining(log.text(), "-[ySocketClientImpl_SDK connect]: connect finished") > round;
        }));
    }
}

TEST_F(SocketTransport, PeerThatListensAMomentAfterItsSocketAppearsIsReachedQuickly)
{
    ymtest::CapturedStderr log;
    const std::string refused = "-[ySocketClientImpl_SDK connect]: connect error";
    close(ymtest::listenOn(path));  // a socket file nobody listens on
    auto client = makeClient(path, clientSide);
    client->connect();
    // A few quick tries, then the client waits for the folder to change.
    ASSERT_TRUE(eventually([&] { return ymtest::countLinesContaining(log.text(), refused) == 9; }));

    // A peer makes its socket and listens only after the client's try on its appearance was
    // refused: the quick tries begin again, and one of them is accepted.
    int listening = ymtest::bindOn(path);
    ASSERT_GE(listening, 0);
    ASSERT_TRUE(eventually([&] { return ymtest::countLinesContaining(log.text(), refused) >= 10; }));
    ASSERT_EQ(listen(listening, 4), 0);
    int peer = ymtest::acceptOne(listening);
    ASSERT_TRUE(ymtest::writeText(peer, message(1)));  // a peer was accepted
    ASSERT_TRUE(eventually([&] { return clientSide->count() == 1; }));
    close(peer);
    close(listening);
}

TEST_F(SocketTransport, ASocketRightUnderTheRootIsWatchedForThere)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer does not let a child of a threaded process start threads";
#endif
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may change the root folder";
    // The same as above, with the socket at "/s.test": in a child whose root is the test's folder,
    // with /proc there as on any system (inotify is given a folder through it).
    ymtest::CapturedStderr log;
    int logFile = open(log.path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(logFile, 0);
    constexpr int kNoRootOfItsOwn = 2;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const std::string proc = folder.path() + "/proc";
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mkdir(proc.c_str(), 0555) != 0 || mount("/proc", proc.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
            chroot(folder.path().c_str()) != 0 || chdir("/") != 0)
            _exit(kNoRootOfItsOwn);
        auto refusals = [logFile] {
            std::string text(1 << 16, '\0');
            ssize_t length = pread(logFile, text.data(), text.size(), 0);
            return ymtest::countLinesContaining(text.substr(0, length > 0 ? length : 0),
                                                "-[ySocketClientImpl_SDK connect]: connect error");
        };
        close(ymtest::listenOn("/s.test"));
        auto recorder = std::make_shared<Recorder>();
        auto client = makeClient("/s.test", recorder);
        client->connect();
        if (!eventually([&] { return refusals() == 9; }, std::chrono::seconds(30)))
            _exit(3);
        int listening = ymtest::bindOn("/s.test");
        if (listening < 0 || !eventually([&] { return refusals() >= 10; }, std::chrono::seconds(30)))
            _exit(4);  // the socket's appearance was not seen
        listen(listening, 4);
        int peer = ymtest::acceptOne(listening);
        _exit(peer >= 0 && ymtest::writeText(peer, message(1)) && eventually([&] { return recorder->count() == 1; }) ? 0 : 5);
    }
    close(logFile);
    int status = -1;
    ASSERT_TRUE(eventually([&] { return waitpid(child, &status, WNOHANG) == child; }, std::chrono::seconds(120)));
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoRootOfItsOwn)
        GTEST_SKIP() << "no mount namespace or chroot here";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

TEST_F(SocketTransport, ServerOutOfDescriptorsAcceptsAgainOnceSomeAreFree)
{
    if (ymtest::kSanitizerBuild)
        GTEST_SKIP() << "the sanitizer's runtime needs descriptors of its own";
    ymtest::CapturedStderr log;
    auto server = startServer(path, serverSide);
    // The log is read through a descriptor opened now: no other can be opened for a while.
    int logFile = open(log.path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(logFile, 0);
    auto acceptErrors = [&] {
        std::string text(1 << 16, '\0');
        ssize_t length = pread(logFile, text.data(), text.size(), 0);
        return ymtest::countLinesContaining(text.substr(0, length > 0 ? length : 0), "accept error, discard!");
    };
    // Every descriptor this process may open is taken, but for one peer's.
    ymtest::DescriptorsTakenButOne full;
    ASSERT_TRUE(full.taken());
    int peer = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(peer, message(1)));  // connected, and written
    // The server cannot accept it; it pauses, and tries again once descriptors are free.
    ASSERT_TRUE(eventually([&] { return acceptErrors() > 0; }));
    EXPECT_EQ(serverSide->count(), 0u);
    full.giveBack();
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }, std::chrono::seconds(20)));
    EXPECT_EQ(serverSide->texts()[0], message(1));
    close(peer);
    close(logFile);
}

TEST_F(SocketTransport, EndStopsAcceptingAndClosesEveryPeer)
{
    ymtest::CapturedStderr log;
    auto server = ySocketServerImpl_SDK::create();
    server->setSocketPath(path);
    server->setDelegate(serverSide);
    EXPECT_FALSE(server->end());  // never started
    ASSERT_TRUE(server->start());
    EXPECT_FALSE(server->start());  // it listens already
    int peer = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(peer, message(1)));
    ASSERT_TRUE(eventually([&] { return serverSide->count() == 1; }));

    EXPECT_TRUE(server->end());
    EXPECT_FALSE(server->end());
    EXPECT_EQ(ymtest::readText(peer, 1), "");  // the peer sees the end
    EXPECT_EQ(ymtest::connectTo(path), -1);   // and nobody is accepted any more
    std::string text = log.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK end]: socket -1 is invalid!"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK end]: close success!"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketServerImpl_SDK init]"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "accept error"), 0);
    close(peer);
}

TEST_F(SocketTransport, ReleasedObjectsLeaveNoThreadAndNoDescriptorBehind)
{
    long descriptorsBefore = 0;
    for (int round = 0; round <= 20; ++round) {
        // The loops' own descriptors (made once, at their first use) are there from the first
        // round; the I/O thread's are there while it runs.
        if (round == 1) {
            ASSERT_TRUE(eventually([] { return !ymtest::ioThreadRuns(); }));
            descriptorsBefore = ymtest::openDescriptors();
        }
        ymtest::MessageCollector collector;
        auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
        server->setDelegate(&collector);
        auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
        client->setDelegate(&collector);
        client->sendMessage(message(1));
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 1; }));
        server->sendMessage(message(2));
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 2; }));
    }
    // The I/O thread ends once the last socket has closed.
    EXPECT_TRUE(eventually([] { return !ymtest::ioThreadRuns(); }));
    EXPECT_EQ(ymtest::openDescriptors(), descriptorsBefore);
    ASSERT_GT(descriptorsBefore, 0);
}

TEST(IPCChannel, BoundaryRuleNeedsTheKeyAndAClosingBraceAndNilIsRefused)
{
    ymtest::CapturedStderr log;
    auto channel = YMSocketIPCChannel_SDK::create();
    ymtest::MessageCollector collector;
    channel->setDelegate(&collector);
    EXPECT_EQ(channel->onMessageRecieved("{\"from\":1}"), -1);               // no key
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":1,\"data\":[{"), -1);  // not closed
    EXPECT_EQ(channel->onMessageRecieved(""), -1);                          // nothing
    EXPECT_EQ(channel->onMessageRecieved(" \r\n\t "), -1);                  // only blanks
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":1}\r\n  "), 0);     // trailing blanks kept
    EXPECT_EQ(channel->onMessageRecieved("{\"x\":\"commandId\"}"), 0);       // the key inside a value
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "-[YMSocketIPCChannel_SDK onMessageRecieved:]: recieved msg: "), 6);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 2; }));
    EXPECT_EQ(collector.messages[0], "{\"commandId\":1}\r\n  ");

    // Without a delegate a message is dropped; a weak delegate that is gone gets nothing.
    channel->setDelegate(nullptr);
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":2}"), 0);
    auto weak = std::make_shared<ymtest::MessageCollector>();
    channel->setDelegate(std::weak_ptr<YMSocketIPCChannelDelegate>(weak));
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":3}"), 0);
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":4}"), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return weak->messages.size() == 2; }));
    EXPECT_EQ(weak->messages[1], "{\"commandId\":4}");
    EXPECT_EQ(channel->onMessageRecieved("{\"commandId\":5}"), 0);
    weak.reset();  // gone before the delivery runs
    ymtest::runMainLoopUntil([] { return true; });
    EXPECT_EQ(collector.messages.size(), 2u);

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

TEST(IPCChannel, MessagesReachTheDelegateOnTheLoopThreadEachOnItsOwn)
{
    ymtest::TemporaryDirectory folder;
    const std::string path = folder.path() + "/s.channel";
    ymtest::MessageCollector onServer;
    auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    ASSERT_NE(server, nullptr);
    server->setDelegate(&onServer);
    auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    ASSERT_NE(client, nullptr);

    // Sent from another thread as fast as it goes; delivered on this one, which runs the loop, one
    // message a call, in order.
    std::vector<std::string> expected;
    for (int i = 1; i <= 500; ++i)
        expected.push_back("{\"commandId\":" + std::to_string(i) + "}");
    std::thread sender([&] {
        for (const std::string &text : expected)
            client->sendMessage(text);
    });
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return onServer.messages.size() >= expected.size(); }));
    sender.join();
    EXPECT_EQ(onServer.messages, expected);
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
