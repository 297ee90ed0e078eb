#include <YumoClientSdk/ySocketServerImpl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/ymMutex.h"
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "3rdSDKIPC/ipc_socket/ySocketConnection.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymWeakReference.h"
#include "platform/ymIOLoop.h"
#include "platform/ymProcessBound.h"

namespace {

const char *const kReader = "-[ySocketServerImpl_SDK connectionProcessFunc:]";

// After an accept that failed (for want of descriptors or memory, say), accepting pauses this
// long rather than fail again at once for as long as the cause lasts.
constexpr std::chrono::milliseconds kAcceptPause{100};

// What the server is, shared with the I/O thread: the listening socket and the connections.
struct ServerCore : ySocketConnection::Owner, std::enable_shared_from_this<ServerCore> {
    std::atomic<int> fd{-1};  // the listening socket; -1 when there is none
    int cl = 0;               // never assigned; printed beside fd
    ymMutex vecConnectionsLock;
    std::vector<std::shared_ptr<ySocketConnection>> vecConnections;
    ymMutex propertiesLock;
    std::optional<std::string> socketPath;
    ymWeakReference<ySocketDelegate> delegate;

    // The I/O thread's.
    std::unique_ptr<ymIOLoop::Descriptor> accepting;
    std::unique_ptr<ymIOLoop::Timer> acceptPause;

    void watchListening(int listening);
    void acceptPeers(int listening);
    void adopt(int connection);

    void connectionRead(ySocketConnection &connection, long count, std::string_view chunk) override;
    void connectionReceived(ySocketConnection &connection, const std::string &message) override;
    void connectionEnded(ySocketConnection &connection) override;
};

}  // namespace

struct ySocketServerImpl_SDK::Impl {
    // The server of this process: a child of a fork gets one of its own with the same path and
    // delegate, not listening (the socket and the peers are the parent's).
    ymProcessBound<ServerCore> bound{std::make_shared<ServerCore>()};
    // Keeps the I/O thread while the server listens.
    std::shared_ptr<ymIOLoop::Use> use;

    // Handed out shared: work queued for the I/O thread keeps it.
    std::shared_ptr<ServerCore> core()
    {
        ServerCore &current = bound.get([this](const ServerCore *abandoned) {
            auto fresh = std::make_shared<ServerCore>();
            ServerCore &old = const_cast<ServerCore &>(*abandoned);
            std::lock_guard<ymMutex> guard(old.propertiesLock);
            fresh->socketPath = old.socketPath;
            fresh->delegate.set(old.delegate.weak());
            ymFork::abandon(std::move(use));  // the parent's use of its loop
            return fresh;
        });
        return current.shared_from_this();
    }
};

std::shared_ptr<ySocketServerImpl_SDK> ySocketServerImpl_SDK::create()
{
    return std::shared_ptr<ySocketServerImpl_SDK>(new ySocketServerImpl_SDK());
}

ySocketServerImpl_SDK::ySocketServerImpl_SDK() : _impl(std::make_unique<Impl>())
{
    YM_LOG("%s", "-[ySocketServerImpl_SDK init]");
}

ySocketServerImpl_SDK::~ySocketServerImpl_SDK()
{
    YM_LOG("%s", "-[ySocketServerImpl_SDK dealloc]");
    end();
}

bool ySocketServerImpl_SDK::start()
{
    static const char *const kFn = "-[ySocketServerImpl_SDK start]";
    YM_LOG("%s", kFn);
    std::optional<std::string> socketPath = this->socketPath();
    if (!socketPath) {
        YM_LOG("%s: socketPath is nil", kFn);
        return false;
    }
    const std::string &path = *socketPath;
    size_t length = ymText::utf16Length(path);
    if (length >= ySocketFraming::kMaximumPathLength) {
        YM_LOG("%s: socket path is too long!, len = %ld", kFn, static_cast<long>(length));
        return false;
    }
    std::shared_ptr<ServerCore> kept = _impl->core();
    ServerCore &core = *kept;
    if (core.fd.load() >= 0) {
        YM_LOG("%s: already listening on %d", kFn, core.fd.load());
        return false;
    }
    int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listening < 0) {
        YM_LOG("%s: socket error!", kFn);
        return false;
    }
    core.fd = listening;

    struct sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), ySocketFraming::kAddressPathBytes);
    unlink(path.c_str());  // a stale socket file from an earlier server is taken over
    socklen_t addressLength = static_cast<socklen_t>(std::strlen(address.sun_path) + offsetof(sockaddr_un, sun_path));
    if (::bind(listening, reinterpret_cast<struct sockaddr *>(&address), addressLength) != 0) {
        YM_LOG("%s: bind error!", kFn);
        end();
        return false;
    }
    if (::listen(listening, 5) != 0) {
        YM_LOG("%s: listen error!", kFn);
        end();
        return false;
    }
    // From here the I/O thread accepts the peers, until end().
    _impl->use = std::make_shared<ymIOLoop::Use>();
    auto watching = std::make_shared<std::atomic<bool>>(false);
    ymIOLoop::shared().runAndWait(
        [core = kept, listening, watching] {
            core->watchListening(listening);
            *watching = core->accepting != nullptr;
        },
        ySocketFraming::kPeerWaitLimit);
    if (!*watching) {
        YM_LOG("%s: listen error!", kFn);
        end();
        return false;
    }
    return true;
}

void ServerCore::watchListening(int listening)
{
    std::weak_ptr<ServerCore> weak = weak_from_this();
    accepting = ymIOLoop::Descriptor::watch(listening, [weak, listening](bool, bool, bool) {
        if (std::shared_ptr<ServerCore> self = weak.lock())
            self->acceptPeers(listening);
    });
}

void ServerCore::acceptPeers(int listening)
{
    static const char *const kFn = "-[ySocketServerImpl_SDK start]";
    for (;;) {
        int connection = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (connection >= 0) {
            adopt(connection);
            continue;
        }
        int error = errno;
        if (error == EINTR)
            continue;
        if (error == EAGAIN || error == EWOULDBLOCK)
            return;
        YM_LOG("%s: accept error, discard!", kFn);
        if (error == ECONNABORTED)
            continue;  // a peer that went before it was accepted
        // A shortage of descriptors or memory, or anything else that would fail again at once:
        // accepting pauses a little rather than spin for as long as it lasts.
        accepting.reset();
        std::weak_ptr<ServerCore> weak = weak_from_this();
        acceptPause = ymIOLoop::Timer::after(kAcceptPause, [weak, listening] {
            std::shared_ptr<ServerCore> self = weak.lock();
            if (self && self->fd.load() == listening)
                self->watchListening(listening);
        });
        return;
    }
}

void ServerCore::adopt(int connection)
{
    std::shared_ptr<ySocketConnection> served = ySocketConnection::serve(connection, weak_from_this(), kReader);
    if (!served)
        return;
    std::lock_guard<ymMutex> guard(vecConnectionsLock);
    vecConnections.push_back(std::move(served));
}

void ySocketServerImpl_SDK::connectionProcessFunc(int fd)
{
    ymIOLoop::Use use;
    ymIOLoop::shared().runAndWait([core = _impl->core(), fd] { core->adopt(fd); }, ySocketFraming::kPeerWaitLimit);
}

void ServerCore::connectionRead(ySocketConnection &, long count, std::string_view chunk)
{
    YM_LOG("%s: read [%d-%d]: %ld.%s\n", kReader, fd.load(), cl, count, chunk.data());
}

void ServerCore::connectionReceived(ySocketConnection &, const std::string &message)
{
    if (std::shared_ptr<ySocketDelegate> receiver = delegate.get())
        receiver->onMessageRecieved(message);
}

void ServerCore::connectionEnded(ySocketConnection &ended)
{
    {
        std::lock_guard<ymMutex> guard(vecConnectionsLock);
        auto found = std::find_if(vecConnections.begin(), vecConnections.end(),
                                  [&](const std::shared_ptr<ySocketConnection> &connection) { return connection.get() == &ended; });
        if (found != vecConnections.end())
            vecConnections.erase(found);
    }
    YM_LOG("%s: connection %d finished!", kReader, ended.number());
}

bool ySocketServerImpl_SDK::send(const std::optional<std::string> &message)
{
    static const char *const kFn = "-[ySocketServerImpl_SDK send:]";
    std::shared_ptr<ServerCore> kept = _impl->core();
    ServerCore &core = *kept;
    std::lock_guard<ymMutex> guard(core.vecConnectionsLock);
    if (core.fd.load() < 0 || core.vecConnections.empty()) {
        YM_LOG("%s: fd is %d,  connections %d!", kFn, core.fd.load(), static_cast<int>(core.vecConnections.size()));
        return false;
    }
    std::string_view bytes = ySocketFraming::bytesToSend(message);
    long length = static_cast<long>(bytes.size());
    YM_LOG("%s: [%d:%d]-[%ld]: buf = %.*s", kFn, core.fd.load(), core.cl, length, static_cast<int>(length), bytes.data());
    // Each peer's outcome is logged once it is known: at once, or when a queued text has gone or
    // has been given up.
    auto outcome = [length](bool whole) {
        if (whole)
            YM_LOG("%s: send success...", kFn);
        else if (length != 0)
            YM_LOG("%s: partial write! [%ld]", kFn, length);
        else
            YM_LOG("%s: write error! [%ld]", kFn, length);
    };
    for (const std::shared_ptr<ySocketConnection> &connection : core.vecConnections) {
        // One peer's full queue fails its text, never holds the others.
        ySocketConnection::Written written = connection->write(bytes, outcome, false);
        if (written != ySocketConnection::Written::queued)
            outcome(written == ySocketConnection::Written::whole);
    }
    return true;
}

bool ySocketServerImpl_SDK::end()
{
    static const char *const kFn = "-[ySocketServerImpl_SDK end]";
    std::shared_ptr<ServerCore> kept = _impl->core();
    ServerCore &core = *kept;
    int listening = core.fd.exchange(-1);
    if (listening < 0) {
        YM_LOG("%s: socket %d is invalid!", kFn, -1);
        return false;
    }
    // Accepting ends on the I/O thread before the socket is closed, and the peers are closed there
    // too (each once what was sent to it has gone); the use of the thread is given up after them.
    // A socket that never listened has nothing there.
    bool listened = _impl->use != nullptr;
    auto close = [core = kept, listening, use = std::move(_impl->use)]() mutable {
        core->accepting.reset();
        core->acceptPause.reset();
        if (::close(listening) == 0)
            YM_LOG("%s: close success!", kFn);
        std::vector<std::shared_ptr<ySocketConnection>> connections;
        {
            std::lock_guard<ymMutex> guard(core->vecConnectionsLock);
            connections.swap(core->vecConnections);
        }
        for (const std::shared_ptr<ySocketConnection> &connection : connections)
            connection->close();
        use.reset();
    };
    if (listened)
        ymIOLoop::shared().runAndWait(close, ySocketFraming::kPeerWaitLimit);
    else
        close();
    YM_LOG("%s", kFn);
    return true;
}

std::optional<std::string> ySocketServerImpl_SDK::socketPath() const
{
    std::shared_ptr<ServerCore> core = _impl->core();
    std::lock_guard<ymMutex> guard(core->propertiesLock);
    return core->socketPath;
}

void ySocketServerImpl_SDK::setSocketPath(const std::optional<std::string> &socketPath)
{
    std::shared_ptr<ServerCore> core = _impl->core();
    std::lock_guard<ymMutex> guard(core->propertiesLock);
    core->socketPath = socketPath;
}

std::shared_ptr<ySocketDelegate> ySocketServerImpl_SDK::delegate() const { return _impl->core()->delegate.get(); }
void ySocketServerImpl_SDK::setDelegate(const std::weak_ptr<ySocketDelegate> &delegate) { _impl->core()->delegate.set(delegate); }
