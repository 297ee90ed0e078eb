// Faults and load with real processes: peers that break off, go away or flood, many peers at
// once, companions racing on the shared list, and a file system that does not cooperate. Each
// test checks that the companion lives on and that nothing it was given is lost beyond what the
// transport allows (a text cut off by a peer that closes, a write to a server that went away).
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <filesystem>
#include <set>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymNotificationCenter.h"
#include "platform/ymPropertyList.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::MessageCollector;

bool isSocket(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

// A socket path in a folder of the test's own, the log captured, and (when asked) a server
// channel listening there that collects what it is sent.
class Transport : public ::testing::Test {
protected:
    std::shared_ptr<YMSocketIPCChannel_SDK> listen()
    {
        auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
        server->setDelegate(&collector);
        EXPECT_TRUE(ymtest::eventually([&] { return isSocket(path); }));
        return server;
    }
    ymtest::TemporaryDirectory folder;
    ymtest::CapturedStderr log;
    const std::string path = folder.path() + "/s.test";
    MessageCollector collector;
};

TEST_F(Transport, PeerThatClosesInTheMiddleOfAMessage)
{
    auto server = listen();

    int quitter = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(quitter, R"({"commandId":1,"data":[{"Presence)"));
    close(quitter);  // the half message is all there will be of it
    int steady = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(steady, R"({"commandId":2,"whole":true})"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !collector.messages.empty(); }));
    EXPECT_EQ(collector.messages, (std::vector<std::string>{R"({"commandId":2,"whole":true})"}));
    ASSERT_TRUE(ymtest::eventually([&] { return log.text().find("finished!") != std::string::npos; }));

    // The server goes on serving the peer that stayed.
    server->sendMessage(std::string("{\"commandId\":3}"));
    EXPECT_EQ(ymtest::readText(steady, 15), "{\"commandId\":3}");
    close(steady);
}

TEST_F(Transport, ServerThatGoesAwayAndComesBack)
{
    MessageCollector &fromServer = collector;
    auto client = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    client->setDelegate(&fromServer);

    int listening = ymtest::listenOn(path);
    client->sendMessage(std::string("first"));
    int peer = ymtest::acceptOne(listening);
    EXPECT_EQ(ymtest::readText(peer, 5), "first");
    // The server goes away: its connection and its socket.
    close(peer);
    close(listening);
    unlink(path.c_str());
    ASSERT_TRUE(ymtest::eventually([&] { return log.text().find("connect finished") != std::string::npos; }));
    client->sendMessage(std::string("lost"));  // nobody listens: refused, and the client lives on

    // It comes back: the next send reconnects.
    listening = ymtest::listenOn(path);
    client->sendMessage(std::string("again"));
    peer = ymtest::acceptOne(listening);
    EXPECT_EQ(ymtest::readText(peer, 5), "again");
    ASSERT_TRUE(ymtest::writeText(peer, "{\"commandId\":1}"));
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return fromServer.messages.size() == 1; }));
    // From the moment the client saw the server go: each send found no connection, said so and made
    // one attempt; the first found nobody, the second connected.
    auto sinceServerWent = [&] {
        std::string text = log.text();
        return text.substr(text.find("connect finished"));
    };
    ASSERT_TRUE(ymtest::eventually([&] { return ymtest::countLinesContaining(sinceServerWent(), "success...") == 1; }));
    std::string text = sinceServerWent();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketClientImpl_SDK send:]: socket connect -1 is not ready, need connect it again!"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[ySocketClientImpl_SDK connect]: connect error"), 1);
    close(peer);
    close(listening);
}

TEST_F(Transport, PeerThatFloodsTenMegabytesWithoutABoundary)
{
    auto server = listen();
    const std::string flood(10 * 1024 * 1024, 'x');
    int flooder = ymtest::connectTo(path);
    std::thread writer([&] {
        ymtest::writeText(flooder, flood);
        ymtest::writeText(flooder, "{\"commandId\":9}");
    });
    // Another peer is served meanwhile.
    int other = ymtest::connectTo(path);
    ASSERT_TRUE(ymtest::writeText(other, "{\"commandId\":1}"));
    // Nothing of the flood is lost: it ends up as one text with the message that closed it.
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 2; }, std::chrono::seconds(120)));
    writer.join();
    std::string longest = collector.messages[0].size() > collector.messages[1].size() ? collector.messages[0] : collector.messages[1];
    EXPECT_EQ(longest.size(), flood.size() + 15);
    EXPECT_EQ(longest.substr(flood.size()), "{\"commandId\":9}");
    // Each read logs at most 64 KiB of what was gathered, not all of it again.
    EXPECT_LT(log.text().size(), 200u * 1024 * 1024);
    close(flooder);
    close(other);
}

TEST_F(Transport, TwoHundredPeersReceiveOneBroadcast)
{
    auto server = listen();
    server->sendMessage(std::string("{\"commandId\":0}"));  // nobody to send to yet
    EXPECT_NE(log.text().find("-[ySocketServerImpl_SDK send:]: fd is "), std::string::npos);
    std::vector<int> peers;
    for (int i = 0; i < 200; ++i) {
        int fd = ymtest::connectTo(path);
        ASSERT_GE(fd, 0) << i;
        ASSERT_TRUE(ymtest::writeText(fd, "{\"commandId\":0,\"peer\":" + std::to_string(i) + "}"));
        peers.push_back(fd);
    }
    // Once every peer's message is in, every peer is among the server's connections.
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return collector.messages.size() == 200; }, std::chrono::seconds(60)));
    const std::string broadcast = "{\"commandId\":2,\"to\":\"all\"}";
    server->sendMessage(broadcast);
    for (int fd : peers) {
        EXPECT_EQ(ymtest::readText(fd, broadcast.size()), broadcast);
        close(fd);
    }
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), "send success..."), 200);
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

TEST_F(SharedState, LogFolderThatCannotBeWritten)
{
    // The log file's place is taken by a folder: the log cannot be opened there.
    std::filesystem::create_directories(home.groupContainer() + "/yumoclientsdk.log");
    ymtest::CapturedStderr log;
    auto facade = ymSdkImplement::create();
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
    // The lines stay where standard error was.
    EXPECT_NE(log.text().find(">> -[ymSdkImplement GetIMPresenceStatus] start"), std::string::npos);
}

TEST_F(SharedState, DefaultsFilesThatAreNotPropertyLists)
{
    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymtest::writeFile(suite(), "this is not a property list");
    ymtest::writeFile(home.path() + "/Library/Preferences/com.yumocorp.yumoapp.plist", "<plist><dict><key>installPath</key>");
    ymtest::writeFile(home.path() + "/Library/Preferences/.GlobalPreferences.plist", std::string("bplist00\0\0\0", 11));
    auto facade = ymSdkImplement::create();
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 1u);  // a new, whole list replaces the unreadable one
    EXPECT_EQ(ymAppHelper::sharedInstance()->getYumoClientInstallPath(), home.path() + "/Applications/yumoapp.app");
    EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
}

TEST_F(SharedState, GroupContainerPathTooLongForASocket)
{
    if (!ymNotificationCenter::defaultCenter().isConnected())
        GTEST_SKIP() << "no session bus";
    // A home deep enough that the socket paths pass 103 characters.
    std::string deep = home.path() + "/" + std::string(60, 'd');
    std::filesystem::create_directories(deep);
    setenv("HOME", deep.c_str(), 1);
    ASSERT_GE(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient()->size(), 104u);

    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    {
        // A 5.6 client would be reached by socket: nothing can connect, the command still goes
        // out (and is lost), and the companion carries on.
        ymtest::CapturedStderr log;
        ymtest::RunningClient client = ymtest::RunningClient::silent("5.6.0");
        auto facade = ymSdkImplement::create();
        EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
        EXPECT_NE(ymtest::sdkLog().find("too long"), std::string::npos);
    }
    // An older client is reached by notification, which needs no socket.
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.5.0");
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 1; }));
    EXPECT_EQ(delegate->presence[0].code, 1);
}

}  // namespace
