// The native half of the module: the SDK's C interface, one function each, and the watch that
// serves the SDK's main loop on Node's. index.js checks every argument and gives the functions
// their JavaScript shape; here each one is only converted (and refused with a TypeError when it is
// not of the type index.js hands over, so that a direct caller cannot reach the SDK with junk).
#include <napi.h>

#include <memory>
#include <optional>
#include <string>

#include <YumoClientSdk/ymSdkC.h>

#include "CodeSignCheck.h"
#include "SdkLoopWatch.h"

namespace yumoclientsdk_node {
namespace {

struct Addon {
    std::unique_ptr<SdkLoopWatch> watch;
};

Addon &addonOf(Napi::Env env) { return *env.GetInstanceData<Addon>(); }

// An argument index.js has checked: a text (null for a missing one) or a number.
bool textArgument(const Napi::CallbackInfo &info, size_t index, std::optional<std::string> &text)
{
    Napi::Value value = info[index];
    if (value.IsNull() || value.IsUndefined()) {
        text.reset();
        return true;
    }
    if (!value.IsString()) {
        Napi::TypeError::New(info.Env(), "argument " + std::to_string(index + 1) + " must be a string")
            .ThrowAsJavaScriptException();
        return false;
    }
    text = value.As<Napi::String>().Utf8Value();
    return true;
}

bool numberArgument(const Napi::CallbackInfo &info, size_t index, double &number)
{
    Napi::Value value = info[index];
    if (!value.IsNumber()) {
        Napi::TypeError::New(info.Env(), "argument " + std::to_string(index + 1) + " must be a number")
            .ThrowAsJavaScriptException();
        return false;
    }
    number = value.As<Napi::Number>().DoubleValue();
    return true;
}

const char *pointerOf(const std::optional<std::string> &text) { return text ? text->c_str() : nullptr; }

Napi::Value textValue(Napi::Env env, const char *text)
{
    if (text == nullptr)
        return env.Null();
    return Napi::String::New(env, text);
}

Napi::Value booleanValue(Napi::Env env, BOOL answer) { return Napi::Boolean::New(env, answer != NO); }

// ---- The loop watch ----

Napi::Value start(const Napi::CallbackInfo &info)
{
    Napi::Env env = info.Env();
    if (!info[0].IsFunction()) {
        Napi::TypeError::New(env, "start takes the delivery function").ThrowAsJavaScriptException();
        return env.Undefined();
    }
    Addon &addon = addonOf(env);
    if (addon.watch)
        return env.Undefined();
    auto watch = std::make_unique<SdkLoopWatch>(env, info[0].As<Napi::Function>());
    if (watch->started())
        addon.watch = std::move(watch);
    return env.Undefined();
}

Napi::Value setHeld(const Napi::CallbackInfo &info)
{
    Addon &addon = addonOf(info.Env());
    if (addon.watch)
        addon.watch->setHeld(info[0].ToBoolean());
    return info.Env().Undefined();
}

Napi::Value followClientState(const Napi::CallbackInfo &info)
{
    Addon &addon = addonOf(info.Env());
    if (addon.watch)
        addon.watch->followClientState(info[0].ToBoolean());
    return info.Env().Undefined();
}

Napi::Value stop(const Napi::CallbackInfo &info)
{
    Addon &addon = addonOf(info.Env());
    if (addon.watch)
        addon.watch->stop();
    return info.Env().Undefined();
}

// ---- The log ----

Napi::Value setTakesStandardError(const Napi::CallbackInfo &info)
{
    return booleanValue(info.Env(), ymSetTakesStandardError(info[0].ToBoolean() ? YES : NO));
}

Napi::Value setLogSizeLimit(const Napi::CallbackInfo &info)
{
    double bytes = 0;
    if (!numberArgument(info, 0, bytes))
        return info.Env().Undefined();
    return booleanValue(info.Env(), ymSetLogSizeLimit(static_cast<uint64_t>(bytes)));
}

// ---- Devices and commands ----

Napi::Value registerAudioDevice(const Napi::CallbackInfo &info)
{
    std::optional<std::string> name, index;
    double vid = 0, pid = 0;
    if (!textArgument(info, 0, name) || !textArgument(info, 1, index) || !numberArgument(info, 2, vid) ||
        !numberArgument(info, 3, pid))
        return info.Env().Undefined();
    return booleanValue(info.Env(), ymRegisterAudioDevice(pointerOf(name), pointerOf(index), static_cast<uint32_t>(vid),
                                                          static_cast<uint32_t>(pid)));
}

Napi::Value cleanupAudioDevices(const Napi::CallbackInfo &info)
{
    return Napi::Number::New(info.Env(), static_cast<double>(ymCleanupAudioDevicesAndCount()));
}

Napi::Value isRegisteredDevice(const Napi::CallbackInfo &info)
{
    std::optional<std::string> name, index;
    if (!textArgument(info, 0, name) || !textArgument(info, 1, index))
        return info.Env().Undefined();
    return booleanValue(info.Env(), ymIsRegisteredDevice(pointerOf(name), pointerOf(index)));
}

Napi::Value getPresenceStatus(const Napi::CallbackInfo &info)
{
    return Napi::Number::New(info.Env(), ymGetIMPresenceStatus());
}

Napi::Value sendAudioCommand(const Napi::CallbackInfo &info)
{
    double command = 0, vid = 0, pid = 0;
    std::optional<std::string> name, index;
    if (!numberArgument(info, 0, command) || !textArgument(info, 1, name) || !textArgument(info, 2, index) ||
        !numberArgument(info, 3, vid) || !numberArgument(info, 4, pid))
        return info.Env().Undefined();
    return Napi::Number::New(info.Env(), ymSetAudioCmd(static_cast<int32_t>(command), pointerOf(index), pointerOf(name),
                                                       static_cast<uint32_t>(vid), static_cast<uint32_t>(pid)));
}

// ---- Features ----

Napi::Value availableFeatures(const Napi::CallbackInfo &info)
{
    return Napi::Number::New(info.Env(), static_cast<double>(ymGetSDKAvailableFeatures()));
}

Napi::Value registerFeature(const Napi::CallbackInfo &info)
{
    double mask = 0;
    if (!numberArgument(info, 0, mask))
        return info.Env().Undefined();
    return booleanValue(info.Env(), ymRegisterFeature(static_cast<int64_t>(mask)));
}

Napi::Value features(const Napi::CallbackInfo &info)
{
    return Napi::Number::New(info.Env(), static_cast<double>(ymGetFeatures()));
}

// ---- The meeting client ----

Napi::Value clientState(const Napi::CallbackInfo &info)
{
    ymClientState state{};
    if (!ymGetClientState(&state)) {
        Napi::Error::New(info.Env(), "yumoclientsdk: the meeting client's state cannot be had")
            .ThrowAsJavaScriptException();
        return info.Env().Undefined();
    }
    return clientStateObject(info.Env(), copyOf(state));
}

Napi::Value setErrorCode(const Napi::CallbackInfo &info)
{
    double code = 0;
    if (numberArgument(info, 0, code))
        ymSetErrorCode(static_cast<int32_t>(code));
    return info.Env().Undefined();
}

Napi::Value activateClientSilently(const Napi::CallbackInfo &info)
{
    ymSilentActiveYumoClient();
    return info.Env().Undefined();
}

template <int32_t (*call)(void)> Napi::Value numberCall(const Napi::CallbackInfo &info)
{
    return Napi::Number::New(info.Env(), call());
}

template <BOOL (*call)(void)> Napi::Value booleanCall(const Napi::CallbackInfo &info)
{
    return booleanValue(info.Env(), call());
}

template <const char *(*call)(void)> Napi::Value textCall(const Napi::CallbackInfo &info)
{
    return textValue(info.Env(), call());
}

// ---- Code signatures, off Node's thread: the checks read whole files and run the signing tool ----

template <BOOL (*check)(const char *)> Napi::Value codeSignCall(const Napi::CallbackInfo &info)
{
    std::optional<std::string> path;
    if (!textArgument(info, 0, path))
        return info.Env().Undefined();
    return CodeSignCheck::start(info.Env(), check, path.value_or(""));
}

Napi::Object init(Napi::Env env, Napi::Object exports)
{
    env.SetInstanceData(new Addon());
    const struct {
        const char *name;
        Napi::Function::Callback function;
    } functions[] = {
        {"start", start},
        {"setHeld", setHeld},
        {"followClientState", followClientState},
        {"stop", stop},
        {"setTakesStandardError", setTakesStandardError},
        {"setLogSizeLimit", setLogSizeLimit},
        {"registerAudioDevice", registerAudioDevice},
        {"cleanupAudioDevices", cleanupAudioDevices},
        {"isRegisteredDevice", isRegisteredDevice},
        {"getPresenceStatus", getPresenceStatus},
        {"sendAudioCommand", sendAudioCommand},
        {"availableFeatures", availableFeatures},
        {"registerFeature", registerFeature},
        {"features", features},
        {"clientState", clientState},
        {"checkClientError", numberCall<ymCheckYumoAppError>},
        {"clientStatus", numberCall<ymGetYumoAppStatus>},
        {"errorCode", numberCall<ymGetErrorCode>},
        {"setErrorCode", setErrorCode},
        {"errorText", textCall<ymGetErrorText>},
        {"isClientInstalled", booleanCall<ymIsYumoappInstalled>},
        {"isClientRunning", booleanCall<ymIsYumoRunning>},
        {"clientInstallPath", textCall<ymGetYumoClientInstallPath>},
        {"clientVersion", textCall<ymGetYumoClientVersion>},
        {"isSupportedClientVersion", booleanCall<ymIsSupportedYumoClientVersion>},
        {"supportsSocketTransport", booleanCall<ymIsYumoClientSupportNewIPC>},
        {"launchClient", booleanCall<ymLaunchYumoClient>},
        {"activateClientSilently", activateClientSilently},
        {"isOutlookInstalled", booleanCall<ymIsOutlookInstalled>},
        {"isOutlookRunning", booleanCall<ymIsOutlookRunning>},
        {"outlookVersion", textCall<ymGetOutlookVersion>},
        {"isSupportedOutlookVersion", booleanCall<ymIsSupportedOutlookVersion>},
        {"isSupportedOSVersion", booleanCall<ymIsSupportedOSVersion>},
        {"systemLanguage", textCall<ymGetSystemLanguage>},
        {"checkAppCodeSign", codeSignCall<ymCheckAppCodeSign>},
        {"checkPackageCodeSign", codeSignCall<ymCheckCodeSignForYumoPkg>},
    };
    for (const auto &function : functions)
        exports.Set(function.name, Napi::Function::New(env, function.function, function.name));
    return exports;
}

}  // namespace
}  // namespace yumoclientsdk_node

static Napi::Object Init(Napi::Env env, Napi::Object exports) { return yumoclientsdk_node::init(env, exports); }

NODE_API_MODULE(yumoclientsdk, Init)
