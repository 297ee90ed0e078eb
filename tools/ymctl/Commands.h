// The ymctl commands. Each takes the rest of its command line and answers the exit status:
// 0 when the operation succeeded; the SDK's code for a refused command (2, 5, 6, 8); 1 for a NO;
// 75 when an answer did not come in time. A UsageError thrown by a command means exit 64.
#pragma once

#include "Arguments.h"
#include "Output.h"

using Command = int (*)(Arguments &, Output &);

struct CommandInfo {
    const char *name;
    const char *usage;    // the arguments after the name
    const char *summary;  // one line
    Command run;
};

// Every command, in the order the help lists them.
const std::vector<CommandInfo> &allCommands();

// The meeting client and the companion's devices (CommandsClient.cpp).
int runStatus(Arguments &, Output &);
int runPresence(Arguments &, Output &);
int runAudio(Arguments &, Output &);
int runRegister(Arguments &, Output &);
int runDevices(Arguments &, Output &);
int runCleanup(Arguments &, Output &);
int runListen(Arguments &, Output &);
int runWatch(Arguments &, Output &);

// The meeting client checked against the protocol (CommandsCheck.cpp).
int runCheckClient(Arguments &, Output &);

// Launching, Outlook, the OS and signatures (CommandsApp.cpp).
int runLaunch(Arguments &, Output &);
int runActivate(Arguments &, Output &);
int runSilentActivate(Arguments &, Output &);
int runOutlook(Arguments &, Output &);
int runOS(Arguments &, Output &);
int runLanguage(Arguments &, Output &);
int runVerifyApp(Arguments &, Output &);
int runVerifyPkg(Arguments &, Output &);
int runSetBundleId(Arguments &, Output &);

// The file utilities (CommandsFile.cpp).
int runFile(Arguments &, Output &);
