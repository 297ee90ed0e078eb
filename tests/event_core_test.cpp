// The event core under pressure and on a busy desktop: a slow or flooding peer, a peer that accepts
// and closes, a process that forks, and callbacks that run the loop or remove themselves.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkC.h>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "3rdSDKIPC/ipc_socket/ySocketConnection.h"
#include "3rdSDKIPC/ipc_socket/ySocketInbound.h"
#include "platform/ymIOLoop.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::eventually;

std::string padded(int n, size_t size)
{
    std::string head = "{\"commandId\":2,\"n\":" + std::to_string(n) + ",\"pad\":\"";
    return head + std::string(size - head.size() - 2, 'p') + "\"}";
}

// Reads the stream a text at a time (each ends in "\"}") and answers their numbers in order.
std::vector<int> numbersIn(const std::string &stream)
{
    std::vector<int> numbers;
    for (size_t at = stream.find("\"n\":"); at != std::string::npos; at = stream.find("\"n\":", at + 1))
        numbers.push_back(std::stoi(stream.substr(at + 4)));
    return numbers;
}

TEST(Pressure, TextsWaitingBehindOthersReachASlowReaderAndAFullQueueHoldsItsSender)
{
    // 48 MiB from four threads against a queue of 16 MiB, to a peer that reads a little at a time:
    // the texts wait in the queue, and the senders for room in it, far longer than the stall limit,
    // yet the peer always takes something. Nothing is lost and each thread's texts keep their order.
    ymtest::TemporaryDirectory folder;
    std::string path = folder.path() + "/s.slow";
    int listening = ymtest::listenOn(path);
    auto client = ySocketClientImpl_SDK::create();
    client->setSocketPath(path);
    // Under a sanitizer everything is slower, and a third of the bytes keeps the peer busy as long.
    constexpr int kThreads = 4, kTexts = ymtest::kSanitizerBuild ? 120 : 300;
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t)
        senders.emplace_back([&, t] {
            for (int i = 0; i < kTexts; ++i)
                EXPECT_TRUE(client->send(padded(t * kTexts + i, 40 * 1024)));
        });
    int peer = ymtest::acceptOne(listening);
    std::string received;
    char buffer[64 * 1024];
    while (received.size() < size_t(kThreads) * kTexts * 40 * 1024) {
        ssize_t count = read(peer, buffer, sizeof buffer);
        ASSERT_GT(count, 0);
        received.append(buffer, static_cast<size_t>(count));
        std::this_thread::sleep_for(std::chrono::milliseconds(8));  // about 8 MB a second
    }
    for (std::thread &sender : senders)
        sender.join();
    std::vector<int> numbers = numbersIn(received);
    ASSERT_EQ(numbers.size(), size_t(kThreads) * kTexts);
    std::vector<int> next(kThreads, 0);
    for (int n : numbers)
        EXPECT_EQ(n % kTexts, next[n / kTexts]++);
    close(peer);
    close(listening);
}

TEST(Pressure, AWaitingWriterGoesOnWithTheRoomMadeAndTheIOThreadsOwnQueueGoesOut)
{
    // A connection whose queue is full; its peer takes 4 MiB a moment after a writer of 3 MiB began
    // to wait, then waits for that writer: the writer goes on with the room, and nothing is lost.
    struct Unheard : ySocketConnection::Owner {
        void connectionRead(ySocketConnection &, long, std::string_view) override {}
        void connectionReceived(ySocketConnection &, const std::string &) override {}
        void connectionEnded(ySocketConnection &) override {}
    };
    auto owner = std::make_shared<Unheard>();
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const struct timeval readLimit = {30, 0};  // a queue given up sends no more: the peer's reads end
    ASSERT_EQ(setsockopt(ends[1], SOL_SOCKET, SO_RCVTIMEO, &readLimit, sizeof readLimit), 0);
    ymIOLoop::Use use;
    std::shared_ptr<ySocketConnection> connection;
    ASSERT_TRUE(ymIOLoop::shared().runAndWait([&] { connection = ySocketConnection::serve(ends[0], owner, "test"); },
                                              std::chrono::seconds(10)));
    ASSERT_NE(connection, nullptr);
    const std::string mebibyte(1 << 20, 'm'), three(3 << 20, 't');
    size_t accepted = 0;
    while (connection->write(mebibyte, nullptr, false) != ySocketConnection::Written::failed)
        accepted += mebibyte.size();
    std::atomic<bool> written{false};
    std::thread peer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the writer waits by now
        std::vector<char> buffer(1 << 20);
        size_t received = 0;
        auto take = [&](size_t bytes) {
            while (received < bytes) {
                ssize_t count = read(ends[1], buffer.data(), std::min(buffer.size(), bytes - received));
                if (count <= 0)
                    return;
                received += static_cast<size_t>(count);
            }
        };
        take(4 << 20);
        eventually([&] { return written.load(); }, std::chrono::seconds(30));
        take(accepted + three.size());
        EXPECT_EQ(received, accepted + three.size());
    });
    EXPECT_EQ(connection->write(three), ySocketConnection::Written::queued);
    written = true;
    peer.join();

    // Written on the I/O thread itself (an owner answering in its callback): what the socket does
    // not take at once goes out as the peer reads.
    ymIOLoop::shared().runAndWait([&] { EXPECT_EQ(connection->write(three), ySocketConnection::Written::queued); },
                                  std::chrono::seconds(10));
    std::string received;
    for (char buffer[1 << 16]; received.size() < three.size();) {
        ssize_t count = read(ends[1], buffer, sizeof buffer);
        if (count <= 0)
            break;
        received.append(buffer, static_cast<size_t>(count));
    }
    EXPECT_EQ(received, three);
    ymIOLoop::shared().runAndWait([&] { connection.reset(); }, std::chrono::seconds(10));
    close(ends[1]);
}

TEST(Pressure, AFloodWaitsInTheSocketWhileNobodyDispatchesAndArrivesWholeAfterwards)
{
    ymtest::TemporaryDirectory folder;
    std::string path = folder.path() + "/s.flood";
    ymtest::MessageCollector collector;
    auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    ASSERT_NE(server, nullptr);
    server->setDelegate(&collector);
    int peer = ymtest::connectTo(path);
    fcntl(peer, F_SETFL, O_NONBLOCK);
    // The peer writes until the socket takes nothing more for a while: without dispatching, what
    // the companion holds stops at its bound, and the rest waits in the socket.
    int written = 0;
    std::string pending;
    for (;;) {
        if (pending.empty())
            pending = padded(written++, 4096);
        ssize_t sent = send(peer, pending.data(), pending.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            pending.erase(0, static_cast<size_t>(sent));
            continue;
        }
        ASSERT_TRUE(errno == EAGAIN || errno == EWOULDBLOCK);
        struct pollfd writable = {peer, POLLOUT, 0};
        if (poll(&writable, 1, 1500) == 0)
            break;
        ASSERT_LT(written, 4000) << "the companion reads on while nobody takes what it read";
    }
    EXPECT_TRUE(collector.messages.empty());
    // Dispatching takes the messages, and reading goes on; every message arrives, in order.
    std::thread finisher([&] {
        fcntl(peer, F_SETFL, 0);
        ymtest::writeText(peer, pending);
        for (int n = written; n < written + 100; ++n)
            ymtest::writeText(peer, padded(n, 4096));
    });
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() >= size_t(written) + 100; }));
    finisher.join();
    ASSERT_EQ(collector.messages.size(), size_t(written) + 100);
    for (size_t n = 0; n < collector.messages.size(); ++n)
        EXPECT_EQ(numbersIn(collector.messages[n]), std::vector<int>{int(n)});
    close(peer);
}

TEST(Reconnection, APeerThatAcceptsAndClosesIsNotHammered)
{
    ymtest::TemporaryDirectory folder;
    std::string path = folder.path() + "/s.refusing";
    int listening = ymtest::listenOn(path);
    auto client = ySocketClientImpl_SDK::create();
    client->setSocketPath(path);
    client->connect();
    std::atomic<int> accepted{0};
    std::atomic<bool> serving{true};
    std::thread refuser([&] {
        while (serving) {
            struct pollfd ready = {listening, POLLIN, 0};
            if (poll(&ready, 1, 50) > 0) {
                int peer = accept(listening, nullptr, nullptr);
                if (peer >= 0) {
                    ++accepted;
                    close(peer);
                }
            }
        }
    });
    // Pauses that double with each refusal: a few connections a second at most, where connecting
    // again at once made tens of thousands.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    serving = false;
    refuser.join();
    EXPECT_GE(accepted.load(), 2);
    EXPECT_LT(accepted.load(), 60);
    close(listening);
}

// A loop of C callbacks that records the presence codes it is handed.
std::vector<int> codes;

TEST(Callbacks, OrderHoldsWhenACallbackRunsTheLoopAndARemovedOneIsNotCalledAgain)
{
    ymtest::TemporaryHome home;
    ymGetSDKAvailableFeatures();  // the facade connects to the "client" once it listens
    int listening = ymtest::listenOn(home.groupContainer() + "/s.yumoclient");
    int client = ymtest::acceptOne(listening);
    ASSERT_GE(client, 0);
    auto answers = [&](int from, int to) {
        std::string texts;
        for (int code = from; code <= to; ++code)
            texts += "{\"commandId\":1,\"result\":\"" + std::to_string(code) + ":OK\",\"data\":{}}";
        ASSERT_TRUE(ymtest::writeText(client, texts));
    };
    // The first answer's callback waits for the third by running the loop: it gets the second
    // first, as they came.
    ymSetPresenceStatusCallback(
        [](const ymPresenceStatus *status, void *) {
            codes.push_back(status->code);
            if (status->code == 1)
                ymtest::runMainLoopUntil([] { return codes.size() >= 3; });
        },
        nullptr);
    answers(1, 3);
    ASSERT_TRUE(ymtest::runMainLoopUntil([] { return codes.size() >= 3; }));
    EXPECT_EQ(codes, (std::vector<int>{1, 2, 3}));

    // A callback that removes itself hears nothing more, not even the rest of its batch.
    codes.clear();
    ymSetPresenceStatusCallback(
        [](const ymPresenceStatus *status, void *) {
            codes.push_back(status->code);
            ymSetPresenceStatusCallback(nullptr, nullptr);
        },
        nullptr);
    answers(4, 6);
    ymtest::runMainLoopUntil([] { return false; }, std::chrono::milliseconds(500));
    EXPECT_EQ(codes, std::vector<int>{4});
    close(client);
    close(listening);
}

TEST(Pressure, AConnectionStopsReadingPastItsBudgetAndIsAskedOnceToReadAgainAtHalf)
{
    int resumed = 0;
    auto budget = std::make_shared<ySocketInbound::Budget>([&] { ++resumed; });
    const size_t limit = ySocketInbound::kPendingLimit;
    std::vector<std::shared_ptr<ySocketInbound::Charge>> charges;
    {
        ySocketInbound::Handing handing(budget);
        charges.push_back(ySocketInbound::charge(limit / 2));
        charges.push_back(ySocketInbound::charge(limit / 2));
        EXPECT_FALSE(budget->overLimit());  // at the limit it reads on
        charges.push_back(ySocketInbound::charge(1));
        EXPECT_TRUE(budget->overLimit());
    }
    EXPECT_EQ(ySocketInbound::charge(10), nullptr);  // nothing handed on: nothing charged
    EXPECT_EQ(budget->pending(), limit + 1);
    charges.pop_back();  // back at the limit: still above half
    EXPECT_EQ(resumed, 0);
    charges.pop_back();  // half taken back: read again
    EXPECT_EQ(resumed, 1);
    charges.pop_back();
    EXPECT_EQ(resumed, 1);  // once
    EXPECT_EQ(budget->pending(), 0u);
}

TEST(IOLoop, WhatAHandlerOrPostedWorkThrowsStaysThereSaidInTheLog)
{
    ymtest::CapturedStderr log;
    ymIOLoop::Use use;
    int pipeFds[2];
    ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK), 0);
    std::atomic<int> reads{0};
    std::unique_ptr<ymIOLoop::Descriptor> watch;
    ymIOLoop::shared().runAndWait(
        [&] {
            watch = ymIOLoop::Descriptor::watch(pipeFds[0], [&](bool, bool, bool) {
                char byte;
                if (read(pipeFds[0], &byte, 1) == 1 && ++reads == 1)
                    throw std::runtime_error("a handler's own fault");
            });
        },
        std::chrono::seconds(10));
    ASSERT_NE(watch, nullptr);
    ymIOLoop::shared().post([] { throw std::runtime_error("the work's own fault"); });
    for (int byte = 0; byte < 2; ++byte) {
        ASSERT_EQ(write(pipeFds[1], "x", 1), 1);
        EXPECT_TRUE(eventually([&] { return reads == byte + 1; }, std::chrono::seconds(30)));
    }
    EXPECT_NE(log.text().find("ymIOLoop: descriptor threw: a handler's own fault"), std::string::npos) << log.text();
    EXPECT_NE(log.text().find("ymIOLoop: work threw: the work's own fault"), std::string::npos) << log.text();
    ymIOLoop::shared().runAndWait([&] { watch.reset(); }, std::chrono::seconds(10));
    close(pipeFds[0]);
    close(pipeFds[1]);
}

TEST(MainLoop, ADispatchServesABoundedBatchAndAnswersHowManyRan)
{
    ymMainLoop &loop = ymMainLoop::shared();
    while (loop.dispatch() > 0) {
    }
    std::vector<int> ran;
    for (int item = 0; item < 100; ++item)
        loop.post([&ran, item] { ran.push_back(item); });
    EXPECT_EQ(loop.dispatch(), 64u);
    EXPECT_EQ(loop.dispatch(), 36u);
    EXPECT_EQ(loop.dispatch(), 0u);
    ASSERT_EQ(ran.size(), 100u);
    for (int item = 0; item < 100; ++item)
        EXPECT_EQ(ran[item], item);
}

TEST(MainLoop, CompanionsSourcesAreServedInsideACallbackAndThroughTheirFaultsAndAStopEndsTheRun)
{
    // A companion's pipe as a source of the loop.
    struct PipeSource : ymMainLoop::Source {
        int fd = -1;
        int reads = 0;
        int fileDescriptor() const override { return fd; }
        short pollEvents() const override { return POLLIN; }
        void dispatch() override
        {
            char byte;
            reads += read(fd, &byte, 1) == 1;
            if (reads == 2)
                throw std::runtime_error("the companion's own fault");
        }
    };
    ymtest::CapturedStderr log;
    int pipeFds[2];
    ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK), 0);
    auto source = std::make_shared<PipeSource>();
    source->fd = pipeFds[0];
    ymMainLoop &loop = ymMainLoop::shared();
    loop.addSource(source);

    // A callback waits, running the loop, for what the source reads.
    bool heardInside = false, callbackEnded = false;
    loop.post([&] {
        EXPECT_EQ(write(pipeFds[1], "x", 1), 1);
        heardInside = loop.runUntil([&] { return source->reads == 1; }, std::chrono::seconds(10));
        callbackEnded = true;
    });
    ASSERT_TRUE(loop.runUntil([&] { return callbackEnded; }, std::chrono::seconds(30)));
    EXPECT_TRUE(heardInside);

    // What a source throws stays in the loop, said in the log; the source is served on.
    ASSERT_EQ(write(pipeFds[1], "yz", 2), 2);
    EXPECT_TRUE(loop.runUntil([&] { return source->reads == 3; }, std::chrono::seconds(30)));
    EXPECT_NE(log.text().find("ymMainLoop: a source threw: the companion's own fault"), std::string::npos) << log.text();

    // A stop ends the run without its condition: it answers false.
    loop.post([&loop] { loop.stop(); });
    EXPECT_FALSE(loop.runUntil([] { return false; }, std::chrono::seconds(30)));
    source->fd = -1;
    close(pipeFds[0]);
    close(pipeFds[1]);
}

}  // namespace

class Fork : public ymtest::SessionTest {};

TEST_F(Fork, AChildUsesTheSdkAfreshAndNeverActsForItsParent)
{
    // Under a sanitizer's runtime a thread started in the child of a fork now and then never runs
    // (seen with AddressSanitizer: the child's I/O thread stays in the runtime's own thread start,
    // about one run in six), so the child hears nothing. The SDK's part is run by the other builds.
    if (ymtest::kSanitizerBuild)
        GTEST_SKIP() << "threads started in a forked child may never run under a sanitizer's runtime";
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::SharedInstance();
    facade->setDelegate(delegate);
    ASSERT_TRUE(facade->RegisterAudioDevice("Parent", "1", ymValue(2830), ymValue(3)));
    ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !delegate->presence.empty(); }));
    // A thread of the parent keeps the SDK busy while the children are made.
    std::atomic<bool> busy{true};
    std::thread sender([&] {
        while (busy) {
            facade->SetAudioCmd(5, YMAudioDevice_s{"1", "Parent", 2830, 3});
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (int child = 0; child < 20; ++child) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // The child's own request, answered to it on its own connection; its clean-up and its
            // exit leave the parent's device alone.
            delegate->presence.clear();
            bool heard = facade->GetIMPresenceStatus() == 0 &&
                         ymtest::runMainLoopUntil([&] { return !delegate->presence.empty(); }, std::chrono::seconds(20));
            facade->CleanupAudioDevices();
            // A sanitizer's runtime would look for leaks in what the parent's threads left.
            if (ymtest::kSanitizerBuild)
                _exit(heard ? 0 : 1);
            exit(heard ? 0 : 1);
        }
        int status = -1;
        ASSERT_TRUE(eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, std::chrono::seconds(60)))
            << "child " << child << " hangs";
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << child;
    }
    busy = false;
    sender.join();
    std::vector<std::string> devices = ymtest::sharedDeviceTexts();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_NE(devices[0].find("\"Parent\""), std::string::npos);
    EXPECT_EQ(ymtest::countLinesContaining(ymtest::sdkLog(), "cmd = 101"), 0);
    // The parent goes on as before.
    delegate->presence.clear();
    ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_TRUE(ymtest::runMainLoopUntil([&] { return !delegate->presence.empty(); }));
}
