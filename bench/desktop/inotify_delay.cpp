// inotify_delay: how long a companion takes to hear the meeting client start when the user has no
// inotify instance left, and after they are free again (figure 8).
//
//   inotify_delay CLIENT_EXECUTABLE CAP_SECONDS
//
// Run as an ordinary user (the script runs it as uid 65534 with a home of its own), with the
// simulated client installed (5.6.0) but not running. It opens inotify instances until the kernel
// refuses (EMFILE: the user's max_user_instances), starts a companion (this program, "--companion")
// that only listens (a client-state callback), lets it settle 3 s, starts the client, and measures
// the delay until the companion's callback says "started" (ymClientChangeStarted), at most
// CAP_SECONDS. Then it closes its inotify instances, stops the client (waiting at most 10 s for the
// companion to hear it quit), waits 3 s, starts it again and measures again. Prints
//   instances N refused ERRNO started_s X quit_s X started_after_free_s X
// where a delay that reached the cap reads ">CAP".
#include <YumoClientSdk/ymSdkC.h>

#include <sys/inotify.h>

#include <string>
#include <vector>

#include "desktop.h"

namespace {

void onClientState(const ymClientState *state, void *)
{
    std::printf("event %d %d\n", static_cast<int>(state->change), state->running ? 1 : 0);
    std::fflush(stdout);
}

int companion()
{
    ymSetClientStateCallback(onClientState, nullptr);
    // Past the SDK's first quick looks at the client (the first second or so after the watch
    // starts): the client then starts in the companion's steady state.
    ymRunMainLoopFor(3000);
    std::printf("up\n");
    std::fflush(stdout);
    ymRunMainLoop();
    return 0;
}

pid_t startClient(const char *executable)
{
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execl(executable, executable, "--quiet", static_cast<char *>(nullptr));
        _exit(127);
    }
    return pid;
}

// Waits for the companion's line "event CHANGE ..."; answers the delay, or -1 at the cap.
double waitForEvent(int fd, int change, double start, double cap)
{
    std::string wanted = "event " + std::to_string(change) + " ";
    for (;;) {
        double left = start + cap - desk::monotonic();
        if (left <= 0)
            return -1;
        std::string line = desk::readLine(fd, left);
        if (line.rfind(wanted, 0) == 0)
            return desk::monotonic() - start;
        if (line.empty() && desk::monotonic() >= start + cap)
            return -1;
    }
}

std::string delay(double seconds, double cap)
{
    char text[32];
    if (seconds < 0)
        std::snprintf(text, sizeof text, ">%.0f", cap);
    else
        std::snprintf(text, sizeof text, "%.2f", seconds);
    return text;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::string(argv[1]) == "--companion")
        return companion();
    if (argc != 3) {
        std::fprintf(stderr, "usage: inotify_delay CLIENT_EXECUTABLE CAP_SECONDS\n");
        return 64;
    }
    const char *client = argv[1];
    double cap = std::atof(argv[2]);

    std::vector<int> instances;
    int refused = 0;
    for (int i = 0; i < 100000; ++i) {
        int fd = inotify_init1(IN_CLOEXEC);
        if (fd < 0) {
            refused = errno;
            break;
        }
        instances.push_back(fd);
    }

    int lines[2];
    if (pipe(lines) != 0)
        return 1;
    pid_t listener = fork();
    if (listener == 0) {
        for (int fd : instances)
            close(fd);
        dup2(lines[1], STDOUT_FILENO);
        close(lines[0]);
        close(lines[1]);
        execl("/proc/self/exe", argv[0], "--companion", static_cast<char *>(nullptr));
        _exit(127);
    }
    close(lines[1]);
    if (desk::readLine(lines[0], 30) != "up") {
        std::printf("instances %zu refused %s started_s - quit_s - started_after_free_s - (the companion did not start)\n",
                    instances.size(), refused ? strerrorname_np(refused) : "none");
        kill(listener, SIGKILL);
        return 1;
    }

    double start = desk::monotonic();
    pid_t running = startClient(client);
    double started = waitForEvent(lines[0], 1, start, cap);

    for (int fd : instances)
        close(fd);
    kill(running, SIGTERM);
    waitpid(running, nullptr, 0);
    double quit = waitForEvent(lines[0], 2, desk::monotonic(), 10);
    usleep(3000000);  // past the quick looks that follow a change

    start = desk::monotonic();
    running = startClient(client);
    double again = waitForEvent(lines[0], 1, start, cap);
    kill(running, SIGTERM);
    waitpid(running, nullptr, 0);
    kill(listener, SIGKILL);
    waitpid(listener, nullptr, 0);

    std::printf("instances %zu refused %s started_s %s quit_s %s started_after_free_s %s\n", instances.size(),
                refused ? strerrorname_np(refused) : "none", delay(started, cap).c_str(), delay(quit, 10).c_str(),
                delay(again, cap).c_str());
    std::fflush(stdout);
    return 0;
}
