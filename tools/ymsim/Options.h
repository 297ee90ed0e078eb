// ymsim's command line: what each form takes, checked before anything is done. A usage error is
// one line naming the argument and what it accepts.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// A command line ymsim cannot take: the message is the one line to print (exit status 64).
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ymsim install --version VERSION [--dir FOLDER]
struct InstallOptions {
    std::string version;
    std::string folder;  // where yumoapp.app goes
};

// <bundle>/Contents/MacOS/yumoapp [--result CODE:TEXT] [--presence N] [--seconds S] [--quiet] [--no-audio-events]
struct ServeOptions {
    std::string result = "1:OK";
    int presence = 1;
    int seconds = -1;  // -1: until killed
    bool quiet = false;
    bool audioEvents = true;
    bool presenceAtTopLevel = false;  // answers as a broken meeting client would, for ymctl check-client
};

// The arguments after "install"; `home` gives the default folder.
InstallOptions parseInstallOptions(const std::vector<std::string> &arguments, const std::string &home);

// The arguments of a simulator started from its bundle.
ServeOptions parseServeOptions(const std::vector<std::string> &arguments);

// True when the arguments ask for the help (-h or --help).
bool asksForHelp(const std::vector<std::string> &arguments);

// The help: every form, option and value, and the exit statuses.
extern const char *const kUsage;
