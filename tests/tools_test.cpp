// The simulator and the property-list tool as a companion's developer meets them: messages the
// simulator cannot read, and command lines neither takes.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

using testing::HasSubstr;

TEST(Ymsim, MessagesItCannotReadAreSkipped)
{
    ymtest::TemporaryHome home;
    ymtest::CapturedStderr log;
    ymtest::RunningClient client = ymtest::RunningClient::simulator("5.6.0", {"--quiet"});
    ymtest::MessageCollector answers;
    auto channel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    channel->setDelegate(&answers);
    const std::string request = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";
    auto answered = [&](size_t count) {
        channel->sendMessage(request);
        return ymtest::runMainLoopUntil([&] { return answers.messages.size() == count; });
    };
    ASSERT_TRUE(answered(1));
    // A string that never ends, then a brace that never closes: neither is a message, and the
    // requests after each are answered.
    channel->sendMessage(std::string(R"({"commandId":"})"));
    ASSERT_TRUE(answered(2));
    ASSERT_TRUE(answered(3));
    channel->sendMessage(std::string(R"({"commandId":1,"data":[{}})"));
    ASSERT_TRUE(answered(4));
    channel->sendMessage(std::string(R"({"commandId":1,"x":tru})"));
    ASSERT_TRUE(answered(5));
}

// A refused command line: exit 64 and one line naming what was wrong.
std::string refusal(const std::string &program, const std::vector<std::string> &arguments)
{
    ymtest::ChildProcess process(program, arguments, true);
    std::vector<std::string> lines;
    while (std::optional<std::string> line = process.readLine())
        lines.push_back(*line);
    EXPECT_EQ(process.wait(), 64);
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? "" : lines[0];
}

TEST(Ymsim, CommandLinesItDoesNotTake)
{
    ymtest::TemporaryHome home;
    const std::string ymsim = ymtest::toolProgram("ymsim");
    for (const char *help : {"--help", "-h"}) {
        ymtest::ChildProcess process(ymsim, {help});
        std::string text;
        while (std::optional<std::string> line = process.readLine())
            text += *line + "\n";
        EXPECT_EQ(process.wait(), 0);
        for (const char *explained : {"--version VERSION", "--dir FOLDER", "--result CODE:TEXT", "--presence N", "--seconds S",
                                      "--quiet", "--no-audio-events", "Exit status"})
            EXPECT_THAT(text, HasSubstr(explained));
    }
    EXPECT_THAT(refusal(ymsim, {"install"}), HasSubstr("install needs --version VERSION"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "abc"}), HasSubstr("--version takes numbers separated by dots"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "5.6.0", "--dir", home.path() + "/no/such"}),
                HasSubstr("--dir takes a folder whose parent exists"));
    EXPECT_FALSE(std::filesystem::exists(home.path() + "/no"));
    EXPECT_THAT(refusal(ymsim, {"install", "--version", "5.6.0", "--colour"}), HasSubstr("unknown argument \"--colour\""));

    ymtest::ChildProcess install(ymsim, {"install", "--version", "5.6.0"});
    ASSERT_EQ(install.wait(), 0);
    const std::string simulator = home.path() + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
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
