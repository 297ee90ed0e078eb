// wakeups: a companion that follows the meeting client while its home folder is busy (figure 6).
//
//   wakeups SECONDS APPENDS_PER_SECOND
//
// $HOME has no Applications folder and no meeting client. The companion sets a client-state
// callback and runs its main loop throughout. After 2 s of settling, the voluntary context switches
// of the SDK's I/O thread ("yumosdk-io") are read over SECONDS of quiet, then while a shell appends
// a line to $HOME/busy.txt (`echo line >> file`) SECONDS * APPENDS_PER_SECOND times, sleeping
// 1/APPENDS_PER_SECOND s between appends. Prints
//   quiet N busy N appends N busy_s X
#include <YumoClientSdk/ymSdkC.h>

#include "desktop.h"

namespace {
void onClientState(const ymClientState *, void *) {}

long long switches(pid_t pid, long tid)
{
    if (tid <= 0)
        return -1;
    return desk::statusField(desk::taskPath(pid, tid) + "/status", "voluntary_ctxt_switches");
}
}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: wakeups SECONDS APPENDS_PER_SECOND\n");
        return 64;
    }
    double seconds = std::atof(argv[1]);
    int rate = std::atoi(argv[2]);
    int appends = static_cast<int>(seconds * rate);

    // The appending shell is forked before the SDK exists, and waits for its start. `sleep` paces
    // it, so the whole takes a little longer than SECONDS.
    int go[2];
    if (pipe(go) != 0)
        return 1;
    pid_t appender = fork();
    if (appender == 0) {
        close(go[1]);
        char byte;
        if (read(go[0], &byte, 1) != 1)
            _exit(1);
        char script[256];
        std::snprintf(script, sizeof script,
                      "i=0; while [ $i -lt %d ]; do echo \"line $i\" >> \"$HOME/busy.txt\"; i=$((i + 1)); sleep %.4f; done",
                      appends, 1.0 / rate);
        execl("/bin/sh", "sh", "-c", script, static_cast<char *>(nullptr));
        _exit(127);
    }
    close(go[0]);

    ymSetClientStateCallback(onClientState, nullptr);
    ymRunMainLoopFor(2000);
    pid_t self = getpid();
    long io = desk::findThread(self, desk::kIOThreadName);
    long long start = switches(self, io);
    ymRunMainLoopFor(static_cast<int64_t>(seconds * 1000));
    long long quiet = switches(self, io);
    if (write(go[1], "g", 1) != 1)
        return 1;
    double busyStart = desk::monotonic();
    while (waitpid(appender, nullptr, WNOHANG) != appender)
        ymRunMainLoopFor(20);
    double busySeconds = desk::monotonic() - busyStart;
    long long busy = switches(self, io);
    if (io <= 0 || start < 0 || busy < 0) {
        std::printf("quiet -1 busy -1 appends %d (no %s thread)\n", appends, desk::kIOThreadName);
        _exit(0);
    }
    std::printf("quiet %lld busy %lld appends %d busy_s %.2f\n", quiet - start, busy - quiet, appends, busySeconds);
    std::fflush(stdout);
    _exit(0);
}
