// A companion on a GLib main loop (GTK and GNOME programs run one): the SDK's descriptor is added
// with g_unix_fd_add, and each time it is readable the SDK dispatches. Exits 0 once the presence
// answer and the audio event came, 1 when they did not within five seconds.
#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>
#include <glib-unix.h>
#include <glib.h>

class Companion : public ymSdkDelegate {
public:
    explicit Companion(GMainLoop *loop) : _loop(loop) {}
    bool presenceAnswered = false;
    bool audioAnswered = false;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        std::printf("presence: code=%d status=%d\n", status.code, status.presenceStatus);
        presenceAnswered = true;
        quitWhenDone();
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        std::printf("audio event: command %d for %s\n", info.audioCmd, info.audioDevice.deviceName.value_or("?").c_str());
        audioAnswered = true;
        quitWhenDone();
    }

private:
    void quitWhenDone()
    {
        if (presenceAnswered && audioAnswered)
            g_main_loop_quit(_loop);
    }
    GMainLoop *_loop;
};

int main()
{
    GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
    auto companion = std::make_shared<Companion>(loop);
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(companion);
    sdk->RegisterAudioDevice("Headset", "1", 2830, 3);

    g_unix_fd_add(ymMainLoop::shared().fileDescriptor(), G_IO_IN,
                  [](gint, GIOCondition, gpointer) -> gboolean {
                      ymMainLoop::shared().dispatch();
                      return G_SOURCE_CONTINUE;
                  },
                  nullptr);
    g_timeout_add_seconds(5, [](gpointer data) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop *>(data));
        return G_SOURCE_REMOVE;
    }, loop);

    if (sdk->GetIMPresenceStatus() == ymCommandStatusSent && sdk->SetAudioCmd(5, YMAudioDevice_s{"1", "Headset", 2830, 3}) == ymCommandStatusSent)
        g_main_loop_run(loop);
    sdk->CleanupAudioDevices();
    g_main_loop_unref(loop);
    return companion->presenceAnswered && companion->audioAnswered ? 0 : 1;
}
