// Real bundles and real child processes for the tests.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ymtest {

// Makes "<folder>/<name>" as an application bundle: Contents/Info.plist (XML, or binary) with the
// identifier, the executable's name and, when given, the version; and a copy of
// `executableSource` as Contents/MacOS/<executableName>. Answers the bundle's path.
std::string makeAppBundle(const std::string &folder, const std::string &name, const std::string &identifier,
                          const std::optional<std::string> &version, const std::string &executableName = "yumoapp",
                          const std::string &executableSource = "/bin/sleep", bool binaryPlist = false);

// A child process, ended (SIGKILL) and reaped when the object goes.
class ChildProcess {
public:
    // Starts the program with the arguments; standard output (and standard error too, when
    // `withStandardError`) goes to a pipe that readLine() reads.
    ChildProcess(const std::string &program, const std::vector<std::string> &arguments, bool withStandardError = false);
    ~ChildProcess();
    pid_t pid() const { return _pid; }
    // The next line of the child's output, without its newline, once it comes (however slowly: a
    // child under a sanitizer is slow); nothing when the child closes its output first.
    std::optional<std::string> readLine();
    // Waits for the child to exit; answers its exit status.
    int wait();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

private:
    pid_t _pid = -1;
    int _output = -1;
    std::string _buffered;
    bool _reaped = false;
};

// Waits until the process runs `executable` (it has exec'd it); answers whether it came to.
bool eventuallyRuns(pid_t pid, const std::string &executable);

// The path of a helper program built beside the tests.
std::string helperProgram(const std::string &name);

// The path of one of the project's tools (ymsim, ymctl).
std::string toolProgram(const std::string &name);

// The arguments that have setpriv run the program as `user` (and its group of the same number, no
// other groups). Needs root.
std::vector<std::string> asUser(uid_t user, const std::string &program, std::vector<std::string> arguments);

// A process of another user that takes every inotify instance that user may have, and gives back
// eight each time it is asked. Needs root.
class InotifyInstancesHeld {
public:
    explicit InotifyInstancesHeld(uid_t user);
    // How taking them ended: "held: ..." when the user's limit was reached; "beyond one process:
    // ..." when this machine cannot give the test that (skip); anything else is a failure.
    const std::string &outcome() const { return _outcome; }
    bool held() const { return _outcome.starts_with("held: "); }
    // Gives eight instances back (asynchronously: the holder closes them when it gets the signal).
    void giveBackEight();

private:
    ChildProcess _holder;
    std::string _outcome;
};

// The inotify instances a process holds.
int inotifyInstances(pid_t pid);

// A meeting client for the tests: a bundle in $HOME/Applications, and a process running from it.
class RunningClient {
public:
    // The simulator installed as the given version, started and serving ("ready"); extra
    // arguments go to the simulator.
    static RunningClient simulator(const std::string &version, const std::vector<std::string> &arguments = {});
    // A bundle of the given version whose executable only sleeps: running, but answering nothing.
    // It is installed in `folder` (by default $HOME/Applications).
    static RunningClient silent(const std::string &version, const std::optional<std::string> &folder = std::nullopt);

    ChildProcess &process() { return *_process; }

private:
    explicit RunningClient(std::unique_ptr<ChildProcess> process) : _process(std::move(process)) {}
    std::unique_ptr<ChildProcess> _process;
};

}  // namespace ymtest
