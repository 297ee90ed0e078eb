// forks: a busy companion that forks children which use the SDK (figure 5).
//
//   forks CHILDREN CAP_SECONDS PAUSE_US
//
// The simulated meeting client (5.6.0) runs under the same $HOME. The parent registers the device
// "ParentHeadset" #1, asks for presence once (answered), then a thread of it sends audio command 5
// for its device, pausing PAUSE_US between commands, while the main thread forks CHILDREN
// children, one after another.
// Each child asks for presence, sends audio command 7 for the parent's device, cleans up its
// devices (ymCleanupAudioDevices(), as a companion does before it quits) and exits. A child that
// has not ended within CAP_SECONDS counts as hung and is killed. Prints
//   children N hung N failed N forks_s X parent_cpu_s X io_cpu_s X idle_cpu_s X commands N
//   us_per_command X us_per_command_alone X
// parent_cpu_s: the parent's CPU time over the forks (all its threads), commands: what the sender
// sent meanwhile, us_per_command: the sending thread's CPU per command over the forks,
// us_per_command_alone: the same over 2 s of the sender alone before the forks; io_cpu_s: the CPU
// of the parent's I/O thread over the forks; idle_cpu_s: the parent's CPU over 2 s after the forks,
// its sender stopped, running its main loop. The parent does not clean up: the script looks at the
// shared list after.
#include <YumoClientSdk/ymSdkC.h>

#include <sys/resource.h>

#include <atomic>
#include <thread>

#include "desktop.h"

namespace {
std::atomic<long> answers{0};
void onPresence(const ymPresenceStatus *, void *) { answers.fetch_add(1); }

double processCpu()
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}
}  // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: forks CHILDREN CAP_SECONDS PAUSE_US\n");
        return 64;
    }
    int children = std::atoi(argv[1]);
    double cap = std::atof(argv[2]);
    long pauseUs = std::atol(argv[3]);
    const char *kName = "ParentHeadset";

    ymSetPresenceStatusCallback(onPresence, nullptr);
    ymRegisterAudioDevice(kName, "1", 2830, 3);
    ymGetIMPresenceStatus();
    for (int i = 0; i < 50 && answers.load() == 0; ++i)
        ymRunMainLoopFor(100);

    std::atomic<bool> stop{false};
    std::atomic<long> commands{0};
    std::atomic<long> senderTid{0};
    std::thread sender([&] {
        senderTid.store(static_cast<long>(syscall(SYS_gettid)));
        while (!stop.load(std::memory_order_relaxed)) {
            ymSetAudioCmd(5, "1", kName, 2830, 3);
            commands.fetch_add(1, std::memory_order_relaxed);
            if (pauseUs > 0)
                usleep(static_cast<useconds_t>(pauseUs));
        }
    });

    // The sender alone first: what its commands cost the parent without forks.
    pid_t self = getpid();
    ymRunMainLoopFor(100);
    std::string senderTask = desk::taskPath(self, senderTid.load());
    double aloneCpu = desk::taskCpuSeconds(senderTask);
    long aloneCommands = commands.load();
    ymRunMainLoopFor(2000);
    aloneCpu = desk::taskCpuSeconds(senderTask) - aloneCpu;
    aloneCommands = commands.load() - aloneCommands;

    long ioThread = desk::findThread(self, desk::kIOThreadName);
    double ioBefore = ioThread > 0 ? desk::taskCpuSeconds(desk::taskPath(self, ioThread)) : 0;
    double cpuBefore = processCpu();
    double senderBefore = desk::taskCpuSeconds(senderTask);
    long commandsBefore = commands.load();
    double forksStart = desk::monotonic();
    int hung = 0, failed = 0;
    for (int i = 0; i < children; ++i) {
        std::fflush(stdout);
        pid_t child = fork();
        if (child == 0) {
            ymGetIMPresenceStatus();
            ymSetAudioCmd(7, "1", kName, 2830, 3);
            ymCleanupAudioDevices();
            std::exit(0);
        }
        if (child < 0) {
            ++failed;
            continue;
        }
        int status = 0;
        if (!desk::waitChild(child, cap, &status)) {
            ++hung;
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ++failed;
        }
        ymDispatchMainLoop();
    }
    double cpuForks = processCpu() - cpuBefore;
    double senderCpu = desk::taskCpuSeconds(senderTask) - senderBefore;
    double forksSeconds = desk::monotonic() - forksStart;
    long forkCommands = commands.load() - commandsBefore;
    long ioNow = desk::findThread(self, desk::kIOThreadName);
    double ioCpu = ioNow > 0 && ioNow == ioThread ? desk::taskCpuSeconds(desk::taskPath(self, ioThread)) - ioBefore : -1;
    stop.store(true);
    sender.join();

    double idleBefore = processCpu();
    ymRunMainLoopFor(2000);
    double idleCpu = processCpu() - idleBefore;
    std::printf("children %d hung %d failed %d forks_s %.1f parent_cpu_s %.2f io_cpu_s %.2f idle_cpu_s %.2f commands %ld "
                "us_per_command %.0f us_per_command_alone %.0f\n",
                children, hung, failed, forksSeconds, cpuForks, ioCpu, idleCpu, forkCommands,
                forkCommands ? 1e6 * senderCpu / static_cast<double>(forkCommands) : 0.0,
                aloneCommands ? 1e6 * aloneCpu / static_cast<double>(aloneCommands) : 0.0);
    std::fflush(stdout);
    _exit(0);
}
