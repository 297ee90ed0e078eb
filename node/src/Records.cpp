#include "Records.h"

namespace yumoclientsdk_node {
namespace {

std::optional<std::string> textOf(const char *text)
{
    if (text == nullptr)
        return std::nullopt;
    return std::string(text);
}

Napi::Value valueOf(Napi::Env env, const std::optional<std::string> &text)
{
    if (!text)
        return env.Null();
    return Napi::String::New(env, *text);
}

// The names of ymClientChange and ymClientTransport; a number the SDK does not have yet is told as
// itself.
Napi::Value changeName(Napi::Env env, int32_t change)
{
    static const char *const names[] = {"none", "started", "quit", "installed", "removed", "updated", "moved"};
    if (change >= 0 && change < static_cast<int32_t>(sizeof names / sizeof names[0]))
        return Napi::String::New(env, names[change]);
    return Napi::Number::New(env, change);
}

Napi::Value transportName(Napi::Env env, int32_t transport)
{
    static const char *const names[] = {"none", "sockets", "notifications"};
    if (transport >= 0 && transport < static_cast<int32_t>(sizeof names / sizeof names[0]))
        return Napi::String::New(env, names[transport]);
    return Napi::Number::New(env, transport);
}

}  // namespace

PresenceRecord copyOf(const ymPresenceStatus &status)
{
    return PresenceRecord{status.error != NO, status.code, textOf(status.text), status.presenceStatus};
}

AudioRecord copyOf(const ymAudioInfo &info)
{
    return AudioRecord{info.audioCmd, textOf(info.deviceIndex), textOf(info.deviceName)};
}

ClientStateRecord copyOf(const ymClientState &state)
{
    return ClientStateRecord{state.change,          state.installed != NO,
                             state.running != NO,   state.transport,
                             textOf(state.version).value_or(""), textOf(state.installPath).value_or("")};
}

Napi::Object presenceObject(Napi::Env env, const PresenceRecord &record)
{
    Napi::Object object = Napi::Object::New(env);
    object.Set("presenceStatus", Napi::Number::New(env, record.presenceStatus));
    object.Set("code", Napi::Number::New(env, record.code));
    object.Set("text", valueOf(env, record.text));
    object.Set("error", Napi::Boolean::New(env, record.error));
    return object;
}

Napi::Object audioObject(Napi::Env env, const AudioRecord &record)
{
    Napi::Object object = Napi::Object::New(env);
    object.Set("command", Napi::Number::New(env, record.command));
    object.Set("name", valueOf(env, record.name));
    object.Set("index", valueOf(env, record.index));
    return object;
}

Napi::Object clientStateObject(Napi::Env env, const ClientStateRecord &record)
{
    Napi::Object object = Napi::Object::New(env);
    object.Set("installed", Napi::Boolean::New(env, record.installed));
    object.Set("running", Napi::Boolean::New(env, record.running));
    object.Set("version", Napi::String::New(env, record.version));
    object.Set("path", Napi::String::New(env, record.path));
    object.Set("transport", transportName(env, record.transport));
    object.Set("change", changeName(env, record.change));
    return object;
}

}  // namespace yumoclientsdk_node
