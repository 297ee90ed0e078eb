#include "SdkLoopWatch.h"

#include <new>
#include <string>

namespace yumoclientsdk_node {
namespace {

void freeHandle(uv_handle_t *handle) { delete reinterpret_cast<uv_poll_t *>(handle); }

}  // namespace

SdkLoopWatch::SdkLoopWatch(Napi::Env env, Napi::Function deliver)
    : _env(env), _deliver(Napi::Persistent(deliver)), _context(env, "yumoclientsdk")
{
    uv_loop_t *loop = nullptr;
    if (napi_get_uv_event_loop(env, &loop) != napi_ok || loop == nullptr) {
        Napi::Error::New(env, "yumoclientsdk: this environment has no event loop to serve the SDK on")
            .ThrowAsJavaScriptException();
        return;
    }
    int descriptor = ymGetMainLoopDescriptor();
    if (descriptor < 0) {
        Napi::Error::New(env, "yumoclientsdk: the SDK's main loop has no descriptor").ThrowAsJavaScriptException();
        return;
    }
    auto *poll = new (std::nothrow) uv_poll_t;
    int error = poll == nullptr ? UV_ENOMEM : uv_poll_init(loop, poll, descriptor);
    if (error != 0) {
        delete poll;
        Napi::Error::New(env, std::string("yumoclientsdk: cannot watch the SDK's main loop: ") + uv_strerror(error))
            .ThrowAsJavaScriptException();
        return;
    }
    poll->data = this;
    error = uv_poll_start(poll, UV_READABLE, readable);
    if (error != 0) {
        uv_close(reinterpret_cast<uv_handle_t *>(poll), freeHandle);
        Napi::Error::New(env, std::string("yumoclientsdk: cannot watch the SDK's main loop: ") + uv_strerror(error))
            .ThrowAsJavaScriptException();
        return;
    }
    uv_unref(reinterpret_cast<uv_handle_t *>(poll));
    _poll = poll;
    ymSetPresenceStatusCallback(presence, this);
    ymSetAudioInfoCallback(audio, this);
}

SdkLoopWatch::~SdkLoopWatch() { stop(); }

void SdkLoopWatch::setHeld(bool held)
{
    if (_poll == nullptr)
        return;
    if (held)
        uv_ref(reinterpret_cast<uv_handle_t *>(_poll));
    else
        uv_unref(reinterpret_cast<uv_handle_t *>(_poll));
}

void SdkLoopWatch::followClientState(bool follow)
{
    if (_poll == nullptr || follow == _followsClientState)
        return;
    _followsClientState = follow;
    // Once this returns the SDK calls the old callback no more, so a record of a change that was
    // under way when the last listener went is not delivered.
    ymSetClientStateCallback(follow ? clientState : nullptr, follow ? this : nullptr);
}

void SdkLoopWatch::stop()
{
    if (_poll == nullptr)
        return;
    ymSetPresenceStatusCallback(nullptr, nullptr);
    ymSetAudioInfoCallback(nullptr, nullptr);
    if (_followsClientState)
        ymSetClientStateCallback(nullptr, nullptr);
    _followsClientState = false;
    uv_poll_stop(_poll);
    uv_close(reinterpret_cast<uv_handle_t *>(_poll), freeHandle);
    _poll = nullptr;
}

void SdkLoopWatch::readable(uv_poll_t *poll, int status, int)
{
    auto *watch = static_cast<SdkLoopWatch *>(poll->data);
    if (status < 0) {
        // The descriptor cannot be polled any more (it never closes while the process runs):
        // nothing more can be delivered, and the watch must not keep the process alive for it.
        watch->stop();
        return;
    }
    watch->dispatch();
}

// The SDK's callbacks run inside ymDispatchMainLoop(), on this thread: they only copy the record.
// No exception may leave them into the SDK.
void SdkLoopWatch::presence(const ymPresenceStatus *status, void *context)
{
    try {
        static_cast<SdkLoopWatch *>(context)->_received.emplace_back(copyOf(*status));
    } catch (...) {
    }
}

void SdkLoopWatch::audio(const ymAudioInfo *info, void *context)
{
    try {
        static_cast<SdkLoopWatch *>(context)->_received.emplace_back(copyOf(*info));
    } catch (...) {
    }
}

void SdkLoopWatch::clientState(const ymClientState *state, void *context)
{
    try {
        static_cast<SdkLoopWatch *>(context)->_received.emplace_back(copyOf(*state));
    } catch (...) {
    }
}

void SdkLoopWatch::dispatch()
{
    // One bounded batch per readiness: what is left keeps the descriptor readable, and libuv comes
    // back after serving the rest of Node's loop.
    ymDispatchMainLoop();
    // Delivered from a second vector, whose room is kept from one dispatch to the next.
    _delivering.swap(_received);
    Napi::HandleScope scope(_env);
    for (const Record &record : _delivering) {
        if (_poll == nullptr)
            break;  // the environment is going
        deliver(record);
    }
    _delivering.clear();
}

void SdkLoopWatch::deliver(const Record &record)
{
    Napi::Value kind;
    Napi::Value object;
    if (const auto *presence = std::get_if<PresenceRecord>(&record)) {
        kind = Napi::String::New(_env, "presence");
        object = presenceObject(_env, *presence);
    } else if (const auto *audio = std::get_if<AudioRecord>(&record)) {
        kind = Napi::String::New(_env, "audio");
        object = audioObject(_env, *audio);
    } else {
        kind = Napi::String::New(_env, "clientState");
        object = clientStateObject(_env, std::get<ClientStateRecord>(record));
    }
    napi_value arguments[] = {kind, object};
    napi_value result = nullptr;
    napi_status status = napi_make_callback(_env, _context, _env.Global(), _deliver.Value(), 2, arguments, &result);
    if (status == napi_ok)
        return;
    // A listener that throws is the process's uncaught exception, as for any emitter; the records
    // after it are still delivered. Any other failure means JavaScript cannot run any more (the
    // environment is going): nothing more is delivered.
    bool pending = false;
    if (napi_is_exception_pending(_env, &pending) == napi_ok && pending) {
        napi_value error = nullptr;
        if (napi_get_and_clear_last_exception(_env, &error) == napi_ok)
            napi_fatal_exception(_env, error);
        return;
    }
    stop();
}

}  // namespace yumoclientsdk_node
