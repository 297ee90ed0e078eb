// Faults and load with real processes: peers that break off, go away or flood, many peers at
// once, companions racing on the shared list, a file system that does not cooperate. Each test
// checks that the companion lives on and loses nothing beyond what the transport allows.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymFileUtils.h>
#include <algorithm>
#include <filesystem>
#include <set>
#include <gtest/gtest.h>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymNotificationCenter.h"
#include "platform/ymPropertyList.h"
#include "platform/ymUserDefaults.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

// A socket path in a folder of the test's own, the log captured, and (when asked) a server
// channel listening there that collects what it is sent.
class Transport : public ::testing::Test {
protected:
    std::shared_ptr<YMSocketIPCChannel_SDK> listen()
    {
        auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
        server->setDelegate(&collector);
        EXPECT_TRUE(ymtest::eventually([&] { return ymtest::isSocketFile(path); }));
        return server;
    }
    ymtest::TemporaryDirectory folder;
    ymtest::CapturedStderr log;
    const std::string path = folder.path() + "/s.test";
    ymtest::MessageCollector collector;
};

TEST_F(Transport, PeerThatFloodsBytesThatBeginNoMessage)
{
    auto server = listen();
    // Ten megabytes that cannot begin a message, then one: the flood is passed over as it comes.
    const std::string flood(10 * 1024 * 1024, '}');
    int flooder = ymtest::connectTo(path);
    std::thread writer([&] {
        ymtest::writeText(flooder, flood);
        ymtest::writeText(flooder, "{\"commandId\":9}");
    });
    // Another peer is served meanwhile.
    int other = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(other, "{\"commandId\":1}"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 2; }, std::chrono::seconds(120)));
    writer.join();
    std::sort(collector.messages.begin(), collector.messages.end());
    EXPECT_EQ(collector.messages, (std::vector<std::string>{"{\"commandId\":1}", "{\"commandId\":9}"}));
    // The log shows each read once: it grows with the flood, not with its square.
    EXPECT_LT(log.text().size(), 3 * flood.size());
    close(flooder);
    close(other);
}

TEST_F(Transport, TwoHundredPeersReceiveOneBroadcast)
{
    // The loops' own descriptors are made once, at their first use.
    listen();
    ymtest::runMainLoopUntil([] { return true; });
    ASSERT_TRUE(ymtest::eventually([] { return !ymtest::ioThreadRuns(); }));
    const long descriptorsBefore = ymtest::openDescriptors();
    auto server = listen();
    EXPECT_TRUE(ymtest::ioThreadRuns());  // one thread, named for top and gdb, serves the sockets
    server->sendMessage(std::string("{\"commandId\":0}"));  // nobody to send to yet
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK send:]: fd is "), std::string::npos);
    // A peer that writes half a message and goes: the half is all there will be of it.
    int quitter = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(quitter, R"({"commandId":1,"data":[{"Presence)"));
    close(quitter);
    std::vector<int> peers;
    for (int i = 0; i < 200; ++i) {
        int fd = ymtest::connectTo(path);
        ASSERT_GE(fd, 0) << i;
        ASSERT_TRUE(ymtest::writeText(fd, "{\"commandId\":0,\"peer\":" + std::to_string(i) + "}"));
        peers.push_back(fd);
    }
    // Once every peer's message is in, every peer is among the server's connections.
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 200; }, std::chrono::seconds(60)));
    for (const std::string &message : collector.messages)
        EXPECT_EQ(message.find("Presence"), std::string::npos) << message;  // never glued to another peer's
    const std::string broadcast = "{\"commandId\":2,\"to\":\"all\"}";
    server->sendMessage(broadcast);
    for (int fd : peers) {
        EXPECT_EQ(ymtest::readText(fd, broadcast.size()), broadcast);
        close(fd);
    }
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "send success..."), 200);
    // Each connection is closed when its peer goes; once the server goes too, nothing is left.
    EXPECT_TRUE(ymtest::eventually([&] { return ymtest::countLinesContaining(log.text(), "finished!") == 201; }));
    server.reset();
    EXPECT_TRUE(ymtest::eventually([] { return !ymtest::ioThreadRuns(); }));
    EXPECT_EQ(ymtest::openDescriptors(), descriptorsBefore);
}

TEST_F(Transport, FullListenQueueHoldsNoSenderForLong)
{
    // A meeting client that accepts nobody: its queue is full after one connection.
    int listening = ymtest::listenOn(path, 0);
    int queued = ymtest::connectTo(path);
    ASSERT_GE(queued, 0);
    auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    // Two companion threads send meanwhile: each gives up after the wait limit; neither is held.
    std::thread other([&] { client->sendMessage(std::string("from another thread")); });
    client->sendMessage(std::string("lost"));
    other.join();
    EXPECT_GE(ymtest::countLinesContaining(log.text(), "-[ySocketClientImpl_SDK connect]: connect error"), 1);

    // Once the meeting client accepts again, the next send goes through.
    close(ymtest::acceptOne(listening));
    close(queued);
    client->sendMessage(std::string("again"));
    int peer = ymtest::acceptOne(listening);
    EXPECT_EQ(ymtest::readText(peer, 5), "again");
    close(peer);
    close(listening);
}

TEST_F(Transport, PeerThatStopsReadingHoldsNoBroadcastForLong)
{
    auto server = listen();
    int stopped = ymtest::connectTo(path);  // never reads
    int reader = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(stopped, "{\"commandId\":0}"));
    ASSERT_TRUE(ymtest::writeText(reader, "{\"commandId\":0}"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 2; }));  // both are peers now

    // Far more than the stopped peer's socket takes, in texts large enough to be taken in part:
    // the broadcasts go on, and the peer that reads gets every one of them, in order.
    auto text = [](int i) { return "{\"commandId\":2,\"n\":" + std::to_string(i) + ",\"pad\":\"" + std::string(40000, 'p') + "\"}"; };
    std::string expected;
    for (int i = 0; i < 200; ++i)
        expected += text(i);
    std::string received;
    std::thread readAll([&] { received = ymtest::readText(reader, expected.size()); });
    for (int i = 0; i < 200; ++i)
        server->sendMessage(text(i));
    readAll.join();
    EXPECT_TRUE(received == expected) << received.size() << " of " << expected.size() << " bytes";
    // What the stopped peer has not begun to take is given up after the wait limit, also behind a
    // text it took in part.
    EXPECT_TRUE(ymtest::eventually([&] { return ymtest::countLinesContaining(log.text(), "partial write!") >= 1; }));
    close(stopped);
    close(reader);
}

class SharedState : public ::testing::Test {
protected:
    ymtest::TemporaryHome home;
    std::string suite() const { return home.path() + "/Library/Preferences/YumoClientSdk.ShareData.plist"; }
};

TEST_F(SharedState, FourCompanionsRegisterAndCleanUpAtOnce)
{
    auto runAll = [&](const char *mode) {
        std::vector<std::unique_ptr<ymtest::ChildProcess>> companions;
        for (const char *prefix : {"A", "B", "C", "D"})
            companions.push_back(std::make_unique<ymtest::ChildProcess>(ymtest::helperProgram("companion_peer"),
                                                                         std::vector<std::string>{mode, prefix, "100"}));
        // While they work, the shared list is a whole property list every time it is read.
        int reads = 0, unreadable = 0;
        std::vector<std::string> answers;
        for (auto &companion : companions) {
            for (int i = 0; i < 25; ++i, ++reads)
                if (access(suite().c_str(), F_OK) == 0 && !ymPropertyList::readFile(suite()))
                    ++unreadable;
            answers.push_back(companion->readLine().value_or("none"));
            EXPECT_EQ(companion->wait(), 0);
        }
        EXPECT_EQ(unreadable, 0) << "of " << reads << " reads";
        return answers;
    };
    EXPECT_EQ(runAll("bulk-register"), (std::vector<std::string>{"100", "100", "100", "100"}));
    std::vector<std::string> texts = ymtest::sharedDeviceTexts();
    EXPECT_EQ(texts.size(), 400u);  // no registration lost
    std::set<std::string> names;
    for (const std::string &text : texts)
        names.insert(nlohmann::json::parse(text)["deviceName"].get<std::string>());
    EXPECT_EQ(names.size(), 400u);

    runAll("bulk-cleanup");
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

TEST_F(SharedState, LogPathThatIsNotAFile)
{
    // The log file's place is taken by a folder, then by a FIFO nobody reads: neither is the log.
    const std::string logPath = home.groupContainer() + "/yumoclientsdk.log";
    std::filesystem::create_directories(logPath);
    for (int round = 0; round < 2; ++round) {
        ymtest::CapturedStderr log;
        auto facade = ymSdkImplement::create();
        EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
        EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
        // The lines stay where standard error was.
        EXPECT_NE(log.text().find(">> -[ymSdkImplement GetIMPresenceStatus] start"), std::string::npos);
        std::filesystem::remove(logPath);
        ASSERT_EQ(mkfifo(logPath.c_str(), 0600), 0);
    }
}

TEST_F(SharedState, ListsThatCannotBeReadAreNeverOverwritten)
{
    // Another companion's list, which the next companion cannot read: after a run with sudo it
    // belongs to root; as another user it is simply not ours to read.
    std::vector<std::string> others = {"{\"deviceName\":\"A\",\"deviceIndex\":\"1\"}", "{\"deviceName\":\"B\",\"deviceIndex\":\"2\"}"};
    ymtest::writeSharedDeviceTexts(others);
    const std::string stored = ymtest::readFile(suite());
    if (getuid() == 0) {
        ASSERT_EQ(chmod(suite().c_str(), 0600), 0);
        ASSERT_EQ(chmod(home.path().c_str(), 0755), 0);
        ASSERT_EQ(chmod((home.path() + "/Library/Preferences").c_str(), 0777), 0);
        ymtest::ChildProcess companion("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups", ymtest::toolProgram("ymctl"),
                                                            "register", "--name", "Headset", "--index", "1", "--vid", "1", "--pid", "1"});
        EXPECT_EQ(companion.wait(), 0);  // the registration answers YES as ever
    } else {
        ASSERT_EQ(chmod(suite().c_str(), 0), 0);
        EXPECT_TRUE(ymSdkImplement::create()->RegisterAudioDevice("Headset", "1", 1, 1));
        ASSERT_EQ(chmod(suite().c_str(), 0644), 0);
    }
    EXPECT_EQ(ymtest::readFile(suite()), stored);

    // A list that is not a property list is kept as it is too.
    ymtest::writeFile(suite(), "this is not a property list");
    auto facade = ymSdkImplement::create();
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    EXPECT_TRUE(facade->isRegisteredDevice("Headset", "1"));
    EXPECT_EQ(ymtest::readFile(suite()), "this is not a property list");
}

TEST_F(SharedState, AChangeOfADomainAnswersWhetherItWasMade)
{
    auto setKey = [](const ymValue &) { return std::optional<ymValue>(ymValue::dictionary({{"key", "value"}})); };
    auto noChange = [](const ymValue &) { return std::optional<ymValue>(); };
    const std::string path = home.path() + "/Library/Preferences/Some.Domain.plist";
    EXPECT_TRUE(ymUserDefaults::updateDomain("Some.Domain", noChange));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(ymUserDefaults::updateDomain("Some.Domain", setKey));
    EXPECT_EQ(ymUserDefaults::persistentDomain("Some.Domain")->find("key")->text(), "value");
    // Refused: a name that is no file name, a domain that is not a dictionary or is no file at
    // all, and no home.
    EXPECT_FALSE(ymUserDefaults::updateDomain("Some/Domain", setKey));
    ymtest::writeFile(path, "<plist><array/></plist>");
    EXPECT_FALSE(ymUserDefaults::updateDomain("Some.Domain", setKey));
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_FALSE(ymUserDefaults::updateDomain("Some.Domain", setKey));
    unsetenv("HOME");
    EXPECT_FALSE(ymUserDefaults::updateDomain("Other.Domain", setKey));
}

TEST_F(SharedState, FoldersAndFifosWherePropertyListsAreRead)
{
    // Each reads as "not a property list", at once: nothing throws, nothing waits for a writer.
    std::filesystem::create_directories(suite());
    ASSERT_EQ(mkfifo((home.path() + "/Library/Preferences/com.yumocorp.yumoapp.plist").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((home.path() + "/Library/Preferences/.GlobalPreferences.plist").c_str(), 0600), 0);
    std::string bundle = home.path() + "/Applications/yumoapp.app";
    std::filesystem::create_directories(bundle + "/Contents");
    ASSERT_EQ(mkfifo((bundle + "/Contents/Info.plist").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((home.path() + "/package.pkg").c_str(), 0600), 0);

    auto facade = ymSdkImplement::create();
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    EXPECT_TRUE(std::filesystem::is_directory(suite()));
    facade->CleanupAudioDevices();
    ymAppHelper &helper = *ymAppHelper::sharedInstance();
    EXPECT_EQ(helper.getYumoClientInstallPath(), bundle);
    EXPECT_STREQ(ymGetFileVersion(bundle.c_str()), "");
    EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
    EXPECT_FALSE(helper.objectForPropertyListKey(std::string("CFBundleVersion"), bundle + "/Contents/Info.plist"));
    EXPECT_FALSE(helper.checkCodeSignForYumoPkg(home.path() + "/package.pkg"));
    // The global domain being unreadable, the language comes from the locale.
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(helper.getSystemLanguage(), "de-DE");
}

TEST_F(SharedState, LeftoversOfKilledWritersAreRemovedByTheNextWrite)
{
    // A companion killed between a write and its rename leaves its temporary file behind; one is
    // put there as such a kill leaves it, in case this kill did not land there.
    {
        ymtest::ChildProcess registrar(ymtest::helperProgram("companion_peer"), {"bulk-register", "K", "100000"});
        ASSERT_TRUE(ymtest::eventually([&] { return ymtest::sharedDeviceTexts().size() >= 20; }));
    }  // killed
    const std::string preferences = home.path() + "/Library/Preferences";
    ymtest::writeFile(preferences + "/.YumoClientSdk.ShareData.plist.ym-Ab12Cd", "half a list");
    ymtest::writeFile(preferences + "/.YumoClientSdk.ShareData.plist.ym-kept", "not a leftover: another name");
    auto facade = ymSdkImplement::create();
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    std::vector<std::string> left;
    for (const auto &item : std::filesystem::directory_iterator(preferences))
        left.push_back(item.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{".YumoClientSdk.ShareData.plist.ym-kept", "YumoClientSdk.ShareData.plist",
                                              "YumoClientSdk.ShareData.plist.lock"}));
}

TEST_F(SharedState, GroupContainerPathTooLongForASocket)
{
    // A home deep enough that the socket paths pass 103 characters.
    std::string deep = home.path() + "/" + std::string(60, 'd');
    std::filesystem::create_directories(deep);
    setenv("HOME", deep.c_str(), 1);
    ASSERT_GE(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient()->size(), 104u);

    // A 5.6 client would be reached by socket: nothing can connect, the command still goes out
    // (and is lost), and the companion carries on.
    ymtest::CapturedStderr log;
    ymtest::RunningClient client = ymtest::RunningClient::silent("5.6.0");
    EXPECT_EQ(ymSdkImplement::create()->GetIMPresenceStatus(), 0);
    EXPECT_NE(ymtest::sdkLog().find("too long"), std::string::npos);
}

TEST_F(SharedState, HostProcessThatRestartsIsHeardByACompanionThatOnlyListens)
{
    // The companion starts before its host process: its first attempt finds nobody.
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    facade->addToDeviceArray("Headset", "1");
    const std::string event = R"({"commandId":2,"from":2,"version":"1.0.0","data":[{"AudioCmd":5}],"deviceIndex":"1","deviceName":"Headset"})";
    for (int start = 1; start <= 3; ++start) {
        // The host process starts (again): the companion connects by itself, without sending.
        int listening = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
        int host = ymtest::acceptOne(listening);
        for (int i = 0; i < 20; ++i)
            ASSERT_TRUE(ymtest::writeText(host, event));
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->audio.size() == 20u * start; }));
        // It crashes: its socket file stays behind, until the next start replaces it.
        close(host);
        close(listening);
    }
}

TEST_F(SharedState, PresenceAskedFromManyThreadsIsAnsweredEveryTime)
{
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
        });
    for (std::thread &thread : threads)
        thread.join();
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() >= 400; }));
    EXPECT_EQ(delegate->presence.size(), 400u);
}

TEST_F(SharedState, ReleasedFacadesLeaveNothingBehindHereOrInTheClient)
{
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    const std::string simulator = "/proc/" + std::to_string(client.process().pid());
    auto entries = [](const std::string &folder) { return std::distance(std::filesystem::directory_iterator(folder), {}); };
    // The simulator's descriptors while it serves nobody yet: it closes a companion's connection only
    // once it has read its end, which may come after the companion has let go of everything.
    const long clientDescriptors = entries(simulator + "/fd");
    long threads = 0, descriptors = 0, clientThreads = 0;
    for (int i = -1; i < 50; ++i) {
        // What is made once, at its first use, is made by a first round trip (round -1): the
        // notification centre's connection, the loops' descriptors, the process table's. The I/O
        // thread ends with its sockets; the client's threads are those it has once it served one.
        if (i == 0) {
            ASSERT_TRUE(ymtest::eventually([] { return !ymtest::ioThreadRuns(); }));
            threads = ymtest::threadCount();
            descriptors = ymtest::openDescriptors();
            clientThreads = entries(simulator + "/task");
        }
        auto delegate = std::make_shared<ymtest::RecordingDelegate>();
        auto facade = ymSdkImplement::create();
        facade->setDelegate(delegate);
        ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
        // Every other one is released with its answer under way: it reaches nobody. (The simulator
        // answers every companion connected: an earlier facade's answer may come too.)
        if (i % 2 != 1) {
            ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !delegate->presence.empty(); }));
        }
    }
    ymtest::runMainLoopUntil([] { return true; });
    EXPECT_TRUE(ymtest::eventually([&] { return ymtest::threadCount() == threads && ymtest::openDescriptors() == descriptors; }))
        << ymtest::threadCount() << " threads, " << ymtest::openDescriptors() << " descriptors; before " << threads << ", " << descriptors;
    EXPECT_TRUE(ymtest::eventually([&] { return entries(simulator + "/fd") == clientDescriptors; }))
        << entries(simulator + "/fd") << " descriptors in the client, " << clientDescriptors << " before";
    EXPECT_EQ(entries(simulator + "/task"), clientThreads);
}

TEST_F(SharedState, StoppedHostProcessHoldsNoCommandForLong)
{
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 1; }));

    // The meeting client and its host process stop (a debugger, SIGSTOP): far more audio commands
    // than their socket takes still each answer.
    ASSERT_EQ(kill(client.process().pid(), SIGSTOP), 0);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"1", "Headset", 2830, 3}), 0) << i;
    // They go on, and so does the companion.
    ASSERT_EQ(kill(client.process().pid(), SIGCONT), 0);
    ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 2; }));
}

TEST_F(SharedState, LosingTheSessionBusStopsOnlyTheNotificationTransport)
{
    // A session bus of the test's own, at an address that stays the same when it is started again.
    const std::string address = "unix:path=" + home.path() + "/bus";
    auto startBus = [&] {
        auto daemon = std::make_unique<ymtest::ChildProcess>(
            "/usr/bin/dbus-daemon", std::vector<std::string>{"--session", "--nofork", "--address=" + address, "--print-address=1"});
        daemon->readLine();  // printed once it listens
        return daemon;
    };
    auto bus = startBus();
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);  // for this process and its children
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0");
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    ASSERT_TRUE(center.isConnected());

    bus.reset();  // killed
    // The companion goes on: its loop runs, and the meeting client answers over the socket.
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !center.isConnected(); }));
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 1; }));
    // A 5.5 client is reached by notification: sent into nothing, and the command still answers.
    ymtest::writeFile(home.path() + "/Applications/yumoapp.app/Contents/Info.plist",
                      R"(<plist><dict><key>CFBundleIdentifier</key><string>com.yumocorp.yumoapp</string>)"
                      R"(<key>CFBundleExecutable</key><string>yumoapp</string><key>CFBundleVersion</key><string>5.5.0</string></dict></plist>)");
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);

    // The bus comes back, and the notification transport with it (the simulator's too: it is asked
    // until it has subscribed again).
    bus = startBus();
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return center.isConnected(); }));
    ASSERT_TRUE(ymtest::eventually([&] {
        EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
        return ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 2; }, std::chrono::milliseconds(100));
    }));
    EXPECT_EQ(delegate->presence[1].code, 1);
}

}  // namespace
