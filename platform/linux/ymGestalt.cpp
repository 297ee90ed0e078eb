#include "platform/ymGestalt.h"

#include <mutex>

#include "platform/ymMutex.h"

namespace ymGestalt {
namespace {
ymMutex responderLock;
std::function<int16_t(uint32_t, int32_t *)> &responder()
{
    static auto *installed = new std::function<int16_t(uint32_t, int32_t *)>();
    return *installed;
}
}  // namespace

int16_t gestalt(uint32_t selector, int32_t *response)
{
    std::lock_guard<ymMutex> guard(responderLock);
    if (responder())
        return responder()(selector, response);
    return kUndefinedSelectorError;
}

void setResponderForTesting(std::function<int16_t(uint32_t, int32_t *)> replacement)
{
    std::lock_guard<ymMutex> guard(responderLock);
    responder() = std::move(replacement);
}

}  // namespace ymGestalt
