#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ySocketServerImpl.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <mutex>

#include "platform/ymMutex.h"

#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "3rdSDKIPC/ipc_socket/ySocketInbound.h"
#include "platform/ymIOLoop.h"

// What the socket object reads goes to the channel's Impl, which the socket holds weakly; the
// channel owns its socket object, so a channel that is released closes its socket with it, and
// deliveries still queued on the main loop find it gone and deliver nothing.
struct YMSocketIPCChannel_SDK::Impl : ySocketDelegate, std::enable_shared_from_this<YMSocketIPCChannel_SDK::Impl> {
    std::shared_ptr<ySocketClientImpl_SDK> socketClient;
    std::shared_ptr<ySocketServerImpl_SDK> socketServer;
    mutable ymMutex delegateLock;
    YMSocketIPCChannelDelegate *delegate = nullptr;      // not retained
    std::weak_ptr<YMSocketIPCChannelDelegate> weakDelegate;  // or held weakly
    bool delegateIsWeak = false;

    int32_t onMessageRecieved(const std::string &message) override;
    // Whether there is a receiver, without taking a reference: the last reference to a receiver
    // must never be let go on the I/O thread (its destruction is heavy work).
    bool hasReceiver() const
    {
        std::lock_guard<ymMutex> guard(delegateLock);
        return delegateIsWeak ? !weakDelegate.expired() : delegate != nullptr;
    }
    // The receiver now, kept alive for the call when it is held weakly.
    std::pair<YMSocketIPCChannelDelegate *, std::shared_ptr<YMSocketIPCChannelDelegate>> receiver() const
    {
        std::lock_guard<ymMutex> guard(delegateLock);
        if (!delegateIsWeak)
            return {delegate, nullptr};
        std::shared_ptr<YMSocketIPCChannelDelegate> strong = weakDelegate.lock();
        return {strong.get(), strong};
    }
};

namespace {

// The log line shows a message whole up to this size; beyond it (only a peer that sends far more
// than any message gets there) it shows this much and says how much more there is.
constexpr size_t kLoggedTextLimit = 8 * 1024;

}  // namespace

int32_t YMSocketIPCChannel_SDK::Impl::onMessageRecieved(const std::string &message)
{
    static const char *const kFn = "-[YMSocketIPCChannel_SDK onMessageRecieved:]";
    if (message.size() <= kLoggedTextLimit)
        YM_LOG("%s: recieved msg: %s", kFn, message.c_str());
    else
        YM_LOG("%s: recieved msg: %.*s... (%zu more bytes)", kFn, static_cast<int>(kLoggedTextLimit), message.c_str(),
               message.size() - kLoggedTextLimit);
    // A message holds the key name, and its last character, after trailing blanks and line breaks,
    // is "}". Nothing but blanks (or nothing at all) is not a message.
    const char *key = IPCMsg_Content_CommandId;
    std::string_view trimmed = ymText::withoutTrailingWhitespaceAndNewlines(message);
    if (!key || message.find(key) == std::string::npos || trimmed.empty() || trimmed.back() != '}')
        return -1;
    if (!hasReceiver())
        return 0;
    // The delivery pays for its bytes until it has run: a connection whose deliveries wait beyond
    // its bound stops reading until the companion catches up.
    // Copied once, into the form the receiver takes.
    std::weak_ptr<Impl> weak = weak_from_this();
    ymMainLoop::shared().post([weak, message = std::optional<std::string>(message), charge = ySocketInbound::charge(message.size())] {
        std::shared_ptr<Impl> self = weak.lock();
        if (!self)
            return;
        auto [receiver, keptAlive] = self->receiver();
        if (receiver) {
            ymNSLogUnbatched unbatched;  // the receiver may be the companion's own
            receiver->onMessageRecieved(message);
        }
    });
    return 0;
}

YMSocketIPCChannel_SDK::YMSocketIPCChannel_SDK() : _impl(std::make_shared<Impl>()) {}

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

// Its socket objects go with it: a client disconnects, a server ends.
YMSocketIPCChannel_SDK::~YMSocketIPCChannel_SDK() = default;

int YMSocketIPCChannel_SDK::initIPCClientWithSocketPath(const std::optional<std::string> &socketPath)
{
    if (!socketPath || socketPath->empty()) {
        YM_LOG("%s: socketPath is nil", "-[YMSocketIPCChannel_SDK initIPCClientWithSocketPath:]");
        return -1;
    }
    _impl->socketClient = ySocketClientImpl_SDK::create();
    _impl->socketClient->setSocketPath(socketPath);
    _impl->socketClient->setDelegate(_impl);
    // The first attempt is made on the I/O thread; nobody waits for it here.
    std::weak_ptr<ySocketClientImpl_SDK> client = _impl->socketClient;
    ymIOLoop::shared().post([client] {
        if (std::shared_ptr<ySocketClientImpl_SDK> connecting = client.lock())
            connecting->connect();
    });
    return 0;
}

int YMSocketIPCChannel_SDK::initIPCServerWithSocketPath(const std::optional<std::string> &socketPath)
{
    if (!socketPath || socketPath->empty()) {
        YM_LOG("%s: socketPath is nil", "-[YMSocketIPCChannel_SDK initIPCServerWithSocketPath:]");
        return -1;
    }
    _impl->socketServer = ySocketServerImpl_SDK::create();
    _impl->socketServer->setSocketPath(socketPath);
    _impl->socketServer->setDelegate(_impl);
    _impl->socketServer->start();  // a server that cannot listen says so in the log
    return 0;
}

void YMSocketIPCChannel_SDK::sendMessage(const std::optional<std::string> &message)
{
    if (!message) {
        YM_LOG("%s: message is nil", "-[YMSocketIPCChannel_SDK sendMessage:]");
        return;
    }
    if (_impl->socketServer)
        _impl->socketServer->send(message);
    else if (_impl->socketClient)
        _impl->socketClient->send(message);
}

int32_t YMSocketIPCChannel_SDK::onMessageRecieved(const std::string &message) { return _impl->onMessageRecieved(message); }

YMSocketIPCChannelDelegate *YMSocketIPCChannel_SDK::delegate() const { return _impl->receiver().first; }

void YMSocketIPCChannel_SDK::setDelegate(YMSocketIPCChannelDelegate *delegate)
{
    std::lock_guard<ymMutex> guard(_impl->delegateLock);
    _impl->delegate = delegate;
    _impl->weakDelegate.reset();
    _impl->delegateIsWeak = false;
}

void YMSocketIPCChannel_SDK::setDelegate(const std::weak_ptr<YMSocketIPCChannelDelegate> &delegate)
{
    std::lock_guard<ymMutex> guard(_impl->delegateLock);
    _impl->delegate = nullptr;
    _impl->weakDelegate = delegate;
    _impl->delegateIsWeak = true;
}
