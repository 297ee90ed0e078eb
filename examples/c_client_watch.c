/* A companion in plain C that follows the meeting client: prints the client as it is, then a line
 * each time it starts, quits, is updated, installed, removed or moved, and registers its headset
 * again each time the client starts. Its own poll(2) loop runs until SIGINT or SIGTERM; then it
 * exits 0. */
#define _POSIX_C_SOURCE 200809L
#include <YumoClientSdk/YumoClientSdk.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>

static volatile sig_atomic_t stopping = 0;

static void onSignal(int signalNumber)
{
    (void)signalNumber;
    stopping = 1;
}

static const char *changeName(int32_t change)
{
    static const char *const names[] = {"now", "started", "quit", "installed", "removed", "updated", "moved"};
    return change >= 0 && change <= ymClientChangeMoved ? names[change] : "?";
}

static void print(const ymClientState *state)
{
    static const char *const transports[] = {"none", "sockets", "notifications"};
    printf("%s: installed=%s running=%s version=%s transport=%s\n", changeName(state->change),
           state->installed ? "yes" : "no", state->running ? "yes" : "no", state->version[0] ? state->version : "(none)",
           state->transport >= 0 && state->transport <= ymClientTransportNotifications ? transports[state->transport] : "?");
    fflush(stdout);
}

static void onClientState(const ymClientState *state, void *context)
{
    (void)context;
    print(state);
    if (state->change == ymClientChangeStarted)
        ymRegisterAudioDevice("Headset", "1", 2830, 3);
}

int main(void)
{
    struct sigaction action = {0};
    action.sa_handler = onSignal;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    ymClientState now;
    ymSetClientStateCallback(onClientState, NULL);
    if (ymGetClientState(&now))
        print(&now);
    struct pollfd watched = {ymGetMainLoopDescriptor(), POLLIN, 0};
    while (!stopping) {
        /* A signal ends the wait with EINTR; then the loop sees `stopping`. */
        if (poll(&watched, 1, -1) > 0)
            ymDispatchMainLoop();
        else if (errno != EINTR)
            return 1;
    }
    ymSetClientStateCallback(NULL, NULL);
    ymCleanupAudioDevices();
    return 0;
}
