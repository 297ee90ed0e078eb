#include "support/Processes.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
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
    ymPropertyList::Node info(plist_new_dict());
    plist_dict_set_item(info.get(), "CFBundleIdentifier", plist_new_string(identifier.c_str()));
    plist_dict_set_item(info.get(), "CFBundleExecutable", plist_new_string(executableName.c_str()));
    if (version)
        plist_dict_set_item(info.get(), "CFBundleVersion", plist_new_string(version->c_str()));
    writeFile(bundle + "/Contents/Info.plist", ymPropertyList::serialize(info.get(), binaryPlist));
    std::filesystem::copy_file(executableSource, bundle + "/Contents/MacOS/" + executableName,
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(bundle + "/Contents/MacOS/" + executableName, std::filesystem::perms(0755));
    return bundle;
}

ChildProcess::ChildProcess(const std::string &program, const std::vector<std::string> &arguments)
{
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(program.c_str()));
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    int failed = posix_spawn(&_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    _output = pipeFds[0];
    if (failed)
        throw std::runtime_error("cannot start " + program);
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
        struct pollfd ready = {_output, POLLIN, 0};
        if (poll(&ready, 1, 20000) <= 0)
            return std::nullopt;
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

namespace {

std::string applicationsFolder()
{
    const char *home = std::getenv("HOME");
    return std::string(home ? home : "") + "/Applications";
}

bool clientIsRunning()
{
    return eventually([] {
               for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
                   std::error_code error;
                   std::filesystem::path exe = std::filesystem::read_symlink(entry.path() / "exe", error);
                   if (!error && exe.string().find(applicationsFolder() + "/yumoapp.app/Contents/MacOS/") == 0)
                       return true;
               }
               return false;
           });
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

RunningClient RunningClient::silent(const std::string &version)
{
    std::error_code ignored;
    std::filesystem::remove_all(applicationsFolder() + "/yumoapp.app", ignored);
    std::string bundle = makeAppBundle(applicationsFolder(), "yumoapp.app", "com.yumocorp.yumoapp", version);
    auto process = std::make_unique<ChildProcess>(bundle + "/Contents/MacOS/yumoapp", std::vector<std::string>{"300"});
    if (!clientIsRunning())
        throw std::runtime_error("the client process did not show");
    return RunningClient(std::move(process));
}

}  // namespace ymtest
