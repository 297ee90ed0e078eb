// ymctl from the shell's side: the built tool against the simulator, its JSON and exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/ymNotificationCenter.h"
#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

struct Result {
    int status;
    std::vector<nlohmann::json> objects;  // one per line of output
    std::vector<std::string> lines;
};

Result ymctl(const std::vector<std::string> &arguments)
{
    ymtest::ChildProcess process(ymtest::toolProgram("ymctl"), arguments);
    Result result;
    while (std::optional<std::string> line = process.readLine()) {
        result.lines.push_back(*line);
        nlohmann::json object = nlohmann::json::parse(*line, nullptr, false);
        if (!object.is_discarded())
            result.objects.push_back(object);
    }
    result.status = process.wait();
    return result;
}

class Ymctl : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!ymNotificationCenter::defaultCenter().isConnected())
            GTEST_SKIP() << "no session bus";
    }
    ymtest::TemporaryHome home;
};

TEST_F(Ymctl, StatusFollowsTheClient)
{
    Result missing = ymctl({"--json", "status"});
    EXPECT_EQ(missing.status, 5);
    ASSERT_EQ(missing.objects.size(), 1u);
    EXPECT_EQ(missing.objects[0]["installed"], false);
    EXPECT_EQ(missing.objects[0]["errorCode"], 5);
    EXPECT_EQ(missing.objects[0]["errorText"], "0:Error YumoClientNotRunning");

    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0");
    Result running = ymctl({"status", "--json"});
    EXPECT_EQ(running.status, 0);
    ASSERT_EQ(running.objects.size(), 1u);
    nlohmann::json status = running.objects[0];
    EXPECT_EQ(status["installed"], true);
    EXPECT_EQ(status["installPath"], home.path() + "/Applications/yumoapp.app");
    EXPECT_EQ(status["version"], "5.6.0");
    EXPECT_EQ(status["running"], true);
    EXPECT_EQ(status["supported"], true);
    EXPECT_EQ(status["newIPC"], true);
    EXPECT_EQ(status["errorCode"], 0);

    // Readable by default.
    Result readable = ymctl({"status"});
    EXPECT_EQ(readable.status, 0);
    EXPECT_EQ(readable.lines.size(), 8u);
    EXPECT_EQ(readable.lines[0].rfind("installed", 0), 0u);
}

TEST_F(Ymctl, PresenceAndAudioOverBothTransports)
{
    for (const char *version : {"5.6.0", "5.5.0"}) {
        ymtest::RunningClient client = ymtest::RunningClient::simulator(version, {"--result", "1:Busy", "--presence", "6"});
        Result presence = ymctl({"--json", "presence"});
        EXPECT_EQ(presence.status, 0) << version;
        ASSERT_EQ(presence.objects.size(), 1u) << version;
        EXPECT_EQ(presence.objects[0],
                  (nlohmann::json{{"status", 0}, {"error", false}, {"code", 1}, {"text", "Busy"}, {"presenceStatus", 6}}));

        Result audio = ymctl({"--json", "audio", "7", "--name", "Headset", "--index", "3", "--vid", "2830", "--pid", "3", "--wait", "10"});
        EXPECT_EQ(audio.status, 0) << version;
        ASSERT_EQ(audio.objects.size(), 2u) << version;
        EXPECT_EQ(audio.objects[0], (nlohmann::json{{"status", 0}}));
        EXPECT_EQ(audio.objects[1], (nlohmann::json{{"audioCmd", 7}, {"deviceIndex", "3"}, {"deviceName", "Headset"}}));
    }
    // The client gone: the command is refused with its code.
    Result refused = ymctl({"--json", "presence"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(refused.objects.at(0), (nlohmann::json{{"status", 5}, {"error", "0:Error YumoClientNotRunning"}}));
}

TEST_F(Ymctl, NoAnswerInTimeIsItsOwnExitStatus)
{
    ymtest::RunningClient client = ymtest::RunningClient::silent("5.6.0");
    Result presence = ymctl({"--json", "presence", "--timeout", "0"});
    EXPECT_EQ(presence.status, 75);
    EXPECT_EQ(presence.objects.at(0)["timedOut"], true);
}

TEST_F(Ymctl, DevicesAreRegisteredListedAndCleanedUp)
{
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0");
    EXPECT_EQ(ymctl({"register", "--name", "Headset", "--index", "1", "--vid", "2830", "--pid", "0x3"}).status, 0);
    EXPECT_EQ(ymctl({"register", "--name", "Dock", "--index", "2", "--vid", "1", "--pid", "0x10"}).status, 0);
    EXPECT_EQ(ymctl({"register", "--name", "", "--index", "2", "--vid", "1", "--pid", "1"}).status, 1);
    Result devices = ymctl({"--json", "devices"});
    ASSERT_EQ(devices.objects.size(), 1u);
    EXPECT_EQ(devices.objects[0]["devices"],
              (nlohmann::json{{{"deviceIndex", "1"}, {"deviceName", "Headset"}, {"usbPid", 3}, {"usbVid", 2830}},
                              {{"deviceIndex", "2"}, {"deviceName", "Dock"}, {"usbPid", 16}, {"usbVid", 1}}}));

    Result cleanup = ymctl({"--json", "cleanup", "--device", "Headset:1"});
    EXPECT_EQ(cleanup.status, 0);
    EXPECT_EQ(cleanup.objects.at(0), (nlohmann::json{{"removed", 1}, {"remaining", 1}}));
    Result all = ymctl({"--json", "cleanup", "--all"});
    EXPECT_EQ(all.objects.at(0), (nlohmann::json{{"removed", 1}, {"remaining", 0}}));
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

// A refused command line: exit 64 and one line, on standard error, naming what was wrong.
std::string refusal(const std::vector<std::string> &arguments)
{
    ymtest::ChildProcess process(ymtest::toolProgram("ymctl"), arguments, true);
    std::vector<std::string> lines;
    while (std::optional<std::string> line = process.readLine())
        lines.push_back(*line);
    EXPECT_EQ(process.wait(), 64) << arguments.at(0);
    EXPECT_EQ(lines.size(), 1u) << arguments.at(0);
    return lines.empty() ? "" : lines[0];
}

TEST_F(Ymctl, UsageErrorsAndHelp)
{
    using testing::HasSubstr;
    EXPECT_THAT(refusal({}), HasSubstr("say which command"));
    EXPECT_THAT(refusal({"bogus"}), HasSubstr("unknown command \"bogus\""));
    EXPECT_THAT(refusal({"status", "--bogus"}), HasSubstr("unknown option \"--bogus\""));
    EXPECT_THAT(refusal({"status", "extra"}), HasSubstr("unexpected argument \"extra\""));
    EXPECT_THAT(refusal({"audio", "5"}), HasSubstr("--name NAME and --index INDEX are required"));
    EXPECT_THAT(refusal({"audio", "five", "--name", "a", "--index", "1"}), HasSubstr("audio command takes a whole number"));
    // 32 bits, no more: 99999999999 would wrap.
    EXPECT_THAT(refusal({"audio", "99999999999", "--name", "a", "--index", "1"}), HasSubstr("not \"99999999999\""));
    EXPECT_THAT(refusal({"audio", "5", "--name", "a", "--index", "1", "--wait", "-1"}), HasSubstr("--wait takes a whole number of seconds from 0"));
    EXPECT_THAT(refusal({"presence", "--timeout", "-1"}), HasSubstr("--timeout takes"));
    EXPECT_THAT(refusal({"presence", "--timeout"}), HasSubstr("--timeout needs a value"));
    // USB identifiers are 16-bit numbers, decimal or hex.
    for (const char *bad : {"65536", "-1", "abc", "0x10000"})
        EXPECT_THAT(refusal({"register", "--name", "a", "--index", "1", "--vid", bad, "--pid", "1"}),
                    HasSubstr("--vid takes a number from 0 to 65535 (decimal, or hex with 0x), not \"" + std::string(bad) + "\""));
    EXPECT_THAT(refusal({"audio", "5", "--name", "a", "--index", "1", "--pid", "70000"}), HasSubstr("--pid takes a number from 0 to 65535"));
    EXPECT_THAT(refusal({"cleanup"}), HasSubstr("--device NAME:INDEX"));
    EXPECT_THAT(refusal({"cleanup", "--device", "nocolon"}), HasSubstr("--device takes NAME:INDEX"));

    EXPECT_EQ(ymctl({"register", "--name", "a", "--index", "1", "--vid", "0xFFFF", "--pid", "0"}).status, 0);
    EXPECT_EQ(nlohmann::json::parse(ymtest::sharedDeviceTexts().at(0))["usbVid"], 65535);
    Result version = ymctl({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.lines.at(0), testing::StartsWith("ymctl 1."));
    Result help = ymctl({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_GT(help.lines.size(), 10u);
    for (const char *command : {"status", "presence", "audio", "register", "devices", "cleanup", "listen", "launch", "activate",
                                "silent-activate", "outlook", "os", "language", "verify-app", "verify-pkg", "set-bundle-id", "file"}) {
        Result commandHelp = ymctl({command, "--help"});
        EXPECT_EQ(commandHelp.status, 0) << command;
        ASSERT_FALSE(commandHelp.lines.empty()) << command;
        EXPECT_EQ(commandHelp.lines[0].rfind(std::string("usage: ymctl [--json] ") + command, 0), 0u) << command;
    }
}

TEST_F(Ymctl, FileUtilitiesAndChecks)
{
    std::string folder = home.path() + "/notes";
    EXPECT_EQ(ymctl({"file", "mkdir", folder}).status, 0);
    EXPECT_EQ(ymctl({"file", "mkdir", folder}).status, 1);  // already there
    std::string file = folder + "/note.txt";
    EXPECT_EQ(ymctl({"file", "create", file, "hello"}).status, 0);
    EXPECT_EQ(ymctl({"--json", "file", "size", file}).objects.at(0)["size"], 5);
    EXPECT_EQ(ymctl({"file", "exists", file}).status, 0);
    EXPECT_EQ(ymctl({"file", "is-dir", file}).status, 1);
    EXPECT_EQ(ymctl({"--json", "file", "list", folder}).objects.at(0)["items"], nlohmann::json::array({"note.txt"}));
    EXPECT_EQ(ymctl({"file", "delete", file}).status, 0);
    EXPECT_EQ(ymctl({"file", "exists", file}).status, 1);
    EXPECT_EQ(ymctl({"file", "rename", file}).status, 64);

    ymtest::makeAppBundle(home.path(), "X.app", "com.example.x", "9.1");
    EXPECT_EQ(ymctl({"--json", "file", "version", home.path() + "/X.app"}).objects.at(0)["version"], "9.1");
    EXPECT_EQ(ymctl({"--json", "verify-pkg", home.path() + "/X.app/Contents/Info.plist"}).objects.at(0)["signed"], false);
    EXPECT_EQ(ymctl({"verify-app", home.path() + "/X.app"}).status, 1);
    EXPECT_EQ(ymctl({"set-bundle-id", home.path() + "/missing.plist", "com.example.y"}).status, 1);
    Result os = ymctl({"--json", "os"});
    EXPECT_EQ(os.objects.at(0), (nlohmann::json{{"version", 0}, {"supported", false}}));
    EXPECT_EQ(ymctl({"--json", "outlook"}).objects.at(0)["installed"], false);
}

}  // namespace
