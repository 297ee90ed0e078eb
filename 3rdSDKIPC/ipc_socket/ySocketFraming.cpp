#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"

#include <YumoClientSdk/ySocketDelegate.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>

#include "foundation/ymTextRules.h"

namespace ySocketFraming {

void limitPeerWaits(int fd)
{
    struct timeval limit = {static_cast<time_t>(kPeerWaitLimit.count()), 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

long sendOnce(int fd, std::string_view bytes, bool &stalled)
{
    ssize_t written;
    do {
        written = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | (stalled ? MSG_DONTWAIT : 0));
    } while (written < 0 && errno == EINTR);
    // A write that timed out (or took only part) leaves the peer stalled until one is taken whole.
    stalled = written != static_cast<ssize_t>(bytes.size());
    return static_cast<long>(written);
}

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
    int32_t taken = 0;
    if (auto *scanning = dynamic_cast<ScanningDelegate *>(delegate.get()))
        taken = scanning->onMessageGathered(_accumulated, _scan);
    else if (delegate)
        taken = delegate->onMessageRecieved(_accumulated);
    if (taken == 0) {
        _accumulated.clear();
        _scan = TextScan();
    }
}

}  // namespace ySocketFraming
