#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"

#include <YumoClientSdk/ySocketDelegate.h>
#include <cstring>

#include "foundation/ymTextRules.h"

namespace ySocketFraming {

std::string_view bytesToSend(const std::optional<std::string> &text)
{
    if (!text || text->size() >= kSendBufferSize || !ymText::isValidUtf8(*text))
        return std::string_view();
    // A zero byte inside the text ends what is sent.
    return std::string_view(text->data(), std::strlen(text->c_str()));
}

void Gatherer::takeChunk(std::string_view chunk, const std::shared_ptr<ySocketDelegate> &delegate)
{
    std::string_view text(chunk.data(), strnlen(chunk.data(), chunk.size()));
    if (!text.empty() && ymText::isValidUtf8(text))
        _accumulated.append(text);
    int32_t taken = delegate ? delegate->onMessageRecieved(_accumulated) : 0;
    if (taken == 0)
        _accumulated.clear();
}

}  // namespace ySocketFraming
