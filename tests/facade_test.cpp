// The facade end to end: a companion (this process) and a meeting client (the simulator, or a
// plain socket peer where the exact bytes matter) under a private $HOME and session bus; and the
// audio-device registry, this process's list and the list shared by every companion, with real
// companion processes and the release commands seen on the host process's socket.
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include "platform/ymPropertyList.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::RunningClient;

const std::string kPresenceRequest = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";
const std::string kAudioCommand = R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":5}],)"
                                  R"("deviceIndex":"2","deviceName":"Headset","usbVid":"2830","usbPid":"3"})";

class SdkFacade : public ymtest::SessionTest {
protected:
    std::shared_ptr<ymSdkImplement> makeFacade()
    {
        auto facade = ymSdkImplement::create();
        facade->setDelegate(delegate);
        return facade;
    }
    std::shared_ptr<ymtest::RecordingDelegate> delegate = std::make_shared<ymtest::RecordingDelegate>();
};

TEST_F(SdkFacade, NothingIsSentWhileTheClientIsNotRunning)
{
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
    // Each command is logged; nothing went out on a socket (every write is logged) nor on the bus.
    std::string log = ymtest::sdkLog();
    EXPECT_EQ(ymtest::countLinesContaining(log, ">> -[ymSdkImplement GetIMPresenceStatus] start"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(log, ">> -[ymSdkImplement SetAudioCmd:audioDevice:]: cmd = 5"), 2);
    EXPECT_EQ(ymtest::countLinesContaining(log, "ySocketClientImpl_SDK send:"), 0);
    EXPECT_EQ(ymtest::countLinesContaining(log, "<< -[ymIPCMsgMgr sendIPCMessageTo"), 0);
}

TEST_F(SdkFacade, SocketTransportCarriesTheExactTexts)
{
    int clientSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    int hostSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    // A look-up made before the client is installed (as its own copy) is not what a command sees.
    ymAppHelper::sharedInstance()->getYumoClientInstallPath();
    RunningClient client = RunningClient::silent("5.6.0", home.path() + "/Library/Application Support/yumoapp");
    auto facade = makeFacade();
    int fromClientChannel = ymtest::acceptOne(clientSocket);
    int fromHostChannel = ymtest::acceptOne(hostSocket);

    // Presence to the meeting client, audio to the host process.
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_EQ(ymtest::readText(fromClientChannel, kPresenceRequest.size()), kPresenceRequest);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
    EXPECT_EQ(ymtest::readText(fromHostChannel, kAudioCommand.size()), kAudioCommand);

    // With no channel to the host process there is nothing to send with.
    facade->setSocketIPCChannelToYyhost(nullptr);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 8);
    EXPECT_EQ(facade->GetIMPresenceStatus(), 0);
    EXPECT_EQ(ymtest::readText(fromClientChannel, kPresenceRequest.size()), kPresenceRequest);
    for (int fd : {fromClientChannel, fromHostChannel, clientSocket, hostSocket})
        close(fd);
}

TEST_F(SdkFacade, PresenceAnswersReachTheDelegateOnTheLoopThread)
{
    {
        RunningClient client = RunningClient::simulator("5.6.0", {"--result", "0:Error Busy", "--presence", "7"});
        auto facade = makeFacade();
        ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 1; }));
        EXPECT_EQ(ymtest::fieldsOf(delegate->presence[0]), "error=1 code=0 text=Error Busy presence=7 reserved=0");
        EXPECT_EQ(client.process().readLine(), "received socket client: " + kPresenceRequest);
    }
    {
        // A client older than 5.6 is reached by notification, presence under the client's name and
        // audio under the host's.
        RunningClient client = RunningClient::simulator("5.5.0", {"--presence", "3"});
        auto facade = makeFacade();
        ASSERT_EQ(facade->GetIMPresenceStatus(), 0);
        EXPECT_EQ(client.process().readLine(), "received notification client: " + kPresenceRequest);
        ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->presence.size() == 2; }));
        EXPECT_EQ(delegate->presence[1].presenceStatus, 3);
        ASSERT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
        EXPECT_EQ(client.process().readLine(), "received notification host: " + kAudioCommand);
    }
    {
        // Without a message manager there is nothing to post with.
        RunningClient client = RunningClient::silent("5.5.9");
        auto facade = makeFacade();
        facade->setIpcMsgMgr(nullptr);
        EXPECT_EQ(facade->GetIMPresenceStatus(), 8);
    }
    for (std::thread::id id : delegate->threads)
        EXPECT_EQ(id, std::this_thread::get_id());
}

TEST_F(SdkFacade, AudioEventsOnlyForDevicesRegisteredHere)
{
    RunningClient client = RunningClient::simulator("6.1");
    auto facade = makeFacade();
    ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "2", 2830, 3));
    ASSERT_TRUE(facade->RegisterAudioDevice("H", "9", 1, 1));

    // The Speaker is not registered here, nor the device whose name holds quotes (a name that
    // looked like H #9 when names went out unescaped): their events come back and are dropped.
    // The commands go out back to back; their events arrive one by one.
    const std::string oddName = "H\",\"deviceIndex\":\"9";
    EXPECT_EQ(facade->SetAudioCmd(9, YMAudioDevice_s{"7", "Speaker", 1, 1}), 0);
    EXPECT_EQ(facade->SetAudioCmd(4, YMAudioDevice_s{"1", oddName, 1, 1}), 0);
    EXPECT_EQ(facade->SetAudioCmd(5, YMAudioDevice_s{"2", "Headset", 2830, 3}), 0);
    const std::string isRegistered = "-[ymSdkImplement isRegisteredDevice:deviceIndex:]: result=";
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return !delegate->audio.empty(); }));
    ASSERT_EQ(delegate->audio.size(), 1u);
    EXPECT_EQ(ymtest::fieldsOf(delegate->audio[0]), "cmd=5 index=2 name=Headset vid=0 pid=0 reserved=0000000000000");
    std::string log = ymtest::sdkLog();
    EXPECT_NE(log.find(isRegistered + "0, deviceName=Speaker, deviceIndex=7"), std::string::npos);
    EXPECT_NE(log.find(isRegistered + "0, deviceName=" + oddName + ", deviceIndex=1"), std::string::npos);
    EXPECT_NE(log.find(isRegistered + "1, deviceName=Headset, deviceIndex=2"), std::string::npos);

    // Registered under that name, its events come.
    ASSERT_TRUE(facade->RegisterAudioDevice(oddName, "1", 1, 1));
    EXPECT_EQ(facade->SetAudioCmd(4, YMAudioDevice_s{"1", oddName, 1, 1}), 0);
    ASSERT_TRUE(ymtest::runMainLoopUntil([&] { return delegate->audio.size() == 2; }));
    EXPECT_EQ(delegate->audio[1].audioDevice.deviceName, oddName);
}

TEST_F(SdkFacade, InboundTextsThatAreNotMessagesAndFeatures)
{
    auto facade = makeFacade();
    const std::pair<std::optional<std::string>, int32_t> answers[] = {
        {std::nullopt, -1}, {"not json", -1}, {R"({"commandId":3})", 0}, {"[1,2]", 0}, {R"({"commandId":1,"data":"x","result":7})", 0}};
    for (const auto &[text, answer] : answers)
        EXPECT_EQ(facade->onMessageRecieved(text), answer) << text.value_or("(nil)");
    ASSERT_EQ(delegate->presence.size(), 1u);  // a presence answer with nothing readable in it
    EXPECT_EQ(ymtest::fieldsOf(delegate->presence[0]), "error=0 code=0 text=(nil) presence=0 reserved=0");
    EXPECT_TRUE(delegate->audio.empty());

    // A command-2 message without an index matches a device registered with index "0".
    facade->addToDeviceArray("Dock", "0");
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":2,"data":[{"AudioCmd":4}],"deviceName":"Dock"})")), 0);
    ASSERT_EQ(delegate->audio.size(), 1u);
    EXPECT_EQ(ymtest::fieldsOf(delegate->audio[0]), "cmd=4 index=0 name=Dock vid=0 pid=0 reserved=0000000000000");

    // Without a delegate nothing is called, and the answer is still 0.
    facade->setDelegate(std::weak_ptr<ymSdkDelegate>());
    EXPECT_EQ(facade->onMessageRecieved(std::string(R"({"commandId":2,"data":[{"AudioCmd":4}],"deviceName":"Dock"})")), 0);
    EXPECT_EQ(delegate->audio.size(), 1u);
    EXPECT_NE(ymtest::sdkLog().find("-[ymSdkImplement onMessageRecieved:]: message=(null)"), std::string::npos);

    // Features are accepted when they share a bit with the SDK's.
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

// A shared-list entry as another writer might have stored it.
std::string entry(const std::string &name, const std::optional<std::string> &index)
{
    nlohmann::json object = {{"deviceName", name}, {"usbVid", 1}, {"usbPid", 1}};
    if (index)
        object["deviceIndex"] = *index;
    return object.dump(2);
}

std::string releaseOf(const std::string &index, const std::string &name)
{
    return R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":101}],"deviceIndex":")" + index +
           R"(","deviceName":")" + name + R"(","usbVid":"0","usbPid":"0"})";
}

// Registers a device from another companion process (ymctl), which quits without cleaning up;
// answers its exit status (0: registered).
int registerElsewhere(const std::string &name, const std::string &index)
{
    return ymtest::ChildProcess(ymtest::toolProgram("ymctl"), {"register", "--name", name, "--index", index, "--vid", "1", "--pid", "1"}).wait();
}

class DeviceRegistry : public ymtest::SessionTest {
protected:
    // A running 5.6 client whose host socket is this test's: what the facade sends is read here.
    void listenAsHost()
    {
        hostSocket = ymtest::listenOn(*YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
        client = std::make_unique<RunningClient>(RunningClient::silent("5.6.0"));
    }
    // A facade whose connection to the host socket is the one this test reads. Other companion
    // processes connect to the same socket, so the facade's connection is taken first.
    std::shared_ptr<ymSdkImplement> makeFacadeAsHostPeer()
    {
        auto facade = ymSdkImplement::create();
        fromFacade = ymtest::acceptOne(hostSocket);
        return facade;
    }
    // Everything the facade has sent to the host process: what came before a marker command.
    std::string hostTraffic(ymSdkImplement &facade)
    {
        EXPECT_EQ(facade.SetAudioCmd(999, YMAudioDevice_s{"m", "Marker", 0, 0}), 0);
        const std::string marker = R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":999}])";
        std::string traffic;
        while (traffic.find(marker) == std::string::npos) {
            std::string chunk = ymtest::readText(fromFacade, 1);
            if (chunk.empty())
                break;
            traffic += chunk;
        }
        return traffic.substr(0, traffic.find(marker));
    }
    void TearDown() override
    {
        close(fromFacade);  // -1 (never opened) is refused harmlessly
        close(hostSocket);
    }

    std::unique_ptr<RunningClient> client;
    int hostSocket = -1;
    int fromFacade = -1;
};

TEST_F(DeviceRegistry, RegisteringTwiceKeepsOneEntryInEachListAndMissingArgumentsAreRefused)
{
    auto facade = ymSdkImplement::create();
    ymtest::CapturedStderr quiet;  // the facade's log is in the file; nothing else is written
    using Text = std::optional<std::string>;
    using Number = std::optional<ymValue>;
    for (auto [name, index, vid, pid] : {std::tuple<Text, Text, Number, Number>{"Headset", "", 1, 1}, {"", "1", 1, 1},
                                         {"Headset", "1", 1, std::nullopt}, {"Headset", "1", std::nullopt, 1},
                                         {std::nullopt, "1", 1, 1}, {"Headset", std::nullopt, 1, 1}})
        EXPECT_FALSE(facade->RegisterAudioDevice(name, index, vid, pid));
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", "1"));
    std::string before = ymtest::sdkLog();
    EXPECT_FALSE(facade->isRegisteredDevice(std::nullopt, "1"));
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", std::nullopt));
    EXPECT_EQ(ymtest::sdkLog(), before);  // no line for missing arguments

    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 2830, "3"));
    EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 2830, "3"));
    std::vector<std::string> shared = ymtest::sharedDeviceTexts();
    ASSERT_EQ(shared.size(), 1u);
    // Four keys, the identifiers as they were given (a number and a text), pretty-printed.
    nlohmann::json stored = nlohmann::json::parse(shared[0]);
    EXPECT_EQ(stored, (nlohmann::json{{"deviceName", "Headset"}, {"deviceIndex", "1"}, {"usbVid", 2830}, {"usbPid", "3"}}));
    EXPECT_NE(shared[0].find('\n'), std::string::npos);
    EXPECT_TRUE(facade->isRegisteredDevice("Headset", "1"));
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", "2"));
    EXPECT_FALSE(facade->isRegisteredDevice("headset", "1"));
    // Another device with the same index is a device of its own.
    facade->addToDeviceArray("Speaker", "1");
    EXPECT_TRUE(facade->isRegisteredDevice("Speaker", "1"));
}

TEST_F(DeviceRegistry, TwoCompanionsShareTheListButNotTheirDevices)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "1", 2830, 3));

    // Another companion registers its speaker and quits without cleaning up.
    EXPECT_EQ(registerElsewhere("Speaker", "2"), 0);
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 2u);

    // Its device is in the shared list but not registered here: its events are not for us.
    EXPECT_FALSE(facade->isRegisteredDevice("Speaker", "2"));
    // Registering it here adds no second shared entry.
    EXPECT_TRUE(facade->RegisterAudioDevice("Speaker", "2", 2830, 4));
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 2u);
    EXPECT_TRUE(facade->isRegisteredDevice("Speaker", "2"));

    // A third companion's device stays when this one cleans up.
    EXPECT_EQ(registerElsewhere("Dock", "9"), 0);
    facade->CleanupAudioDevices();
    std::vector<std::string> left = ymtest::sharedDeviceTexts();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(nlohmann::json::parse(left[0])["deviceName"], "Dock");
    EXPECT_EQ(hostTraffic(*facade), releaseOf("1", "Headset") + releaseOf("2", "Speaker"));
}

TEST_F(DeviceRegistry, CleanupWalkPassesOverTheEntryAfterARemovedOne)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    facade->addToDeviceArray("Headset", "1");
    // Two adjacent entries match the headset: the one with its index, then one without an index.
    ymtest::writeSharedDeviceTexts({entry("Headset", "1"), entry("Headset", std::nullopt), entry("Other", "5")});
    facade->CleanupAudioDevices();
    // The second was passed over by the walk, and is kept.
    EXPECT_EQ(ymtest::sharedDeviceTexts(), (std::vector<std::string>{entry("Headset", std::nullopt), entry("Other", "5")}));
    EXPECT_TRUE(facade->isRegisteredDevice("Headset", "1"));  // this path keeps the in-memory list
    // The next clean-up finds the entry without an index and removes it on the name alone.
    facade->CleanupAudioDevices();
    EXPECT_EQ(ymtest::sharedDeviceTexts(), (std::vector<std::string>{entry("Other", "5")}));

    // Adjacent entries of two devices are both removed. Another program stored the headset's index
    // as a number: a number never equals a text, so that entry is nobody's here and stays.
    facade->addToDeviceArray("Headset", "1");
    facade->addToDeviceArray("Speaker", "2");
    std::string numberIndex = R"({"deviceName":"Headset","deviceIndex":1,"usbVid":1,"usbPid":1})";
    ymtest::writeSharedDeviceTexts({entry("Headset", "1"), entry("Speaker", "2"), "not json", numberIndex});
    facade->CleanupAudioDevices();
    EXPECT_EQ(ymtest::sharedDeviceTexts(), (std::vector<std::string>{"not json", numberIndex}));  // kept as they are
    // One release per clean-up for the headset (the entry without an index is released with the
    // device's own index), then the headset's and the speaker's in turn.
    EXPECT_EQ(hostTraffic(*facade),
              releaseOf("1", "Headset") + releaseOf("1", "Headset") + releaseOf("1", "Headset") + releaseOf("2", "Speaker"));
}

TEST_F(DeviceRegistry, OtherKeysOfTheSharedSuiteOutliveRegistrationAndCleanup)
{
    // Other programs keep settings of their own in the same suite, before and after the list.
    const std::string suite = home.path() + "/Library/Preferences/YumoClientSdk.ShareData.plist";
    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    ymtest::writeFile(suite, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                             "<key>Before</key><string>kept</string><key>AudioDevice</key><array/>"
                             "<key>After</key><integer>7</integer></dict></plist>\n");
    auto facade = ymSdkImplement::create();
    ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    facade->CleanupAudioDevices();
    std::optional<ymValue> stored = ymPropertyList::readFile(suite);
    ASSERT_TRUE(stored);
    ASSERT_TRUE(stored->find("Before") && stored->find("After"));
    EXPECT_EQ(ymPropertyList::textOf(*stored->find("Before")), "kept");
    EXPECT_EQ(stored->find("After")->type(), ymValue::Type::integer);
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

TEST_F(DeviceRegistry, RegistrationWaitsWhileAnotherWriterHoldsTheList)
{
    // Another companion is writing the list (it holds the list's lock) when this one registers:
    // the registration waits for it, then lands.
    std::filesystem::create_directories(home.path() + "/Library/Preferences");
    int held = open((home.path() + "/Library/Preferences/YumoClientSdk.ShareData.plist.lock").c_str(),
                    O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    auto facade = ymSdkImplement::create();
    std::thread registering([&] { EXPECT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // a writer takes far less
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
    close(held);
    registering.join();
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 1u);
}

TEST_F(DeviceRegistry, EmptySharedListEmptiesThisProcessesListAndSendsNothing)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    facade->addToDeviceArray("Headset", "1");
    facade->CleanupAudioDevices();
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", "1"));
    EXPECT_EQ(hostTraffic(*facade), "");

    // A release that cannot be sent is lost, and the entry is removed all the same.
    client.reset();  // the meeting client quits
    facade->addToDeviceArray("Headset", "1");
    ymtest::writeSharedDeviceTexts({entry("Headset", "1")});
    facade->CleanupAudioDevices();
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

TEST_F(DeviceRegistry, ReleasingAFacadeCleansUpItsDevices)
{
    listenAsHost();
    {
        auto facade = makeFacadeAsHostPeer();
        ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "1", 1, 1));
    }
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
    std::string release = releaseOf("1", "Headset");
    EXPECT_EQ(ymtest::readText(fromFacade, release.size()), release);

    // Also when the facade is released while its process exits: nothing breaks.
    ymtest::ChildProcess companion(ymtest::helperProgram("companion_peer"), {"held-until-exit", "Headset", "4"});
    EXPECT_EQ(companion.readLine(), "YES");
    EXPECT_EQ(companion.wait(), 0);  // the clean-up logged while the process ended, and nothing broke
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

}  // namespace
