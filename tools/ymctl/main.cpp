// ymctl: every operation of YumoClientSdk from the shell, for debugging a companion's
// integration. Readable by default; --json prints one JSON object per result.
#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "Commands.h"

namespace {

constexpr int kExitUsage = 64;

const std::vector<CommandInfo> commands = {
    {"status", "", "the meeting client: installed, where, version, running, transport, error", runStatus},
    {"presence", "[--timeout S]", "ask for the presence status and wait for the answer (default 5 s)", runPresence},
    {"audio", "CMD --name N --index I [--vid V] [--pid P] [--wait S]",
     "send an audio command to the host process; --wait waits for its audio event", runAudio},
    {"register", "--name N --index I --vid V --pid P", "register an audio device (this run and the shared list)", runRegister},
    {"devices", "", "the shared list of registered devices", runDevices},
    {"cleanup", "(--device NAME:INDEX)... | --all", "remove devices from the shared list, releasing each", runCleanup},
    {"listen", "[--seconds S] [--device NAME:INDEX]... [--all-devices]",
     "print every presence answer and audio event until interrupted", runListen},
    {"watch", "[--seconds S]", "print a line each time the meeting client starts, quits, is updated, installed, removed or moved",
     runWatch},
    {"check-client", "[--timeout S]", "check the running meeting client's answers against the protocol (PASS/FAIL per check)",
     runCheckClient},
    {"launch", "", "start the meeting client (or bring the running one forward)", runLaunch},
    {"activate", "[URL]", "hand the running meeting client a URL", runActivate},
    {"silent-activate", "", "ask the running meeting client to activate silently", runSilentActivate},
    {"outlook", "[--launch]", "Outlook: installed, version, supported, running", runOutlook},
    {"os", "", "the system version and whether it is supported", runOS},
    {"language", "", "the user's preferred language", runLanguage},
    {"verify-app", "PATH", "check an application's code signature", runVerifyApp},
    {"verify-pkg", "PATH", "check an installer package's signature", runVerifyPkg},
    {"set-bundle-id", "PLIST ID", "set CFBundleIdentifier in an Info.plist", runSetBundleId},
    {"file", "exists|is-dir|delete|mkdir|list|size|version PATH | move SRC DST | create PATH [TEXT]",
     "the SDK's file utilities", runFile},
};

void printHelp(FILE *stream)
{
    std::fprintf(stream, "usage: ymctl [--json] COMMAND [ARGUMENTS]   (ymctl COMMAND --help for one command)\n"
                         "       ymctl --version\n\n");
    for (const CommandInfo &command : commands)
        std::fprintf(stream, "  %-16s %s\n", command.name, command.summary);
    std::fprintf(stream, "\nExit status: 0 success; the SDK's code when a command is refused (2, 5, 6, 8);\n"
                         "1 for a NO; 75 when no answer came in time; 64 for a usage error.\n");
}

void printCommandHelp(FILE *stream, const CommandInfo &command)
{
    std::fprintf(stream, "usage: ymctl [--json] %s %s\n  %s\n", command.name, command.usage, command.summary);
}

}  // namespace

const std::vector<CommandInfo> &allCommands() { return commands; }

int main(int argc, char **argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    Arguments arguments(words);
    bool json = arguments.flag("--json");
    bool help = arguments.flag("--help") || arguments.flag("-h");
    if (arguments.flag("--version")) {
        std::printf("ymctl %s (YumoClientSdk %.1f)\n", YMSDK_VERSION, YumoClientSdkVersionNumber);
        return 0;
    }
    std::optional<std::string> name = arguments.optionalPositional();
    if (!name) {
        if (help) {
            printHelp(stdout);
            return 0;
        }
        std::fprintf(stderr, "ymctl: say which command to run (ymctl --help lists them)\n");
        return kExitUsage;
    }
    const CommandInfo *command = nullptr;
    for (const CommandInfo &candidate : commands)
        if (*name == candidate.name)
            command = &candidate;
    if (!command) {
        std::fprintf(stderr, "ymctl: unknown command \"%s\" (ymctl --help lists the commands)\n", name->c_str());
        return kExitUsage;
    }
    if (help) {
        printCommandHelp(stdout, *command);
        return 0;
    }
    arguments.setCommand(command->name);

    // The SDK's lines go to its log file only: standard error stays ymctl's own.
    ymLogHelper::setTakesStandardError(NO);
    ymLogHelper::redirectNSLog(NO);
    Output output(json);
    try {
        return command->run(arguments, output);
    } catch (const UsageError &error) {
        std::fprintf(stderr, "ymctl %s: %s\n", command->name, error.what());
        return kExitUsage;
    }
}
