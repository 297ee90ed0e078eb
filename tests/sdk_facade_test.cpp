// The facade end to end: a companion (this process) and a meeting client (the simulator, or a
// plain socket peer where the exact bytes matter) under a private $HOME and session bus.
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/ymNotificationCenter.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::RecordingDelegate;
using ymtest::RunningClient;

const std::string kPresenceRequest = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";
const std::string kAudioCommand = R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":5}],)"
                                  R"("deviceIndex":"2","deviceName":"Headset","usbVid":"2830","usbPid":"3"})";

class SdkFacade : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }
    std::shared_ptr<ymSdkImplement> makeFacade()
    {
        auto facade = ymSdkImplement::create();
        facade->setDelegate(delegate);
        return facade;
    }
    ymtest::TemporaryHome home;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(SdkFacade, FeaturesAreAcceptedWhenTheyShareABit)
{
    auto facade = makeFacade();
    EXPECT_EQ(facade->GetSDKAvailableFeatures(), 3);
    EXPECT_EQ(facade->features(), 0);
    for (int64_t accepted : {1, 2, 3, 5, 7}) {
        EXPECT_TRUE(facade->RegisterFeature(accepted)) << accepted;
        EXPECT_EQ(facade->features(), accepted);  // stored as given, not narrowed
    }
    for (int64_t refused : {0, 4, 8}) {
        EXPECT_FALSE(facade->RegisterFeature(refused)) << refused;
        EXPECT_EQ(facade->features(), 7);
    }
}

TEST_F(SdkFacade, NothingIsSentWhileTheClientIsNotRunning)
{
    int clientSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    int hostSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    std::vector<std::string> posted;
    for (const char *name : {"YumoLauncher3rdSdkToYumoVideoClient", "YumoLauncher3rdSdkToYyhost"})
        ymNotificationCenter::defaultCenter().addObserver(name, [&](const std::string &n, const auto &) { posted.push_back(n); });
    auto facade = makeFacade();
    YMAudioDevice_s headset{"2", "Headset", 2830, 3};

    // Not installed: "not running" all the same.
    EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
    EXPECT_EQ(facade->SetAudioCmd(5, headset), 5);
    EXPECT_EQ(ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr(), "0:Error YumoClientNotRunning");
    // Installed, not running.
    ymtest::makeAppBundle(home.path() + "/Applications", "yumoapp.app", "com.yumocorp.yumoapp", "5.6.0");
    EXPECT_EQ(facade->GetIMPresenceStatus(), 5);
    EXPECT_EQ(facade->SetAudioCmd(5, headset), 5);

    // The facade's channels are connected, and yet nothing came on them, nor on the bus.
    int client = ymtest::acceptOne(clientSocket);
    int host = ymtest::acceptOne(hostSocket);
    ymNotificationCenter::defaultCenter().post("YumoLauncher3rdSdkToYyhost", ymNotificationCenter::UserInfo{{"content", "marker"}});
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !posted.empty(); }));
    EXPECT_EQ(posted, (std::vector<std::string>{"YumoLauncher3rdSdkToYyhost"}));  // only the marker
    close(client);
    close(host);
    close(clientSocket);
    close(hostSocket);
    std::string log = ymtest::sdkLog();
    EXPECT_EQ(ymtest::countLinesContaining(log, ">> -[ymSdkImplement GetIMPresenceStatus] start"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(log, ">> -[ymSdkImplement SetAudioCmd:audioDevice:]: cmd = 5"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(log, "ySocketClientImpl_SDK send:"), 0);
}

TEST_F(SdkFacade, SocketTransportCarriesTheExactTexts)
{
    int clientSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    int hostSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    RunningClient client = RunningClient::silent("5.6.0");
    auto facade = makeFacade();
    int fromClientChannel = ymtest::acceptOne(clientSocket);
    int fromHostChannel = ymtest::acceptOne(hostSocket);

    // Presence to the meeting client, audio to the host process.
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_EQ(ymtest::readText(fromClientChannel, kPresenceRequest.size()), kPresenceRequest);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
    EXPECT_EQ(ymtest::readText(fromHostChannel, kAudioCommand.size()), kAudioCommand);

    // Device texts go in as they are; identifiers print signed.
    std::string odd = R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":-1}],)"
                      R"x("deviceIndex":"(null)","deviceName":"Big "Box"","usbVid":"-1","usbPid":"0"})x";
    EXPECT_EQ(facade->SetAudioCmd(-1, YMAudioDevice_s{std::nullopt, "Big \"Box\"", 4294967295u, 0}), 0);
    EXPECT_EQ(ymtest::readText(fromHostChannel, odd.size()), odd);

    // With no channel to the host process there is nothing to send with.
    facade->setSocketIPCChannelToYyhost(nullptr);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 8);
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_EQ(ymtest::readText(fromClientChannel, kPresenceRequest.size()), kPresenceRequest);
    close(fromClientChannel);
    close(fromHostChannel);
    close(clientSocket);
    close(hostSocket);
}

TEST_F(SdkFacade, NotificationTransportCarriesTheExactTextsForOlderClients)
{
    std::vector<std::pair<std::string, ymNotificationCenter::UserInfo>> posted;
    for (const char *name : {"YumoLauncher3rdSdkToYumoVideoClient", "YumoLauncher3rdSdkToYyhost"})
        ymNotificationCenter::defaultCenter().addObserver(
            name, [&](const std::string &n, const ymNotificationCenter::UserInfo &info) { posted.emplace_back(n, info); });
    RunningClient client = RunningClient::silent("5.5.9");
    auto facade = makeFacade();

    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return posted.size() == 2; }));
    EXPECT_EQ(posted[0].first, "YumoLauncher3rdSdkToYumoVideoClient");
    EXPECT_EQ(posted[0].second, (ymNotificationCenter::UserInfo{{"content", kPresenceRequest}}));
    EXPECT_EQ(posted[1].first, "YumoLauncher3rdSdkToYyhost");
    EXPECT_EQ(posted[1].second, (ymNotificationCenter::UserInfo{{"content", kAudioCommand}}));

    facade->setIpcMsgMgr(nullptr);
    EXPECT_EQ(facade->GetIMPresenceStatus(), 8);
}

TEST_F(SdkFacade, PresenceAnswersReachTheDelegateOnTheLoopThread)
{
    {
        RunningClient client = RunningClient::simulator("5.6.0", {"--result", "0:Error Busy", "--presence", "7"});
        auto facade = makeFacade();
        ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 1; }));
        YMPresenceStatus_s status = delegate->presence[0];
        EXPECT_EQ(status.error, YES);
        EXPECT_EQ(status.code, 0);
        EXPECT_EQ(status.text, "Error Busy");
        EXPECT_EQ(status.presenceStatus, 7);
        EXPECT_EQ(status.reserved, 0);
        EXPECT_EQ(client.process().readLine(), "received socket client: " + kPresenceRequest);
    }
    {
        // The same over notifications, with a client older than 5.6.
        RunningClient client = RunningClient::simulator("5.5", {"--result", "1:OK", "--presence", "3"});
        auto facade = makeFacade();
        ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() >= 2; }));
        YMPresenceStatus_s status = delegate->presence.back();
        EXPECT_EQ(status.error, NO);
        EXPECT_EQ(status.code, 1);
        EXPECT_EQ(status.text, "OK");
        EXPECT_EQ(status.presenceStatus, 3);
        EXPECT_EQ(client.process().readLine(), "received notification client: " + kPresenceRequest);
    }
    for (std::thread::id id : delegate->threads)
        EXPECT_EQ(id, std::this_thread::get_id());
}

TEST_F(SdkFacade, AudioEventsOnlyForDevicesRegisteredHere)
{
    RunningClient client = RunningClient::simulator("6.1");
    auto facade = makeFacade();
    ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "2", 2830, 3));

    // The Speaker is not registered here: its event comes back and is dropped. (The second
    // command waits for that: two events read at once would be one text that is no message.)
    EXPECT_EQ(facade->SetAudioCmd(9, YMAudioDevice_s{"7", "Speaker", 1, 1}), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return ymtest::sdkLog().find("result=0, deviceName=Speaker") != std::string::npos; }));
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !delegate->audio.empty(); }));
    ASSERT_EQ(delegate->audio.size(), 1u);
    YMAudioInfo_s info = delegate->audio[0];
    EXPECT_EQ(info.audioCmd, 5);
    EXPECT_EQ(info.audioDevice.deviceName, "Headset");
    EXPECT_EQ(info.audioDevice.deviceIndex, "2");
    EXPECT_EQ(info.audioDevice.usbVid, 0u);
    EXPECT_EQ(info.audioDevice.usbPid, 0u);
    EXPECT_EQ(info.reserved0, 0u);
    EXPECT_EQ(std::count(std::begin(info.reserved1), std::end(info.reserved1), 0), 12);
    EXPECT_NE(ymtest::sdkLog().find("-[ymSdkImplement isRegisteredDevice:deviceIndex:]: result=0, deviceName=Speaker, deviceIndex=7"),
              std::string::npos);
    EXPECT_NE(ymtest::sdkLog().find("-[ymSdkImplement isRegisteredDevice:deviceIndex:]: result=1, deviceName=Headset, deviceIndex=2"),
              std::string::npos);
}

TEST_F(SdkFacade, InboundTextsThatAreNotMessages)
{
    auto facade = makeFacade();
    EXPECT_EQ(facade->onMessageRecieved(std::nullopt), -1);
    EXPECT_EQ(facade->onMessageRecieved(std::string("not json")), -1);
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":3})")), 0);
    EXPECT_EQ(facade->onMessageRecieved(std::string("[1,2]")), 0);
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":1,"data":"x","result":7})")), 0);
    ASSERT_EQ(delegate->presence.size(), 1u);  // a presence answer with nothing readable in it
    EXPECT_EQ(delegate->presence[0].error, NO);
    EXPECT_FALSE(delegate->presence[0].text.has_value());
    EXPECT_TRUE(delegate->audio.empty());

    // A command-2 message without an index matches a device registered with index "0".
    facade->addToDeviceArray("Dock", "0");
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":2,"data":[{"AudioCmd":4}],"deviceName":"Dock"})")), 0);
    ASSERT_EQ(delegate->audio.size(), 1u);
    EXPECT_EQ(delegate->audio[0].audioDevice.deviceIndex, "0");

    // Without a delegate nothing is called, and the answer is still 0.
    facade->setDelegate(std::weak_ptr<ymSdkDelegate>());
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":2,"data":[{"AudioCmd":4}],"deviceName":"Dock"})")), 0);
    EXPECT_EQ(delegate->audio.size(), 1u);
    EXPECT_NE(ymtest::sdkLog().find("-[ymSdkImplement onMessageRecieved:]: message=(null)"), std::string::npos);
}

}  // namespace
