// The audio-device registry: this process's list and the list shared by every companion, with
// real companion processes and the release commands seen on the host process's socket.
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "platform/ymNotificationCenter.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/SocketPeer.h"
#include "support/TestSupport.h"

namespace {

using ymtest::RunningClient;

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

class DeviceRegistry : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }

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
    // Everything the facade sent to the host process, up to and including a marker command.
    std::string hostTrafficUntilMarker(ymSdkImplement &facade)
    {
        EXPECT_EQ(facade.SetAudioCmd(999, YMAudioDevice_s{"m", "Marker", 0, 0}), 0);
        std::string traffic;
        while (traffic.find(R"("deviceName":"Marker")") == std::string::npos) {
            std::string chunk = ymtest::readText(fromFacade, 1);
            if (chunk.empty())
                break;
            traffic += chunk;
        }
        return traffic;
    }
    void TearDown() override
    {
        if (fromFacade >= 0)
            close(fromFacade);
        if (hostSocket >= 0)
            close(hostSocket);
    }

    ymtest::TemporaryHome home;
    std::unique_ptr<RunningClient> client;
    int hostSocket = -1;
    int fromFacade = -1;
};

TEST_F(DeviceRegistry, RegisteringTwiceKeepsOneEntryInEachList)
{
    auto facade = ymSdkImplement::create();
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
}

TEST_F(DeviceRegistry, MissingOrEmptyArgumentsAreRefused)
{
    auto facade = ymSdkImplement::create();
    EXPECT_FALSE(facade->RegisterAudioDevice("Headset", "", 1, 1));
    EXPECT_FALSE(facade->RegisterAudioDevice("", "1", 1, 1));
    EXPECT_FALSE(facade->RegisterAudioDevice("Headset", "1", 1, std::nullopt));
    EXPECT_FALSE(facade->RegisterAudioDevice("Headset", "1", std::nullopt, 1));
    EXPECT_FALSE(facade->RegisterAudioDevice(std::nullopt, "1", 1, 1));
    EXPECT_FALSE(facade->RegisterAudioDevice("Headset", std::nullopt, 1, 1));
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", "1"));

    ymtest::CapturedStderr quiet;  // the facade's log is in the file; nothing else is written
    std::string before = ymtest::sdkLog();
    EXPECT_FALSE(facade->isRegisteredDevice(std::nullopt, "1"));
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", std::nullopt));
    EXPECT_EQ(ymtest::sdkLog(), before);  // no line for missing arguments
}

TEST_F(DeviceRegistry, TwoCompanionsShareTheListButNotTheirDevices)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    ASSERT_TRUE(facade->RegisterAudioDevice("Headset", "1", 2830, 3));

    // Another companion registers its speaker and quits without cleaning up.
    ymtest::ChildProcess other(ymtest::helperProgram("companion_peer"), {"register", "Speaker", "2", "2830", "4"});
    EXPECT_EQ(other.readLine(), "YES");
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 2u);

    // Its device is in the shared list but not registered here: its events are not for us.
    EXPECT_FALSE(facade->isRegisteredDevice("Speaker", "2"));
    // Registering it here adds no second shared entry.
    EXPECT_TRUE(facade->RegisterAudioDevice("Speaker", "2", 2830, 4));
    EXPECT_EQ(ymtest::sharedDeviceTexts().size(), 2u);
    EXPECT_TRUE(facade->isRegisteredDevice("Speaker", "2"));

    // A third companion's device stays when this one cleans up.
    ymtest::ChildProcess third(ymtest::helperProgram("companion_peer"), {"register", "Dock", "9", "1", "1"});
    EXPECT_EQ(third.wait(), 0);
    facade->CleanupAudioDevices();
    std::vector<std::string> left = ymtest::sharedDeviceTexts();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(nlohmann::json::parse(left[0])["deviceName"], "Dock");
    std::string traffic = hostTrafficUntilMarker(*facade);
    EXPECT_NE(traffic.find(releaseOf("1", "Headset")), std::string::npos);
    EXPECT_NE(traffic.find(releaseOf("2", "Speaker")), std::string::npos);
    EXPECT_EQ(traffic.find(R"("deviceName":"Dock")"), std::string::npos);
}

TEST_F(DeviceRegistry, CleanupWalkPassesOverTheEntryAfterARemovedOne)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    facade->addToDeviceArray("Headset", "1");
    // Two adjacent entries match the headset: the one with its index, then one without an index.
    ymtest::writeSharedDeviceTexts({entry("Headset", "1"), entry("Headset", std::nullopt), entry("Other", "5")});
    facade->CleanupAudioDevices();
    std::vector<std::string> left = ymtest::sharedDeviceTexts();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0], entry("Headset", std::nullopt));  // passed over by the walk: kept
    std::string traffic = hostTrafficUntilMarker(*facade);
    size_t releases = 0;
    for (size_t at = traffic.find("\"AudioCmd\":101"); at != std::string::npos; at = traffic.find("\"AudioCmd\":101", at + 1))
        ++releases;
    EXPECT_EQ(releases, 1u);
    EXPECT_TRUE(facade->isRegisteredDevice("Headset", "1"));  // this path keeps the in-memory list

    // The next clean-up finds the entry without an index and removes it on the name alone.
    facade->CleanupAudioDevices();
    left = ymtest::sharedDeviceTexts();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(nlohmann::json::parse(left[0])["deviceName"], "Other");
}

TEST_F(DeviceRegistry, AdjacentEntriesOfTwoDevicesAreBothRemoved)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    facade->addToDeviceArray("Headset", "1");
    facade->addToDeviceArray("Speaker", "2");
    // Another program stored the headset's index as a number: a number never equals a text, so
    // that entry is nobody's here and stays.
    std::string numberIndex = R"({"deviceName":"Headset","deviceIndex":1,"usbVid":1,"usbPid":1})";
    ymtest::writeSharedDeviceTexts({entry("Headset", "1"), entry("Speaker", "2"), "not json", numberIndex});
    facade->CleanupAudioDevices();
    EXPECT_EQ(ymtest::sharedDeviceTexts(), (std::vector<std::string>{"not json", numberIndex}));  // kept as they are
    std::string traffic = hostTrafficUntilMarker(*facade);
    size_t headset = traffic.find(releaseOf("1", "Headset"));
    size_t speaker = traffic.find(releaseOf("2", "Speaker"));
    ASSERT_NE(headset, std::string::npos);
    ASSERT_NE(speaker, std::string::npos);
    EXPECT_LT(headset, speaker);
}

TEST_F(DeviceRegistry, EmptySharedListEmptiesThisProcessesListAndSendsNothing)
{
    listenAsHost();
    auto facade = makeFacadeAsHostPeer();
    facade->addToDeviceArray("Headset", "1");
    facade->CleanupAudioDevices();
    EXPECT_FALSE(facade->isRegisteredDevice("Headset", "1"));
    EXPECT_EQ(hostTrafficUntilMarker(*facade).find("\"AudioCmd\":101"), std::string::npos);

    // A release that cannot be sent is lost, and the entry is removed all the same.
    client.reset();  // the meeting client quits
    facade->addToDeviceArray("Headset", "1");
    ymtest::writeSharedDeviceTexts({entry("Headset", "1")});
    facade->CleanupAudioDevices();
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

TEST_F(DeviceRegistry, FacadeReleasedWhileItsProcessExitsCleansUpCleanly)
{
    ymtest::ChildProcess companion(ymtest::helperProgram("companion_peer"), {"held-until-exit", "Headset", "4"});
    EXPECT_EQ(companion.readLine(), "YES");
    EXPECT_EQ(companion.wait(), 0);  // the clean-up logged while the process ended, and nothing broke
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
}

}  // namespace
