#include "platform/ymWorkspace.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <cerrno>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymBundle.h"
#include "platform/ymNSLog.h"
#include "platform/ymProcessTable.h"

extern char **environ;

namespace ymWorkspace {
namespace {

bool hasPackageExtension(const std::string &path)
{
    std::string name = path;
    while (name.size() > 1 && name.back() == '/')
        name.pop_back();
    size_t slash = name.find_last_of('/');
    if (slash != std::string::npos)
        name = name.substr(slash + 1);
    size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0)
        return false;
    std::string extension = name.substr(dot + 1);
    for (const char *known : {"app", "bundle", "framework", "plugin", "pkg"})
        if (extension == known)
            return true;
    return false;
}

std::optional<std::string> findBundleWithIdentifier(const std::string &folder, const std::string &bundleIdentifier)
{
    DIR *directory = opendir(folder.c_str());
    if (!directory)
        return std::nullopt;
    std::optional<std::string> found;
    while (struct dirent *entry = readdir(directory)) {
        std::string candidate = folder + "/" + entry->d_name;
        if (entry->d_name[0] == '.' || !isFilePackageAtPath(candidate))
            continue;
        if (ymBundle::bundleIdentifier(candidate) == bundleIdentifier) {
            found = candidate;
            break;
        }
    }
    closedir(directory);
    return found;
}

}  // namespace

bool isFilePackageAtPath(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && hasPackageExtension(path);
}

std::vector<RunningApplication> runningApplications()
{
    std::vector<RunningApplication> applications;
    for (const ymProcessTable::Process &process : ymProcessTable::applicationProcesses())
        if (std::optional<std::string> bundle = ymBundle::bundlePathOfExecutable(process.executable))
            applications.push_back({process.pid, std::move(*bundle)});
    return applications;
}

bool isApplicationRunning(const std::string &bundleIdentifier)
{
    for (const RunningApplication &application : runningApplications())
        if (ymBundle::bundleIdentifier(application.bundlePath) == bundleIdentifier)
            return true;
    return false;
}

std::string userApplicationsDirectory()
{
    const char *home = std::getenv("HOME");
    std::string path = home ? home : "";
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path + "/Applications";
}

std::optional<std::string> absolutePathForAppBundleWithIdentifier(const std::string &bundleIdentifier)
{
    if (std::optional<std::string> found = findBundleWithIdentifier("/Applications", bundleIdentifier))
        return found;
    return findBundleWithIdentifier(userApplicationsDirectory(), bundleIdentifier);
}

pid_t launchDetached(const std::string &executablePath, const std::vector<std::string> &arguments)
{
    // Forked twice, so that the application is nobody's child here (never a zombie of ours) and
    // leads a session of its own. Between fork and exec only async-signal-safe calls are made.
    std::vector<char *> argv(arguments.size() + 2, nullptr);  // the last stays null: the end of the list
    argv[0] = const_cast<char *>(executablePath.c_str());
    for (size_t i = 0; i < arguments.size(); ++i)
        argv[i + 1] = const_cast<char *>(arguments[i].c_str());

    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
        return -1;
    ymNSLogFlush();  // the application writes to the same standard error: after the lines before it
    pid_t intermediate = fork();
    if (intermediate < 0) {
        close(report[0]);
        close(report[1]);
        return -1;
    }
    if (intermediate == 0) {
        setsid();
        pid_t application = fork();
        if (application > 0) {
            // Tell the launcher which process the application is, and leave.
            (void)!write(report[1], &application, sizeof application);
            _exit(0);
        }
        if (application < 0)
            _exit(1);
        int devNull = open("/dev/null", O_RDWR);
        if (devNull >= 0) {
            dup2(devNull, STDIN_FILENO);
            dup2(devNull, STDOUT_FILENO);
            dup2(devNull, STDERR_FILENO);
            if (devNull > STDERR_FILENO)
                close(devNull);
        }
        execve(executablePath.c_str(), argv.data(), environ);
        int error = errno;  // exec failed: say why through the pipe
        (void)!write(report[1], &error, sizeof error);
        _exit(127);
    }
    close(report[1]);
    int status = 0;
    while (waitpid(intermediate, &status, 0) < 0 && errno == EINTR) {
    }
    pid_t application = -1;
    ssize_t count = read(report[0], &application, sizeof application);
    int execError = 0;
    ssize_t failed = read(report[0], &execError, sizeof execError);  // EOF once exec succeeded
    close(report[0]);
    if (count != sizeof application || failed > 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return application;
}

}  // namespace ymWorkspace
