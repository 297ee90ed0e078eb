#include "platform/ymTask.h"

#include "platform/ymNSLog.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace ymTask {
namespace {

// Starts "/bin/sh -c commandLine"; when outputFd is not -1 it becomes the child's standard output.
pid_t spawnShell(const std::string &commandLine, int outputFd)
{
    ymNSLogFlush();  // the child writes to the same standard error: after the lines before it
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (outputFd >= 0)
        posix_spawn_file_actions_adddup2(&actions, outputFd, STDOUT_FILENO);

    const char *argv[] = {"/bin/sh", "-c", commandLine.c_str(), nullptr};
    pid_t pid = -1;
    int failed = posix_spawn(&pid, "/bin/sh", &actions, nullptr, const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? -1 : pid;
}

int32_t waitForExit(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return WTERMSIG(status);
    return -1;
}

}  // namespace

int32_t runShell(const std::string &commandLine)
{
    pid_t pid = spawnShell(commandLine, -1);
    if (pid < 0)
        return -1;
    return waitForExit(pid);
}

std::optional<std::string> runShellCapturingOutput(const std::string &commandLine)
{
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        return std::nullopt;
    pid_t pid = spawnShell(commandLine, pipeFds[1]);
    close(pipeFds[1]);
    if (pid < 0) {
        close(pipeFds[0]);
        return std::nullopt;
    }
    std::string output;
    char buffer[4096];
    for (;;) {
        ssize_t count = read(pipeFds[0], buffer, sizeof buffer);
        if (count > 0) {
            output.append(buffer, static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    close(pipeFds[0]);
    // The status is not wanted, but the child is reaped so that no zombie is left behind.
    waitForExit(pid);
    return output;
}

}  // namespace ymTask
