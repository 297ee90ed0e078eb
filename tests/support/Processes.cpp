#include "support/Processes.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/prctl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/ymPropertyList.h"
#include "support/TestSupport.h"

extern char **environ;

namespace ymtest {

std::string makeAppBundle(const std::string &folder, const std::string &name, const std::string &identifier,
                          const std::optional<std::string> &version, const std::string &executableName,
                          const std::string &executableSource, bool binaryPlist)
{
    std::string bundle = folder + "/" + name;
    std::filesystem::create_directories(bundle + "/Contents/MacOS");
    ymValue::Members info = {{"CFBundleIdentifier", identifier}, {"CFBundleExecutable", executableName}};
    if (version)
        info.emplace_back("CFBundleVersion", *version);
    writeFile(bundle + "/Contents/Info.plist", ymPropertyList::serialize(ymValue::dictionary(info), binaryPlist));
    std::filesystem::copy_file(executableSource, bundle + "/Contents/MacOS/" + executableName,
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(bundle + "/Contents/MacOS/" + executableName, std::filesystem::perms(0755));
    return bundle;
}

ChildProcess::ChildProcess(const std::string &program, const std::vector<std::string> &arguments, bool withStandardError)
{
    int output[2], report[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(report, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(program.c_str()));
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t parent = getpid();
    _pid = fork();
    if (_pid == 0) {
        // A test that ctest kills (a timeout) takes its children with it: a simulator left
        // behind would look like a running meeting client to every test after it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
        dup2(output[1], STDOUT_FILENO);
        if (withStandardError)
            dup2(output[1], STDERR_FILENO);
        execve(program.c_str(), argv.data(), environ);
        int error = errno;
        (void)!write(report[1], &error, sizeof error);
        _exit(127);
    }
    close(output[1]);
    close(report[1]);
    _output = output[0];
    int error = 0;
    bool execFailed = _pid > 0 && read(report[0], &error, sizeof error) == sizeof error;  // EOF once exec succeeded
    close(report[0]);
    if (_pid < 0 || execFailed) {
        if (_pid > 0)
            waitpid(_pid, nullptr, 0);
        _reaped = true;
        throw std::runtime_error("cannot start " + program);
    }
}

ChildProcess::~ChildProcess()
{
    if (!_reaped) {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    close(_output);
}

std::optional<std::string> ChildProcess::readLine()
{
    for (;;) {
        size_t newline = _buffered.find('\n');
        if (newline != std::string::npos) {
            std::string line = _buffered.substr(0, newline);
            _buffered.erase(0, newline + 1);
            return line;
        }
        char buffer[4096];
        ssize_t count = read(_output, buffer, sizeof buffer);
        if (count <= 0)
            return std::nullopt;
        _buffered.append(buffer, static_cast<size_t>(count));
    }
}

int ChildProcess::wait()
{
    int status = 0;
    waitpid(_pid, &status, 0);
    _reaped = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string helperProgram(const std::string &name) { return std::string(YMSDK_TEST_BINARY_DIR) + "/" + name; }

std::string toolProgram(const std::string &name) { return std::string(YMSDK_TOOLS_BINARY_DIR) + "/" + name; }

bool eventuallyRuns(pid_t pid, const std::string &executable)
{
    return eventually([&] {
        std::error_code error;
        return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error).string() == executable;
    });
}

namespace {

std::string applicationsFolder()
{
    const char *home = std::getenv("HOME");
    return std::string(home ? home : "") + "/Applications";
}

}  // namespace

RunningClient RunningClient::simulator(const std::string &version, const std::vector<std::string> &arguments)
{
    ChildProcess install(toolProgram("ymsim"), {"install", "--version", version});
    if (install.wait() != 0)
        throw std::runtime_error("ymsim install failed");
    auto process = std::make_unique<ChildProcess>(applicationsFolder() + "/yumoapp.app/Contents/MacOS/yumoapp", arguments);
    if (process->readLine() != "ready")
        throw std::runtime_error("the simulator did not start");
    return RunningClient(std::move(process));
}

RunningClient RunningClient::silent(const std::string &version, const std::optional<std::string> &folder)
{
    std::string where = folder.value_or(applicationsFolder());
    std::error_code ignored;
    std::filesystem::remove_all(where + "/yumoapp.app", ignored);
    const std::string executable = makeAppBundle(where, "yumoapp.app", "com.yumocorp.yumoapp", version) + "/Contents/MacOS/yumoapp";
    auto process = std::make_unique<ChildProcess>(executable, std::vector<std::string>{"300"});
    if (!eventuallyRuns(process->pid(), executable))
        throw std::runtime_error("the client process did not show");
    return RunningClient(std::move(process));
}

namespace {

// Takes every inotify instance its user may have, and gives back eight at each SIGUSR1. Its first
// line tells how taking them ended: "held" when the user's limit was reached, "beyond one process"
// when this machine cannot give the test that, rather than when something went wrong.
const char *const kInotifyHolder = R"(import ctypes, errno, os, resource, signal
libc = ctypes.CDLL(None, use_errno=True)
# As many descriptors as this process may have: the user's limit can lie above the process's first one.
resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
held = []
while len(held) < 65536 and (fd := libc.inotify_init1(os.O_CLOEXEC)) >= 0:
    held.append(fd)
error = ctypes.get_errno() if len(held) < 65536 else 0
try:  # EMFILE while a descriptor can still be had: the user's limit was reached, not the process's
    os.close(os.dup(1))
    spare = True
except OSError:
    spare = False
signal.signal(signal.SIGUSR1, lambda *_: [os.close(held.pop()) for _ in range(min(8, len(held)))])
outcome = ("held" if error == errno.EMFILE and spare
           else "beyond one process" if error in (0, errno.EMFILE) else "stopped")
print(f"{outcome}: {os.strerror(error)}, {len(held)} taken, with a limit of",
      resource.getrlimit(resource.RLIMIT_NOFILE)[0], "descriptors", flush=True)
while True:
    signal.pause()
)";

}  // namespace

std::vector<std::string> asUser(uid_t user, const std::string &program, std::vector<std::string> arguments)
{
    const std::string id = std::to_string(user);
    arguments.insert(arguments.begin(), {"--reuid=" + id, "--regid=" + id, "--clear-groups", "--", program});
    return arguments;
}

InotifyInstancesHeld::InotifyInstancesHeld(uid_t user)
    : _holder("/usr/bin/setpriv", asUser(user, "/usr/bin/python3", {"-c", kInotifyHolder}), true),
      _outcome(_holder.readLine().value_or("the holder ended without a word"))
{
}

void InotifyInstancesHeld::giveBackEight() { kill(_holder.pid(), SIGUSR1); }

int inotifyInstances(pid_t pid)
{
    int count = 0;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error))
        count += std::filesystem::read_symlink(entry.path(), error).string() == "anon_inode:inotify";
    return count;
}

}  // namespace ymtest
