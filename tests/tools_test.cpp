// The tools as a companion's developer meets them from the shell: ymctl against the simulator
// (its JSON and exit codes), the simulator with messages it cannot read, and command lines that
// none of the tools takes.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

#include "support/FacadeFixture.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

using testing::HasSubstr;
using nlohmann::json;

struct Result {
    int status;
    std::vector<json> objects;  // one per line of output that is JSON
    std::vector<std::string> lines;
};

Result run(const std::string &program, const std::vector<std::string> &arguments, bool withStandardError = false)
{
    ymtest::ChildProcess process(program, arguments, withStandardError);
    Result result;
    while (std::optional<std::string> line = process.readLine()) {
        result.lines.push_back(*line);
        json object = json::parse(*line, nullptr, false);
        if (!object.is_discarded())
            result.objects.push_back(object);
    }
    result.status = process.wait();
    return result;
}

Result ymctl(const std::vector<std::string> &arguments) { return run(ymtest::toolProgram("ymctl"), arguments); }

// A refused command line: exit 64 and one line, on standard error, naming what was wrong.
std::string refusal(const std::string &program, const std::vector<std::string> &arguments)
{
    Result result = run(program, arguments, true);
    EXPECT_EQ(result.status, 64) << (arguments.empty() ? program : arguments[0]);
    EXPECT_EQ(result.lines.size(), 1u) << (arguments.empty() ? program : arguments[0]);
    return result.lines.empty() ? "" : result.lines[0];
}

class Ymctl : public ymtest::SessionTest {};

TEST_F(Ymctl, StatusFollowsTheClientAndDevicesAreRegisteredListedAndCleanedUp)
{
    const std::string bundle = home.path() + "/Applications/yumoapp.app";
    Result missing = ymctl({"--json", "status"});
    EXPECT_EQ(missing.status, 5);
    EXPECT_EQ(missing.objects, (std::vector<json>{{{"installed", false}, {"installPath", bundle}, {"version", ""}, {"running", false},
                                                   {"supported", false}, {"newIPC", false}, {"errorCode", 5},
                                                   {"errorText", "0:Error YumoClientNotRunning"}}}));
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0");
    Result running = ymctl({"status", "--json"});
    EXPECT_EQ(running.status, 0);
    EXPECT_EQ(running.objects, (std::vector<json>{{{"installed", true}, {"installPath", bundle}, {"version", "5.6.0"}, {"running", true},
                                                   {"supported", true}, {"newIPC", true}, {"errorCode", 0}, {"errorText", ""}}}));
    // Readable by default.
    Result readable = ymctl({"status"});
    EXPECT_EQ(readable.status, 0);
    EXPECT_EQ(readable.lines.size(), 8u);
    EXPECT_EQ(readable.lines.at(3), "running           yes");

    // Devices registered, listed and cleaned up.
    EXPECT_EQ(ymctl({"register", "--name", "Headset", "--index", "1", "--vid", "2830", "--pid", "0x3"}).status, 0);
    EXPECT_EQ(ymctl({"register", "--name", "Dock", "--index", "2", "--vid", "0xFFFF", "--pid", "0x10"}).status, 0);
    Result devices = ymctl({"--json", "devices"});
    ASSERT_EQ(devices.objects.size(), 1u);
    EXPECT_EQ(devices.objects[0]["devices"],
              (json{{{"deviceIndex", "1"}, {"deviceName", "Headset"}, {"usbPid", 3}, {"usbVid", 2830}},
                    {{"deviceIndex", "2"}, {"deviceName", "Dock"}, {"usbPid", 16}, {"usbVid", 65535}}}));

    Result cleanup = ymctl({"--json", "cleanup", "--device", "Headset:1"});
    EXPECT_EQ(cleanup.status, 0);
    EXPECT_EQ(cleanup.objects.at(0), (json{{"removed", 1}, {"remaining", 1}}));
    EXPECT_EQ(ymctl({"--json", "cleanup", "--all"}).objects.at(0), (json{{"removed", 1}, {"remaining", 0}}));
    EXPECT_TRUE(ymtest::sharedDeviceTexts().empty());
}

TEST_F(Ymctl, CheckClientPassesTheSimulatorAndNamesTheFieldAMeetingClientGetsWrong)
{
    for (const char *version : {"5.6.0", "5.5.0"}) {
        ymtest::RunningClient client = ymtest::RunningClient::simulator(version, {"--quiet"});
        Result checked = ymctl({"--json", "check-client"});
        EXPECT_EQ(checked.status, 0) << version;
        std::map<std::string, std::string> found;
        for (const json &object : checked.objects)
            found[object.at("check")] = object.at("result");
        for (const char *check : {"running", "transport", "presence.json", "presence.result", "presence.data", "audio.data",
                                  "audio.device", "release.data", "release.device", "audio.others"})
            EXPECT_EQ(found[check], "PASS") << version << " " << check;
        EXPECT_EQ(found.count("presence.connection"), std::string(version) == "5.6.0" ? 1u : 0u);
    }
    {
        ymtest::RunningClient broken = ymtest::RunningClient::simulator("5.6.0", {"--quiet", "--presence-at-top-level"});
        Result checked = ymctl({"--json", "check-client"});
        EXPECT_EQ(checked.status, 1);
        for (const json &object : checked.objects)
            if (object.at("check") == "presence.data") {
                EXPECT_EQ(object.at("result"), "FAIL");
                EXPECT_EQ(object.at("got"), "\"PresenceStatus\" at the top level, outside \"data\"");
            } else {
                EXPECT_EQ(object.at("result"), "PASS") << object.dump();
            }
    }
    Result notRunning = ymctl({"check-client"});
    EXPECT_EQ(notRunning.status, 1);
    EXPECT_THAT(notRunning.lines, testing::ElementsAre(testing::StartsWith("FAIL  running: expected a process of this user")));
}

TEST_F(Ymctl, PresenceAndAudioOverBothTransports)
{
    for (const char *version : {"5.6.0", "5.5.0"}) {
        ymtest::RunningClient client = ymtest::RunningClient::simulator(version, {"--result", "1:Busy", "--presence", "6"});
        Result presence = ymctl({"--json", "presence"});
        EXPECT_EQ(presence.status, 0) << version;
        EXPECT_EQ(presence.objects, (std::vector<json>{{{"status", 0}, {"error", false}, {"code", 1}, {"text", "Busy"}, {"presenceStatus", 6}}}))
            << version;
        Result audio = ymctl({"--json", "audio", "7", "--name", "Headset", "--index", "3", "--vid", "2830", "--pid", "3", "--wait", "10"});
        EXPECT_EQ(audio.status, 0) << version;
        EXPECT_EQ(audio.objects, (std::vector<json>{{{"status", 0}}, {{"audioCmd", 7}, {"deviceIndex", "3"}, {"deviceName", "Headset"}}}))
            << version;
    }
    // The client gone: the command is refused with its code.
    Result refused = ymctl({"--json", "presence"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_EQ(refused.objects.at(0), (json{{"status", 5}, {"error", "0:Error YumoClientNotRunning"}}));
    // A client that answers nothing in time: its own exit status.
    ymtest::RunningClient silent = ymtest::RunningClient::silent("5.6.0");
    Result unanswered = ymctl({"--json", "presence", "--timeout", "0"});
    EXPECT_EQ(unanswered.status, 75);
    EXPECT_EQ(unanswered.objects.at(0)["timedOut"], true);
}

TEST_F(Ymctl, FileUtilitiesAndChecks)
{
    const std::string folder = home.path() + "/notes", file = folder + "/note.txt";
    auto status = [](const std::vector<std::string> &arguments) { return ymctl(arguments).status; };
    auto answer = [](const std::vector<std::string> &arguments) { return ymctl(arguments).objects.at(0); };
    EXPECT_EQ(status({"file", "mkdir", folder}), 0);
    EXPECT_EQ(status({"file", "mkdir", folder}), 1);  // already there
    EXPECT_EQ(status({"file", "create", file, "hello"}), 0);
    EXPECT_EQ(answer({"--json", "file", "size", file}), (json{{"size", 5}}));
    EXPECT_EQ(status({"file", "is-dir", file}), 1);
    EXPECT_EQ(answer({"--json", "file", "list", folder}), (json{{"items", {"note.txt"}}}));
    EXPECT_EQ(status({"file", "delete", file}), 0);
    EXPECT_EQ(status({"file", "exists", file}), 1);

    ymtest::makeAppBundle(home.path(), "X.app", "com.example.x", "9.1");
    EXPECT_EQ(answer({"--json", "file", "version", home.path() + "/X.app"}), (json{{"version", "9.1"}}));
    EXPECT_EQ(answer({"--json", "verify-pkg", home.path() + "/X.app/Contents/Info.plist"}), (json{{"signed", false}}));
    EXPECT_EQ(status({"verify-app", home.path() + "/X.app"}), 1);
    EXPECT_EQ(status({"set-bundle-id", home.path() + "/missing.plist", "com.example.y"}), 1);
    EXPECT_EQ(answer({"--json", "os"}), (json{{"version", 0}, {"supported", false}}));
    EXPECT_EQ(answer({"--json", "outlook"})["installed"], false);
}

TEST(YmctlArguments, RefusedWithOneLineAndHelpForEachCommand)
{
    const std::string tool = ymtest::toolProgram("ymctl");
    EXPECT_THAT(refusal(tool, {}), HasSubstr("say which command"));
    EXPECT_THAT(refusal(tool, {"bogus"}), HasSubstr("unknown command \"bogus\""));
    EXPECT_THAT(refusal(tool, {"status", "--bogus"}), HasSubstr("unknown option \"--bogus\""));
    EXPECT_THAT(refusal(tool, {"status", "extra"}), HasSubstr("unexpected argument \"extra\""));
    EXPECT_THAT(refusal(tool, {"audio", "5"}), HasSubstr("--name NAME and --index INDEX are required"));
    EXPECT_THAT(refusal(tool, {"audio", "five", "--name", "a", "--index", "1"}), HasSubstr("audio command takes a whole number"));
    // 32 bits, no more: 99999999999 would wrap.
    EXPECT_THAT(refusal(tool, {"audio", "99999999999", "--name", "a", "--index", "1"}), HasSubstr("not \"99999999999\""));
    EXPECT_THAT(refusal(tool, {"audio", "5", "--name", "a", "--index", "1", "--wait", "-1"}),
                HasSubstr("--wait takes a whole number of seconds from 0"));
    EXPECT_THAT(refusal(tool, {"presence", "--timeout", "-1"}), HasSubstr("--timeout takes"));
    EXPECT_THAT(refusal(tool, {"presence", "--timeout"}), HasSubstr("--timeout needs a value"));
    // USB identifiers are 16-bit numbers, decimal or hex.
    for (const char *bad : {"65536", "-1", "abc", "0x10000"})
        EXPECT_THAT(refusal(tool, {"register", "--name", "a", "--index", "1", "--vid", bad, "--pid", "1"}),
                    HasSubstr("--vid takes a number from 0 to 65535 (decimal, or hex with 0x), not \"" + std::string(bad) + "\""));
    EXPECT_THAT(refusal(tool, {"audio", "5", "--name", "a", "--index", "1", "--pid", "70000"}), HasSubstr("--pid takes a number from 0 to 65535"));
    // Empty names and indexes, refused wherever a device is named.
    EXPECT_THAT(refusal(tool, {"audio", "5", "--name", "", "--index", "1"}), HasSubstr("--name takes a device name that is not empty"));
    EXPECT_THAT(refusal(tool, {"register", "--name", "a", "--index", "", "--vid", "1", "--pid", "1"}),
                HasSubstr("--index takes a device index that is not empty"));
    EXPECT_THAT(refusal(tool, {"cleanup"}), HasSubstr("--device NAME:INDEX"));
    EXPECT_THAT(refusal(tool, {"cleanup", "--device", "nocolon"}), HasSubstr("--device takes NAME:INDEX"));
    EXPECT_THAT(refusal(tool, {"file", "rename", "a"}), HasSubstr("unknown file action \"rename\""));

    EXPECT_THAT(ymctl({"--version"}).lines.at(0), testing::StartsWith("ymctl 1."));
    Result help = ymctl({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_GT(help.lines.size(), 10u);
    EXPECT_THAT(refusal(tool, {"check-client", "--timeout", "x"}), HasSubstr("--timeout takes"));
    for (const char *command : {"status", "presence", "audio", "register", "devices", "cleanup", "listen", "check-client", "launch", "activate",
                                "silent-activate", "outlook", "os", "language", "verify-app", "verify-pkg", "set-bundle-id", "file"}) {
        Result commandHelp = ymctl({command, "--help"});
        EXPECT_EQ(commandHelp.status, 0) << command;
        EXPECT_THAT(commandHelp.lines, testing::Contains(testing::StartsWith(std::string("usage: ymctl [--json] ") + command)));
    }
}

TEST(Ymsim, MessagesItCannotReadAreSkipped)
{
    ymtest::TemporaryHome home;
    ymtest::CapturedStderr log;
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    ymtest::MessageCollector answers;
    auto channel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    channel->setDelegate(&answers);
    auto answered = [&](size_t count) {
        channel->sendMessage(std::string(R"({"commandId":1,"from":1,"version":"1.0.0","data":""})"));
        return ymtest::runMainLoopUntil([&] { return answers.messages.size() == count; });
    };
    ASSERT_TRUE(answered(1));
    // A string that never ends, then a brace that never closes, then a bad literal: none is a
    // message, and the requests after each are answered.
    size_t count = 1;
    for (const char *unreadable : {R"({"commandId":"})", R"({"commandId":1,"data":[{}})", R"({"commandId":1,"x":tru})"}) {
        channel->sendMessage(std::string(unreadable));
        ASSERT_TRUE(answered(++count)) << unreadable;
    }
    ASSERT_TRUE(answered(++count));
}

TEST(Ymsim, CommandLinesItDoesNotTake)
{
    ymtest::TemporaryHome home;
    const std::string ymsim = ymtest::toolProgram("ymsim");
    for (const char *help : {"--help", "-h"}) {
        Result result = run(ymsim, {help});
        EXPECT_EQ(result.status, 0);
        for (const char *explained : {"--version VERSION", "--dir FOLDER", "--result CODE:TEXT", "--presence N", "--seconds S",
                                      "--quiet", "--no-audio-events", "Exit status"})
            EXPECT_THAT(result.lines, testing::Contains(HasSubstr(explained)));
    }
    EXPECT_THAT(refusal(ymsim, {"install"}), HasSubstr("install needs --version VERSION"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "abc"}), HasSubstr("--version takes numbers separated by dots"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "5.6.0", "--dir", home.path() + "/no/such"}),
                HasSubstr("--dir takes a folder whose parent exists"));
    EXPECT_FALSE(std::filesystem::exists(home.path() + "/no"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "5.6.0", "--colour"}), HasSubstr("unknown argument \"--colour\""));

    // Without a home there is nowhere to install by default: nothing is written, not even in /.
    for (bool unset : {false, true}) {
        unset ? unsetenv("HOME") : setenv("HOME", "", 1);
        Result homeless = run(ymsim, {"install", "--version", "5.6.0"}, true);
        EXPECT_EQ(homeless.status, 1);
        EXPECT_THAT(homeless.lines, testing::ElementsAre(HasSubstr("no home folder ($HOME is unset or empty): give --dir FOLDER")));
    }
    setenv("HOME", home.path().c_str(), 1);
    EXPECT_FALSE(std::filesystem::exists("/Applications/yumoapp.app"));

    ASSERT_EQ(run(ymsim, {"install", "--version", "5.6.0"}).status, 0);
    const std::string simulator = home.path() + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
    // The copy in the bundle serves; a command given to it is named as not its own.
    EXPECT_THAT(refusal(simulator, {"install", "--version", "5.6.0"}), HasSubstr("\"install\" is not for the copy in a bundle"));
    EXPECT_THAT(refusal(simulator, {"serve"}), HasSubstr("\"serve\" is not for the copy in a bundle"));
    EXPECT_THAT(refusal(simulator, {"--presence", "abc"}), HasSubstr("--presence takes a whole number, not \"abc\""));
    EXPECT_THAT(refusal(simulator, {"--seconds", "1x"}), HasSubstr("--seconds takes a whole number of seconds from 0"));
    EXPECT_THAT(refusal(simulator, {"--seconds", "-1"}), HasSubstr("not \"-1\""));
    EXPECT_THAT(refusal(simulator, {"--result", "garbage"}), HasSubstr("--result takes CODE:TEXT"));
}

TEST(PlistBuddy, CommandLinesItDoesNotTake)
{
    const std::string tool = ymtest::toolProgram("PlistBuddy");
    EXPECT_THAT(refusal(tool, {}), HasSubstr("say which property list"));
    EXPECT_THAT(refusal(tool, {"-c"}), HasSubstr("-c needs a command: Print, Set, Add or Delete"));
    EXPECT_THAT(refusal(tool, {"-x", "Info.plist"}), HasSubstr("unknown option \"-x\""));
    EXPECT_THAT(refusal(tool, {"-c", "Print", "a.plist", "b.plist"}), HasSubstr("one property list at a time"));
    EXPECT_THAT(refusal(tool, {"Info.plist"}), HasSubstr("say what to do with -c"));
}

}  // namespace
