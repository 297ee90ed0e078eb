// docs/PROTOCOL.md against the SDK: every example the document gives of a text the SDK sends is
// what it sends, byte for byte, and every example of a text it reads is read as the document says,
// over real sockets from a peer that plays the meeting client and its host process.
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sdbus-c++/sdbus-c++.h>
#include <regex>
#include <unistd.h>

#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

struct Example {
    std::string what;  // the words of the marker: "sends presence request", "reads audio event 7 ..."
    std::string text;  // the JSON text of the block after it
};

std::vector<Example> examplesOfTheProtocol()
{
    const std::string text = ymtest::readFile(YMSDK_SOURCE_DIR "/docs/PROTOCOL.md");
    static const std::regex marked("<!-- protocol-example: ([^>]*) -->\n```json\n([^\n]*)\n```");
    std::vector<Example> examples;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), marked); it != std::sregex_iterator(); ++it)
        examples.push_back({(*it)[1], (*it)[2]});
    return examples;
}

class Protocol : public ymtest::SessionTest {};

TEST_F(Protocol, EveryExampleOfTheDocumentIsWhatTheSdkSendsAndReads)
{
    std::vector<Example> examples = examplesOfTheProtocol();
    ASSERT_GE(examples.size(), 16u);
    int clientSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    int hostSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    ymtest::RunningClient client = ymtest::RunningClient::silent("5.6.0");
    auto delegate = std::make_shared<ymtest::RecordingDelegate>();
    auto facade = ymSdkImplement::create();
    facade->setDelegate(delegate);
    // The companion connects to both sockets by itself.
    int clientChannel = ymtest::acceptOne(clientSocket);
    int hostChannel = ymtest::acceptOne(hostSocket);
    ASSERT_GE(clientChannel, 0);
    ASSERT_GE(hostChannel, 0);

    const std::regex audioCommand(R"re(sends audio command (-?\d+) index "([^"]*)" name "([^"]*)" vid (\d+) pid (\d+))re");
    const std::regex presenceAnswer(R"re(reads presence answer error (YES|NO) code (-?\d+) text ("[^"]*"|\(none\)) status (-?\d+))re");
    const std::regex audioEvent(R"re(reads audio event (-?\d+) index "([^"]*)" name "([^"]*)")re");
    for (const Example &example : examples) {
        SCOPED_TRACE(example.what);
        std::smatch words;
        if (example.what == "sends presence request") {
            ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
            EXPECT_EQ(ymtest::readText(clientChannel, example.text.size()), example.text);
        } else if (std::regex_match(example.what, words, audioCommand)) {
            YMAudioDevice_s device{words[2].str(), words[3].str(), static_cast<uint32_t>(std::stoul(words[4])),
                                   static_cast<uint32_t>(std::stoul(words[5]))};
            ASSERT_EQ(facade->SetAudioCmd(std::stoi(words[1]), device), 0);
            EXPECT_EQ(ymtest::readText(hostChannel, example.text.size()), example.text);
        } else if (std::regex_match(example.what, words, presenceAnswer)) {
            size_t before = delegate->presence.size();
            ASSERT_TRUE(ymtest::writeText(clientChannel, example.text));
            ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == before + 1; }));
            std::string text = words[3] == "(none)" ? "(nil)" : words[3].str().substr(1, words[3].length() - 2);
            EXPECT_EQ(ymtest::fieldsOf(delegate->presence.back()),
                      "error=" + std::string(words[1] == "YES" ? "1" : "0") + " code=" + words[2].str() + " text=" + text +
                          " presence=" + words[4].str() + " reserved=0");
        } else if (std::regex_match(example.what, words, audioEvent)) {
            ASSERT_TRUE(facade->RegisterAudioDevice(words[3].str(), words[2].str(), 1, 1));
            size_t before = delegate->audio.size();
            ASSERT_TRUE(ymtest::writeText(hostChannel, example.text));
            ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->audio.size() == before + 1; }));
            const YMAudioInfo_s &info = delegate->audio.back();
            EXPECT_EQ(info.audioCmd, std::stoi(words[1]));
            EXPECT_EQ(info.audioDevice.deviceIndex, words[2].str());
            EXPECT_EQ(info.audioDevice.deviceName, words[3].str());
        } else if (example.what == "reads nothing") {
            // Neither delegate call comes: the next one is for the text sent after it.
            ASSERT_TRUE(facade->RegisterAudioDevice(std::string("Headset"), std::string("1"), 1, 1));
            size_t presence = delegate->presence.size(), audio = delegate->audio.size();
            const std::string after = R"({"commandId":2,"data":[{"AudioCmd":-1}],"deviceIndex":"1","deviceName":"Headset"})";
            ASSERT_TRUE(ymtest::writeText(hostChannel, example.text + after));
            ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->audio.size() == audio + 1; }));
            EXPECT_EQ(delegate->audio.back().audioCmd, -1);
            EXPECT_EQ(delegate->presence.size(), presence);
        } else {
            ADD_FAILURE() << "an example the test cannot read: " << example.what;
        }
    }
    for (int fd : {clientChannel, hostChannel, clientSocket, hostSocket})
        close(fd);
}

TEST_F(Protocol, TheDBusFormIsWhatTheDocumentSays)
{
    // A peer that knows only the document: its match rule, object path and signature.
    std::unique_ptr<sdbus::IConnection> bus = sdbus::createSessionBusConnection();
    std::mutex lock;
    std::vector<std::pair<std::string, std::string>> heard;  // object path, content
    auto slot = bus->addMatch("type='signal',interface='com.yumocorp.DistributedNotification',member='Notification',"
                              "arg0='YumoLauncher3rdSdkToYyhost'",
                              [&](sdbus::Message &message) {
                                  std::string name;
                                  std::map<std::string, sdbus::Variant> userInfo;
                                  message >> name >> userInfo;
                                  std::lock_guard<std::mutex> guard(lock);
                                  heard.emplace_back(message.getPath(), userInfo.at("content").get<std::string>());
                              });
    bus->enterEventLoopAsync();
    const std::string text = R"({"commandId":2,"data":[{"AudioCmd":5}],"deviceName":"Headset"})";
    ymIPCMsgMgr::create()->sendIPCMessageToYyhost(text);
    EXPECT_TRUE(ymtest::eventually([&] {
        std::lock_guard<std::mutex> guard(lock);
        return !heard.empty();
    }));
    bus->leaveEventLoop();
    std::lock_guard<std::mutex> guard(lock);
    EXPECT_EQ(heard, (std::vector<std::pair<std::string, std::string>>{{"/com/yumocorp/DistributedNotificationCenter", text}}));
}

}  // namespace
