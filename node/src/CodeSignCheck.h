// CodeSignCheck: a code-signature check of the SDK run on libuv's thread pool, answered as a
// Promise on Node's thread. The checks read whole bundles and packages and run the system's
// signing tool: seconds that Node's loop must not wait.
#ifndef YUMOCLIENTSDK_NODE_CODESIGNCHECK_H
#define YUMOCLIENTSDK_NODE_CODESIGNCHECK_H

#include <napi.h>

#include <string>

#include <YumoClientSdk/ymBase.h>

namespace yumoclientsdk_node {

class CodeSignCheck : public Napi::AsyncWorker {
public:
    using Check = BOOL (*)(const char *path);

    // Queues `check(path)` and answers a Promise of its answer as a boolean.
    static Napi::Value start(Napi::Env env, Check check, std::string path);

private:
    CodeSignCheck(Napi::Env env, Check check, std::string path);

    void Execute() override;
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

    Check _check;
    std::string _path;
    BOOL _answer = NO;
    Napi::Promise::Deferred _deferred;
};

}  // namespace yumoclientsdk_node

#endif
