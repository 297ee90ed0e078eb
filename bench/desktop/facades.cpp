// facades: handlers run for one notification after facades were created and released (figure 7).
//
//   facades COUNT
//
// The simulated meeting client runs as version 5.5.0 (notification transport) under the same
// $HOME. COUNT facades are created (ymSdkImplement::create()) and released. Then the shared facade
// asks for presence once; the simulator posts one answer notification. The log lines
// ">> -[ymIPCMsgMgr onYumoClientMessageResponse:]" written after the request are counted (one per
// notification manager that handled the answer). Prints
//   handlers N answered 0|1
#include <YumoClientSdk/ymSdkC.h>
#include <YumoClientSdk/ymSdkImplement.h>

#include <atomic>

#include "desktop.h"

namespace {
std::atomic<long> answers{0};
void onPresence(const ymPresenceStatus *, void *) { answers.fetch_add(1); }

long countHandlerLines()
{
    std::string log = desk::readFile(desk::logPath());
    const std::string marker = ">> -[ymIPCMsgMgr onYumoClientMessageResponse:]";
    long count = 0;
    for (size_t at = log.find(marker); at != std::string::npos; at = log.find(marker, at + 1))
        ++count;
    return count;
}
}  // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: facades COUNT\n");
        return 64;
    }
    int count = std::atoi(argv[1]);
    for (int i = 0; i < count; ++i) {
        std::shared_ptr<ymSdkImplement> facade = ymSdkImplement::create();
        facade.reset();
    }
    ymSetPresenceStatusCallback(onPresence, nullptr);  // the shared facade
    ymRunMainLoopFor(200);
    long before = countHandlerLines();
    ymGetIMPresenceStatus();
    for (int i = 0; i < 50 && answers.load() == 0; ++i)
        ymRunMainLoopFor(100);
    ymRunMainLoopFor(1000);  // every handler that will run has run
    long after = countHandlerLines();
    std::printf("handlers %ld answered %ld\n", after - before, answers.load());
    std::fflush(stdout);
    _exit(0);
}
