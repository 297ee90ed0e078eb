// A companion that follows the meeting client: prints the client as it is, then a line each time it
// starts, quits, is updated, installed, removed or moved, and registers its headset again each time
// the client starts (a client that starts afresh knows no devices). Runs until SIGINT or SIGTERM,
// then exits 0.
#include <YumoClientSdk/YumoClientSdk.h>
#include <csignal>
#include <cstdio>

namespace {

const char *changeName(ymClientChange change)
{
    switch (change) {
    case ymClientChangeStarted: return "started";
    case ymClientChangeQuit: return "quit";
    case ymClientChangeInstalled: return "installed";
    case ymClientChangeRemoved: return "removed";
    case ymClientChangeUpdated: return "updated";
    case ymClientChangeMoved: return "moved";
    case ymClientChangeNone: break;
    }
    return "now";
}

void print(const YMClientState_s &state)
{
    const char *transport = state.transport == ymClientTransportSockets         ? "sockets"
                            : state.transport == ymClientTransportNotifications ? "notifications"
                                                                                : "none";
    std::printf("%s: installed=%s running=%s version=%s transport=%s\n", changeName(state.change), state.installed ? "yes" : "no",
                state.running ? "yes" : "no", state.version.empty() ? "(none)" : state.version.c_str(), transport);
    std::fflush(stdout);
}

void stop(int) { ymMainLoop::shared().stop(); }

}  // namespace

int main()
{
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->SetClientStateHandler([sdk](const YMClientState_s &state) {
        print(state);
        if (state.change == ymClientChangeStarted)
            sdk->RegisterAudioDevice("Headset", "1", 2830, 3);
    });
    print(sdk->GetClientState());
    std::signal(SIGINT, stop);
    std::signal(SIGTERM, stop);
    ymMainLoop::shared().run();  // the handler is called from in here
    sdk->SetClientStateHandler(nullptr);
    sdk->CleanupAudioDevices();
    return 0;
}
