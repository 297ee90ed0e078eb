#include "Instructions.h"

#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <valgrind/callgrind.h>

#include "Child.h"

namespace bench {
namespace {

constexpr int kCountedCommands = 1000;
constexpr int kWarmUpCommands = 100;
// What reads a connection's input, whichever thread calls it.
const char *const kReadingFunctions = "ySocketConnection::readAvailable()";

class Answers : public ymSdkDelegate {
public:
    size_t presence = 0;
    size_t audioEvents = 0;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s) override { ++presence; }
    void ymSdkAudioInfo(YMAudioInfo_s) override { ++audioEvents; }
};

// The instructions callgrind counted, from its output file's "totals:" line.
long long totalInstructions(const std::string &path)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.rfind("totals:", 0) == 0)
            return std::atoll(line.c_str() + 7);
    return -1;
}

}  // namespace

int runInstructionProbe(const std::string &kind, int count)
{
    auto answers = std::make_shared<Answers>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(answers);
    const YMAudioDevice_s headset{"1", "Headset", 2830, 3};
    sdk->RegisterAudioDevice("Headset", "1", 2830, 3);  // the client's events about it reach the delegate
    auto command = [&] {
        if (kind == "audio")
            return sdk->SetAudioCmd(5, headset) == 0;
        if (kind == "event") {
            size_t before = answers->audioEvents;
            return sdk->SetAudioCmd(5, headset) == 0 &&
                   ymMainLoop::shared().runUntil([&] { return answers->audioEvents > before; }, std::chrono::seconds(10));
        }
        size_t before = answers->presence;
        return sdk->GetIMPresenceStatus() == 0 &&
               ymMainLoop::shared().runUntil([&] { return answers->presence > before; }, std::chrono::seconds(10));
    };
    for (int i = 0; i < kWarmUpCommands; ++i)
        if (!command())
            return 1;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_START_INSTRUMENTATION;
    bool ok = true;
    for (int i = 0; i < count && ok; ++i)
        ok = command();
    CALLGRIND_STOP_INSTRUMENTATION;
    CALLGRIND_DUMP_STATS_AT("counted");
    return ok ? 0 : 1;
}

namespace {

// Runs the probe for one kind under callgrind; answers the instructions per command, or -1. With
// `only`, only what runs inside the functions it names is counted.
long long countedPerCommand(const std::string &self, const std::string &home, const std::string &kind, const std::string &only = "")
{
    std::string out = home + "/callgrind." + kind + (only.empty() ? "" : ".only");
    std::string command = "valgrind --tool=callgrind --instr-atstart=no --dump-instr=no --callgrind-out-file='" + out + "'" +
                          (only.empty() ? "" : " '--toggle-collect=" + only + "'") + " '" + self + "' --instruction-probe " + kind + " " +
                          std::to_string(kCountedCommands) + " >/dev/null 2>&1";
    int status = std::system(command.c_str());
    // The probe dumps its counted part into a file of its own, numbered after the base name.
    long long counted = -1;
    for (int part = 1; part <= 3 && counted < 0; ++part)
        counted = totalInstructions(out + "." + std::to_string(part));
    return status != 0 || counted < 0 ? -1 : counted / kCountedCommands;
}

void print(const char *what, long long perCommand)
{
    if (perCommand < 0)
        std::printf("%-64s %s\n", what, "could not be counted");
    else
        std::printf("%-64s %lld instructions\n", what, perCommand);
}

}  // namespace

nlohmann::json measureInstructions(const std::string &toolsFolder, const std::string &self)
{
    nlohmann::json figures = nlohmann::json::object();
    Child(toolsFolder + "/ymsim", {"install", "--version", "5.6.0"}).readLine();
    const std::string home = std::getenv("HOME");
    const std::string client = home + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
    long long audio = -1, presence = -1, event = -1, read = -1;
    {
        Child simulator(client, {"--quiet", "--no-audio-events"});
        simulator.readLine();
        audio = countedPerCommand(self, home, "audio");
        presence = countedPerCommand(self, home, "presence");
    }
    {
        // The same command answered by an audio event: what receiving the event costs is the
        // difference.
        Child simulator(client, {"--quiet"});
        simulator.readLine();
        event = countedPerCommand(self, home, "event");
        // Reading the event off its socket: read, framed and handed to the loop that delivers it.
        read = countedPerCommand(self, home, "event", kReadingFunctions);
    }
    print("SetAudioCmd, sockets, simulator running: per command", audio);
    print("GetIMPresenceStatus round trip, sockets: per command", presence);
    const long long received = audio >= 0 && event >= 0 ? event - audio : -1;
    print("an audio event received, up to the delegate: per event", received);
    print("an audio event read off its socket, framed, queued: per event", read);
    if (audio >= 0)
        figures["audioCommand"] = audio;
    if (presence >= 0)
        figures["presenceRoundTrip"] = presence;
    if (received >= 0)
        figures["audioEventReceived"] = received;
    if (read >= 0)
        figures["audioEventRead"] = read;
    return figures;
}

}  // namespace bench
