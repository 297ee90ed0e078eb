// SdkLoopWatch: the SDK's main loop served by Node's own loop.
//
// The SDK queues what it has for the companion (presence answers, audio events, client changes) on
// its main loop, whose descriptor polls readable while something waits. The watch polls that
// descriptor with libuv on the thread of the environment that made it, dispatches the SDK's loop
// when it is readable, and hands each record to one JavaScript function, in the order the SDK
// delivered them. Nothing runs on another thread, and nothing polls on a timer.
//
// The watch keeps Node's loop alive only while it is held (setHeld(true)): while a listener or a
// pending request needs the SDK. A script that is done exits by itself.
#ifndef YUMOCLIENTSDK_NODE_SDKLOOPWATCH_H
#define YUMOCLIENTSDK_NODE_SDKLOOPWATCH_H

#include <napi.h>
#include <uv.h>

#include <vector>

#include <YumoClientSdk/ymSdkC.h>

#include "Records.h"

namespace yumoclientsdk_node {

class SdkLoopWatch {
public:
    // Starts polling the SDK's main loop for `env`, delivering to `deliver(kind, record)` where
    // kind is "presence", "audio" or "clientState". Starts unheld. On failure (no descriptor, no
    // loop) a JavaScript exception is pending and started() answers false.
    SdkLoopWatch(Napi::Env env, Napi::Function deliver);
    ~SdkLoopWatch();

    SdkLoopWatch(const SdkLoopWatch &) = delete;
    SdkLoopWatch &operator=(const SdkLoopWatch &) = delete;

    bool started() const { return _poll != nullptr; }

    // Whether the watch keeps Node's loop alive.
    void setHeld(bool held);

    // Whether client changes are followed (the SDK's watch of the client runs while they are).
    void followClientState(bool follow);

    // Stops polling and takes the SDK's callbacks back; what is queued in the SDK stays there.
    // Called when the environment is torn down; idempotent.
    void stop();

private:
    static void readable(uv_poll_t *poll, int status, int events);
    static void presence(const ymPresenceStatus *status, void *context);
    static void audio(const ymAudioInfo *info, void *context);
    static void clientState(const ymClientState *state, void *context);

    void dispatch();
    void deliver(const Record &record);

    Napi::Env _env;
    Napi::FunctionReference _deliver;
    Napi::AsyncContext _context;
    uv_poll_t *_poll = nullptr;  // owned; freed by its close callback
    bool _followsClientState = false;
    std::vector<Record> _received;    // filled by the SDK's callbacks during one dispatch
    std::vector<Record> _delivering;  // the records of the dispatch being handed to JavaScript
};

}  // namespace yumoclientsdk_node

#endif
