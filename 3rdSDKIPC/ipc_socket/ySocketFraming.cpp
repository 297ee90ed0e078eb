#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"

#include <YumoClientSdk/ySocketDelegate.h>
#include <cstring>

#include "sdk/ymTextRules.h"

namespace ySocketFraming {

size_t encode(const std::optional<std::string> &text, char *buffer)
{
    std::memset(buffer, 0, kSendBufferSize);
    if (!text || text->size() >= kSendBufferSize || !ymText::isValidUtf8(*text))
        return 0;
    std::memcpy(buffer, text->data(), text->size());
    return std::strlen(buffer);  // a zero byte inside the text ends what is sent
}

void Gatherer::takeChunk(const char *chunk, const std::shared_ptr<ySocketDelegate> &delegate)
{
    std::string_view text(chunk);
    if (!text.empty() && ymText::isValidUtf8(text))
        _accumulated.append(text);
    int32_t taken = delegate ? delegate->onMessageRecieved(_accumulated) : 0;
    if (taken == 0)
        _accumulated.clear();
}

}  // namespace ySocketFraming
