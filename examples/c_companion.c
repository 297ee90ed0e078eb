/* A companion in plain C: the whole main job through the C interface. It registers its headset,
 * asks for the presence status and sends an audio command, waits for each answer on its own
 * poll(2) loop, checks that an event for a device it did not register does not reach it, and
 * cleans up. Exits 0 when all went as it should. */
#include <YumoClientSdk/YumoClientSdk.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

struct answers {
    int presence;
    int audio;
    int strangers;
};

static void onPresence(const ymPresenceStatus *status, void *context)
{
    struct answers *answers = context;
    printf("presence: error=%d code=%d text=%s status=%d\n", status->error, status->code,
           status->text ? status->text : "(none)", status->presenceStatus);
    answers->presence++;
}

static void onAudio(const ymAudioInfo *info, void *context)
{
    struct answers *answers = context;
    printf("audio event: command %d for %s #%s\n", info->audioCmd, info->deviceName ? info->deviceName : "?",
           info->deviceIndex);
    if (info->deviceName && strcmp(info->deviceName, "Headset") == 0)
        answers->audio++;
    else
        answers->strangers++;
}

/* Runs the program's own loop until `*count` reaches `wanted`, or for at most `seconds`. */
static void waitFor(const int *count, int wanted, int seconds)
{
    struct pollfd watched = {ymGetMainLoopDescriptor(), POLLIN, 0};
    time_t deadline = time(NULL) + seconds;
    while (*count < wanted && time(NULL) < deadline) {
        if (poll(&watched, 1, 100) > 0)
            ymDispatchMainLoop();
    }
}

int main(void)
{
    struct answers answers = {0, 0, 0};
    ymSetPresenceStatusCallback(onPresence, &answers);
    ymSetAudioInfoCallback(onAudio, &answers);
    if (!ymRegisterAudioDevice("Headset", "1", 2830, 3)) {
        fprintf(stderr, "registration refused\n");
        return 1;
    }
    int32_t status = ymGetIMPresenceStatus();
    printf("ymGetIMPresenceStatus: %d %s\n", status, ymGetErrorText());
    if (status != ymCommandStatusSent)
        return 1;
    waitFor(&answers.presence, 1, 5);
    /* A device of another companion: its event is not delivered here. */
    ymSetAudioCmd(7, "9", "Speaker", 2830, 4);
    ymRunMainLoopFor(300);
    if (ymSetAudioCmd(5, "1", "Headset", 2830, 3) != ymCommandStatusSent)
        return 1;
    waitFor(&answers.audio, 1, 5);
    ymCleanupAudioDevices();
    printf("presence answers %d, audio events %d, events for other devices %d\n", answers.presence, answers.audio,
           answers.strangers);
    return answers.presence >= 1 && answers.audio >= 1 && answers.strangers == 0 ? 0 : 1;
}
