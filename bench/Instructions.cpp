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

class Answers : public ymSdkDelegate {
public:
    size_t presence = 0;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s) override { ++presence; }
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
    auto command = [&] {
        if (kind == "audio")
            return sdk->SetAudioCmd(5, headset) == 0;
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

nlohmann::json measureInstructions(const std::string &toolsFolder, const std::string &self)
{
    nlohmann::json figures = nlohmann::json::object();
    Child(toolsFolder + "/ymsim", {"install", "--version", "5.6.0"}).readLine();
    const std::string home = std::getenv("HOME");
    Child simulator(home + "/Applications/yumoapp.app/Contents/MacOS/yumoapp", {"--quiet", "--no-audio-events"});
    simulator.readLine();
    for (const char *kind : {"audio", "presence"}) {
        std::string out = home + "/callgrind." + kind;
        std::string command = "valgrind --tool=callgrind --instr-atstart=no --dump-instr=no --callgrind-out-file='" + out +
                              "' '" + self + "' --instruction-probe " + kind + " " + std::to_string(kCountedCommands) +
                              " >/dev/null 2>&1";
        int status = std::system(command.c_str());
        // The probe dumps its counted part into a file of its own, numbered after the base name.
        long long counted = -1;
        for (int part = 1; part <= 3 && counted < 0; ++part)
            counted = totalInstructions(out + "." + std::to_string(part));
        const char *name = std::string(kind) == "audio" ? "audioCommand" : "presenceRoundTrip";
        if (status != 0 || counted < 0) {
            std::printf("%-64s %s\n", name, "could not be counted");
            continue;
        }
        long long perCommand = counted / kCountedCommands;
        std::printf("%-64s %lld instructions\n",
                    std::string(kind) == "audio" ? "SetAudioCmd, sockets, simulator running: per command"
                                                 : "GetIMPresenceStatus round trip, sockets: per command",
                    perCommand);
        figures[name] = perCommand;
    }
    return figures;
}

}  // namespace bench
