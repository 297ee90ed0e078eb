#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ySocketClientImpl.h>
#include <YumoClientSdk/ySocketServerImpl.h>
#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <atomic>
#include <cstring>

#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymThread.h"

// What the socket object reads goes to the channel's Impl, which the socket holds weakly: a
// channel that is gone takes its Impl with it, and its socket simply stops delivering. The Impl
// keeps what the boundary test learnt of each connection's text with that text (see
// ySocketFraming::TextScan), so each byte a peer sends is looked at once however long the text
// grows before it is whole.
struct YMSocketIPCChannel_SDK::Impl : ySocketDelegate, ySocketFraming::ScanningDelegate {
    std::weak_ptr<YMSocketIPCChannel_SDK> channel;
    std::shared_ptr<ySocketClientImpl_SDK> socketClient;
    std::shared_ptr<ySocketServerImpl_SDK> socketServer;
    std::atomic<YMSocketIPCChannelDelegate *> delegate{nullptr};

    int32_t onMessageRecieved(const std::string &message) override
    {
        ySocketFraming::TextScan scan;
        return onMessageGathered(message, scan);
    }
    int32_t onMessageGathered(const std::string &message, ySocketFraming::TextScan &scan) override;
};

namespace {

// The log line shows a gathered text whole up to this size. Beyond it (only a peer that sends far
// more than any message without a boundary gets there) it shows this much and says how much more
// there is, so that a flood is not written to the log once again on every read.
constexpr size_t kLoggedTextLimit = 8 * 1024;

// Updates what is known of the text from the bytes added since the last look: whether the key
// name is in it, and its last character that is not a blank or a line break.
void scanNewBytes(const std::string &text, ySocketFraming::TextScan &scan, const char *key)
{
    if (scan.key != key) {
        // The key name was changed (it is a variable companions may set): look for it afresh.
        scan.key = key;
        scan.keyFound = false;
        scan.keySearchedUpTo = 0;
    }
    if (key && !scan.keyFound) {
        // The key may straddle the old end: start that far before it.
        size_t overlap = std::strlen(key) > 0 ? std::strlen(key) - 1 : 0;
        size_t from = scan.keySearchedUpTo > overlap ? scan.keySearchedUpTo - overlap : 0;
        scan.keyFound = text.find(key, from) != std::string::npos;
        scan.keySearchedUpTo = text.size();
    }
    // The new bytes are whole characters (a read that ends inside one is dropped whole), so the
    // last character that is not blank is either among them or where it was.
    std::string_view fresh = ymText::withoutTrailingWhitespaceAndNewlines(std::string_view(text).substr(scan.blanksSearchedUpTo));
    if (!fresh.empty())
        scan.lastCharacter = fresh.back();
    scan.blanksSearchedUpTo = text.size();
}

}  // namespace

int32_t YMSocketIPCChannel_SDK::Impl::onMessageGathered(const std::string &message, ySocketFraming::TextScan &scan)
{
    static const char *const kFn = "-[YMSocketIPCChannel_SDK onMessageRecieved:]";
    if (message.size() <= kLoggedTextLimit)
        YM_LOG("%s: recieved msg: %s", kFn, message.c_str());
    else
        YM_LOG("%s: recieved msg: %.*s... (%zu more bytes)", kFn, static_cast<int>(kLoggedTextLimit), message.c_str(),
               message.size() - kLoggedTextLimit);
    // A whole message holds the key name and its last character, after trailing blanks and line
    // breaks, is "}". Nothing but blanks (or nothing at all) is not a message yet.
    scanNewBytes(message, scan, IPCMsg_Content_CommandId);
    if (!scan.keyFound || scan.lastCharacter != '}')
        return -1;
    std::shared_ptr<YMSocketIPCChannel_SDK> self = channel.lock();
    if (!self || !delegate.load())
        return 0;
    ymMainLoop::shared().post([self, message] {
        if (YMSocketIPCChannelDelegate *receiver = self->_impl->delegate.load())
            receiver->onMessageRecieved(message);
    });
    return 0;
}

YMSocketIPCChannel_SDK::YMSocketIPCChannel_SDK() : _impl(std::make_shared<Impl>()) {}

std::shared_ptr<YMSocketIPCChannel_SDK> YMSocketIPCChannel_SDK::create()
{
    std::shared_ptr<YMSocketIPCChannel_SDK> channel(new YMSocketIPCChannel_SDK());
    channel->_impl->channel = channel;
    return channel;
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
    _impl->socketClient = ySocketClientImpl_SDK::create();
    _impl->socketClient->setSocketPath(socketPath);
    _impl->socketClient->setDelegate(_impl);
    ymDetachThread([client = _impl->socketClient] { client->connect(); });
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
    ymDetachThread([server = _impl->socketServer] { server->start(); });
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

YMSocketIPCChannelDelegate *YMSocketIPCChannel_SDK::delegate() const { return _impl->delegate.load(); }
void YMSocketIPCChannel_SDK::setDelegate(YMSocketIPCChannelDelegate *delegate) { _impl->delegate = delegate; }
