#include "Options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sys/stat.h>

const char *const kUsage =
    "usage: ymsim install --version VERSION [--dir FOLDER]\n"
    "       <bundle>/Contents/MacOS/yumoapp [--result CODE:TEXT] [--presence N] [--seconds S] [--quiet]\n"
    "                                       [--no-audio-events] [--presence-at-top-level]\n"
    "       ymsim --help\n"
    "\n"
    "ymsim plays the Yumo meeting client and its host process, for trying a companion.\n"
    "\n"
    "install makes FOLDER/yumoapp.app: an Info.plist with the meeting client's identifier and\n"
    "CFBundleVersion VERSION, and a copy of ymsim as its executable.\n"
    "  --version VERSION   numbers separated by dots, such as 5.6.0; 5.6 and later are reached by\n"
    "                      socket, older ones by notification, and before 4.2 the SDK judges the\n"
    "                      client too old\n"
    "  --dir FOLDER        where the bundle goes (default $HOME/Applications); the folder is made\n"
    "                      when missing, but its parent must exist\n"
    "\n"
    "The copy inside the bundle serves: it listens on both sockets of the group container and\n"
    "observes the notification names, answers every presence request, turns every audio command\n"
    "into an audio event for the same device, and prints \"ready\", then a line per message.\n"
    "  --result CODE:TEXT  the \"result\" of each presence answer: a code, a colon and a text, such\n"
    "                      as 1:OK (the default) or 0:Error YumoClientNotSignIn\n"
    "  --presence N        the \"PresenceStatus\" answered, a whole number (default 1)\n"
    "  --seconds S         serve for S seconds, a whole number from 0 (default: until killed)\n"
    "  --quiet             print only \"ready\", and at the end how many messages came\n"
    "  --no-audio-events   take audio commands without answering them\n"
    "  --presence-at-top-level\n"
    "                      put \"PresenceStatus\" beside \"data\" instead of inside it, as a broken\n"
    "                      meeting client would (what ymctl check-client must notice)\n"
    "\n"
    "Exit status: 0 done; 1 the bundle could not be made, or there is no group container;\n"
    "64 a usage error.\n";

namespace {

// The value after an option; a usage error when there is none.
std::string valueOf(const std::vector<std::string> &arguments, size_t &i, const std::string &accepted)
{
    if (i + 1 >= arguments.size())
        throw UsageError(arguments[i] + " needs a value: " + accepted);
    return arguments[++i];
}

long long wholeNumber(const std::string &text, const std::string &option, const std::string &accepted, long long lowest,
                      long long highest)
{
    errno = 0;
    char *end = nullptr;
    long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || value < lowest || value > highest)
        throw UsageError(option + " takes " + accepted + ", not \"" + text + "\"");
    return value;
}

bool isDottedVersion(const std::string &text)
{
    bool digitBefore = false;
    for (char c : text) {
        if (c >= '0' && c <= '9')
            digitBefore = true;
        else if (c == '.' && digitBefore)
            digitBefore = false;
        else
            return false;
    }
    return digitBefore;
}

std::string parentOf(const std::string &path)
{
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/')
        trimmed.pop_back();
    size_t slash = trimmed.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : trimmed.substr(0, slash);
}

[[noreturn]] void unknown(const std::string &argument, const char *form)
{
    throw UsageError("unknown argument \"" + argument + "\" for " + form + " (ymsim --help lists the options)");
}

}  // namespace

bool asksForHelp(const std::vector<std::string> &arguments)
{
    for (const std::string &argument : arguments)
        if (argument == "-h" || argument == "--help")
            return true;
    return false;
}

InstallOptions parseInstallOptions(const std::vector<std::string> &arguments, const std::string &home)
{
    const std::string versionAccepted = "numbers separated by dots, such as 5.6.0";
    InstallOptions options;
    std::optional<std::string> folder;
    for (size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--version") {
            options.version = valueOf(arguments, i, versionAccepted);
            if (!isDottedVersion(options.version))
                throw UsageError("--version takes " + versionAccepted + ", not \"" + options.version + "\"");
        } else if (arguments[i] == "--dir") {
            folder = valueOf(arguments, i, "a folder whose parent exists");
        } else {
            unknown(arguments[i], "install");
        }
    }
    if (options.version.empty())
        throw UsageError("install needs --version VERSION: " + versionAccepted);
    // Without a home, and without --dir, there is no folder: install() refuses (never "/Applications").
    options.folder = folder.value_or(home.empty() ? "" : home + "/Applications");
    if (folder) {
        struct stat status;
        std::string parent = parentOf(*folder);
        if (folder->empty() || stat(parent.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
            throw UsageError("--dir takes a folder whose parent exists; \"" + parent + "\" is not a folder");
    }
    return options;
}

ServeOptions parseServeOptions(const std::vector<std::string> &arguments)
{
    ServeOptions options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string &argument = arguments[i];
        if (argument == "--result") {
            options.result = valueOf(arguments, i, "CODE:TEXT, such as 1:OK");
            if (options.result.find(':') == std::string::npos)
                throw UsageError("--result takes CODE:TEXT, such as 1:OK or 0:Error YumoClientNotSignIn, not \"" + options.result + "\"");
        } else if (argument == "--presence") {
            const char *accepted = "a whole number";
            options.presence = static_cast<int>(wholeNumber(valueOf(arguments, i, accepted), argument, accepted, INT_MIN, INT_MAX));
        } else if (argument == "--seconds") {
            const char *accepted = "a whole number of seconds from 0";
            options.seconds = static_cast<int>(wholeNumber(valueOf(arguments, i, accepted), argument, accepted, 0, INT_MAX));
        } else if (argument == "--quiet") {
            options.quiet = true;
        } else if (argument == "--no-audio-events") {
            options.audioEvents = false;
        } else if (argument == "--presence-at-top-level") {
            options.presenceAtTopLevel = true;
        } else {
            unknown(argument, "the simulator");
        }
    }
    return options;
}
