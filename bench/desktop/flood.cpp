// flood: presence asked from many threads at once, then a drain (figure 1).
//
//   flood THREADS FLOOD_SECONDS DRAIN_SECONDS
//
// The simulated meeting client (5.6.0, sockets) must be running under the same $HOME. One request
// first, answered, so that the connection is up; then THREADS threads call ymGetIMPresenceStatus()
// as fast as they can for FLOOD_SECONDS while the main thread runs the SDK's main loop; then the
// main loop runs DRAIN_SECONDS more. Prints
//   calls N nonzero N answers N
// (every call counted, the warm-up one too; answers delivered to the presence callback). The
// script compares N with what the simulator says it received.
#include <YumoClientSdk/ymSdkC.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {
std::atomic<long> answers{0};
void onPresence(const ymPresenceStatus *, void *) { answers.fetch_add(1); }
}  // namespace

int main(int argc, char **argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: flood THREADS FLOOD_SECONDS DRAIN_SECONDS\n");
        return 64;
    }
    int threads = std::atoi(argv[1]);
    double floodSeconds = std::atof(argv[2]);
    double drainSeconds = std::atof(argv[3]);

    ymSetPresenceStatusCallback(onPresence, nullptr);
    std::atomic<long> calls{0}, nonzero{0};
    // Warm-up: the connection is up and answered once.
    calls.fetch_add(1);
    if (ymGetIMPresenceStatus() != 0)
        nonzero.fetch_add(1);
    for (int i = 0; i < 50 && answers.load() == 0; ++i)
        ymRunMainLoopFor(100);

    std::atomic<bool> stop{false};
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; ++i)
        workers.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                int32_t status = ymGetIMPresenceStatus();
                calls.fetch_add(1, std::memory_order_relaxed);
                if (status != 0)
                    nonzero.fetch_add(1, std::memory_order_relaxed);
            }
        });
    ymRunMainLoopFor(static_cast<int64_t>(floodSeconds * 1000));
    stop.store(true);
    for (std::thread &worker : workers)
        worker.join();
    ymRunMainLoopFor(static_cast<int64_t>(drainSeconds * 1000));
    std::printf("calls %ld nonzero %ld answers %ld\n", calls.load(), nonzero.load(), answers.load());
    std::fflush(stdout);
    // No clean-up: the process ends here, whatever the SDK still holds.
    _exit(0);
}
