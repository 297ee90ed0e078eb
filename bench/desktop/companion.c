/* companion: the smallest companions, for the figures that watch one from outside.
 *
 *   companion idle             creates the SDK (one call) and never runs its main loop (figure 2)
 *   companion loop SECONDS     creates the SDK and runs its main loop for SECONDS (figure 4)
 *   companion first-call       times the first call, ymGetSDKAvailableFeatures(), and prints
 *                              "first_call_ms N" (figure 3)
 */
#include <YumoClientSdk/ymSdkC.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

int main(int argc, char **argv)
{
    if (argc >= 2 && !strcmp(argv[1], "idle")) {
        ymGetSDKAvailableFeatures();
        for (;;)
            pause();
    }
    if (argc >= 3 && !strcmp(argv[1], "loop")) {
        ymGetSDKAvailableFeatures();
        ymRunMainLoopFor((int64_t)(atof(argv[2]) * 1000));
        _exit(0);
    }
    if (argc >= 2 && !strcmp(argv[1], "first-call")) {
        double start = now();
        int64_t features = ymGetSDKAvailableFeatures();
        double elapsed = now() - start;
        printf("first_call_ms %.1f features %lld\n", elapsed * 1000, (long long)features);
        fflush(stdout);
        _exit(0);
    }
    fprintf(stderr, "usage: companion idle | loop SECONDS | first-call\n");
    return 64;
}
