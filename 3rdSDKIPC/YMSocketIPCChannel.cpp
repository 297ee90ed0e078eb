#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymMainLoop.h>

#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymThread.h"

std::shared_ptr<YMSocketIPCChannel_SDK> YMSocketIPCChannel_SDK::create()
{
    return std::shared_ptr<YMSocketIPCChannel_SDK>(new YMSocketIPCChannel_SDK());
}

std::shared_ptr<YMSocketIPCChannel_SDK> YMSocketIPCChannel_SDK::ipcClientWithSocketPath(const std::optional<std::string> &socketPath)
{
    std::shared_ptr<YMSocketIPCChannel_SDK> channel = create();
    return channel->initIPCClientWithSocketPath(socketPath) == 0 ? channel : nullptr;
}

std::shared_ptr<YMSocketIPCChannel_SDK> YMSocketIPCChannel_SDK::ipcServerWithSocketPath(const std::optional<std::string> &socketPath)
{
    std::shared_ptr<YMSocketIPCChannel_SDK> channel = create();
    return channel->initIPCServerWithSocketPath(socketPath) == 0 ? channel : nullptr;
}

YMSocketIPCChannel_SDK::~YMSocketIPCChannel_SDK() = default;

int YMSocketIPCChannel_SDK::initIPCClientWithSocketPath(const std::optional<std::string> &socketPath)
{
    if (!socketPath || socketPath->empty()) {
        YM_LOG("%s: socketPath is nil", "-[YMSocketIPCChannel_SDK initIPCClientWithSocketPath:]");
        return -1;
    }
    _socketClient = ySocketClientImpl_SDK::create();
    _socketClient->setSocketPath(socketPath);
    _socketClient->setDelegate(weak_from_this());
    ymDetachThread([client = _socketClient] { client->connect(); });
    return 0;
}

int YMSocketIPCChannel_SDK::initIPCServerWithSocketPath(const std::optional<std::string> &socketPath)
{
    if (!socketPath || socketPath->empty()) {
        YM_LOG("%s: socketPath is nil", "-[YMSocketIPCChannel_SDK initIPCServerWithSocketPath:]");
        return -1;
    }
    _socketServer = ySocketServerImpl_SDK::create();
    _socketServer->setSocketPath(socketPath);
    _socketServer->setDelegate(weak_from_this());
    ymDetachThread([server = _socketServer] { server->start(); });
    return 0;
}

void YMSocketIPCChannel_SDK::sendMessage(const std::optional<std::string> &message)
{
    if (!message) {
        YM_LOG("%s: message is nil", "-[YMSocketIPCChannel_SDK sendMessage:]");
        return;
    }
    if (_socketServer)
        _socketServer->send(message);
    else if (_socketClient)
        _socketClient->send(message);
}

namespace {

// The log line shows a gathered text whole up to this size. Beyond it (only a peer that sends
// far more than any message without a boundary gets there) it shows the start and says how much
// more there is, so that each read does not write everything gathered so far once again.
constexpr size_t kLoggedTextLimit = 64 * 1024;

}  // namespace

int32_t YMSocketIPCChannel_SDK::onMessageRecieved(const std::string &message)
{
    static const char *const kFn = "-[YMSocketIPCChannel_SDK onMessageRecieved:]";
    if (message.size() <= kLoggedTextLimit)
        YM_LOG("%s: recieved msg: %s", kFn, message.c_str());
    else
        YM_LOG("%s: recieved msg: %.*s... (%zu more bytes)", kFn, static_cast<int>(kLoggedTextLimit), message.c_str(),
               message.size() - kLoggedTextLimit);
    // The last character after trailing blanks and line breaks; nothing but blanks (or nothing at
    // all) is not a message yet. Looked at from the end, without copying the text.
    std::string_view trimmed = ymText::withoutTrailingWhitespaceAndNewlines(message);
    if (trimmed.empty() || trimmed.back() != '}')
        return -1;
    const char *key = IPCMsg_Content_CommandId;
    if (!key || message.find(key) == std::string::npos)
        return -1;
    if (!_delegate.load())
        return 0;
    ymMainLoop::shared().post([self = shared_from_this(), message] {
        if (YMSocketIPCChannelDelegate *delegate = self->_delegate.load())
            delegate->onMessageRecieved(message);
    });
    return 0;
}

YMSocketIPCChannelDelegate *YMSocketIPCChannel_SDK::delegate() const { return _delegate.load(); }
void YMSocketIPCChannel_SDK::setDelegate(YMSocketIPCChannelDelegate *delegate) { _delegate = delegate; }
