/* The C side of the module's benchmark: the same work as round_trips.mjs, through the C interface,
 * served by the SDK's own loop. Prints one JSON line:
 *   {"presenceMedianMicroseconds":..., "audioCommandsMilliseconds":..., "audioEvents":...}
 * Usage: round_trips PRESENCE_ROUNDS AUDIO_COMMANDS */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <YumoClientSdk/ymSdkC.h>

static int presenceAnswers;
static int audioEvents;

static void presence(const ymPresenceStatus *status, void *context)
{
    (void)status;
    (void)context;
    presenceAnswers++;
}

static void audio(const ymAudioInfo *info, void *context)
{
    (void)info;
    (void)context;
    audioEvents++;
}

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

static int compare(const void *a, const void *b)
{
    double x = *(const double *)a, y = *(const double *)b;
    return (x > y) - (x < y);
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: round_trips PRESENCE_ROUNDS AUDIO_COMMANDS\n");
        return 64;
    }
    char *end1 = NULL, *end2 = NULL;
    long rounds = strtol(argv[1], &end1, 10), commands = strtol(argv[2], &end2, 10);
    if (*end1 != '\0' || rounds < 1 || rounds > 1000000) {
        fprintf(stderr, "round_trips: PRESENCE_ROUNDS must be a whole number from 1 to 1000000, not \"%s\"\n", argv[1]);
        return 64;
    }
    if (*end2 != '\0' || commands < 1 || commands > 10000000) {
        fprintf(stderr, "round_trips: AUDIO_COMMANDS must be a whole number from 1 to 10000000, not \"%s\"\n", argv[2]);
        return 64;
    }
    double *samples = calloc((size_t)rounds, sizeof *samples);
    ymSetTakesStandardError(NO);
    ymSetPresenceStatusCallback(presence, NULL);
    ymSetAudioInfoCallback(audio, NULL);
    ymRegisterAudioDevice("Headset", "1", 2830, 3);
    for (long i = -10; i < rounds; i++) {  /* ten rounds to warm up */
        int before = presenceAnswers;
        double start = now();
        if (ymGetIMPresenceStatus() != ymCommandStatusSent)
            return 1;
        while (presenceAnswers == before)
            ymRunMainLoopFor(1);
        if (i >= 0)
            samples[i] = now() - start;
    }
    qsort(samples, (size_t)rounds, sizeof *samples, compare);
    double start = now();
    for (long i = 0; i < commands; i++)
        ymSetAudioCmd(1, "1", "Headset", 2830, 3);
    while (audioEvents < commands && now() - start < 60e6)
        ymRunMainLoopFor(10);
    double elapsed = now() - start;
    printf("{\"presenceMedianMicroseconds\":%.1f,\"audioCommandsMilliseconds\":%.1f,\"audioEvents\":%d}\n",
           samples[rounds / 2], elapsed / 1e3, audioEvents);
    ymCleanupAudioDevices();
    free(samples);
    return 0;
}
