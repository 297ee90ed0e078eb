// A child process for the benchmarks: started with its output on a pipe, killed and reaped when
// the object goes.
#pragma once

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace bench {

class Child {
public:
    Child(const std::string &program, const std::vector<std::string> &arguments, bool quietOutput = false)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (quietOutput)
            posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        else
            posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        std::vector<char *> argv{const_cast<char *>(program.c_str())};
        for (const std::string &argument : arguments)
            argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        if (posix_spawn(&_pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0)
            throw std::runtime_error("cannot start " + program);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        _output = fds[0];
    }
    ~Child()
    {
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
        close(_output);
    }
    // The next line of output, waiting at most `timeoutSeconds` for each byte.
    std::string readLine(int timeoutSeconds = 30)
    {
        std::string line;
        char c;
        struct pollfd ready = {_output, POLLIN, 0};
        while (poll(&ready, 1, timeoutSeconds * 1000) > 0 && read(_output, &c, 1) == 1 && c != '\n')
            line.push_back(c);
        return line;
    }

    pid_t pid() const { return _pid; }

private:
    pid_t _pid = -1;
    int _output = -1;
};


}  // namespace bench
