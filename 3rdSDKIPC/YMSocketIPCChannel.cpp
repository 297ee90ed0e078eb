#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymMainLoop.h>

#include "sdk/ymLog.h"
#include "sdk/ymTextRules.h"
#include "sdk/ymThread.h"

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

int32_t YMSocketIPCChannel_SDK::onMessageRecieved(const std::string &message)
{
    YM_LOG("%s: recieved msg: %s", "-[YMSocketIPCChannel_SDK onMessageRecieved:]", message.c_str());
    std::string trimmed = ymText::trimmingWhitespaceAndNewlines(message);
    // Nothing but blanks (or nothing at all) is not a message yet.
    if (trimmed.empty())
        return -1;
    if (message.find(IPCMsg_Content_CommandId) == std::string::npos)
        return -1;
    if (trimmed.back() != '}')
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
