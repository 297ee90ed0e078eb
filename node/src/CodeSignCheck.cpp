#include "CodeSignCheck.h"

#include <utility>

namespace yumoclientsdk_node {

Napi::Value CodeSignCheck::start(Napi::Env env, Check check, std::string path)
{
    auto *work = new CodeSignCheck(env, check, std::move(path));
    Napi::Promise promise = work->_deferred.Promise();
    work->Queue();  // the worker deletes itself once it has answered
    return promise;
}

CodeSignCheck::CodeSignCheck(Napi::Env env, Check check, std::string path)
    : Napi::AsyncWorker(env, "yumoclientsdk:codesign"), _check(check), _path(std::move(path)),
      _deferred(Napi::Promise::Deferred::New(env))
{
}

// On a thread of the pool: the SDK's functions may be called from any thread.
void CodeSignCheck::Execute() { _answer = _check(_path.c_str()); }

void CodeSignCheck::OnOK() { _deferred.Resolve(Napi::Boolean::New(Env(), _answer != NO)); }

void CodeSignCheck::OnError(const Napi::Error &error) { _deferred.Reject(error.Value()); }

}  // namespace yumoclientsdk_node
