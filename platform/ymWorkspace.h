// The workspace: file packages, the running applications, finding and launching applications.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ymWorkspace {

// A folder whose extension makes it one item: app, bundle, framework, plugin or pkg.
bool isFilePackageAtPath(const std::string &path);

struct RunningApplication {
    pid_t pid;
    std::string bundlePath;
};

// Every process of this user (real uid) whose executable lies in "<X.app>/Contents/MacOS/".
std::vector<RunningApplication> runningApplications();

// True when a running application's bundle has the identifier.
bool isApplicationRunning(const std::string &bundleIdentifier);

// The user's Applications folder, "$HOME/Applications".
std::string userApplicationsDirectory();

// The first bundle with the identifier directly in /Applications or the user's Applications
// folder; nothing when there is none.
std::optional<std::string> absolutePathForAppBundleWithIdentifier(const std::string &bundleIdentifier);

// Starts the executable detached from this process (a session of its own, not a child of this
// process, no wait) with the caller's environment; its standard streams are /dev/null. Answers
// the new process's id, or -1 when it could not be started (exec failures included).
pid_t launchDetached(const std::string &executablePath, const std::vector<std::string> &arguments = {});

}  // namespace ymWorkspace
