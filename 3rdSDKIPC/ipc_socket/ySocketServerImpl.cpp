#include <YumoClientSdk/ySocketServerImpl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "3rdSDKIPC/ipc_socket/ySocketDescriptor.h"
#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymThread.h"
#include "foundation/ymWeakReference.h"

struct ySocketServerImpl_SDK::Impl {
    ySocketDescriptor fd;  // the listening socket; -1 when there is none
    int cl = 0;            // never assigned; printed beside fd
    std::vector<int> vecConnections;
    // The connections that took nothing for the whole wait limit on their last write.
    std::vector<int> stalledConnections;
    std::mutex vecConnectionsLock;
    std::optional<std::string> socketPath;
    ymWeakReference<ySocketDelegate> delegate;
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
    if (!_impl->socketPath) {
        YM_LOG("%s: socketPath is nil", kFn);
        return false;
    }
    const std::string &path = *_impl->socketPath;
    size_t length = ymText::utf16Length(path);
    if (length >= ySocketFraming::kMaximumPathLength) {
        YM_LOG("%s: socket path is too long!, len = %ld", kFn, static_cast<long>(length));
        return false;
    }
    int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listening < 0) {
        YM_LOG("%s: socket error!", kFn);
        return false;
    }
    _impl->fd.publish(listening);

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

    // The accept loop has no way out. After end() the descriptor is -1, every accept fails at
    // once and the loop goes on logging; a server that has listened is never restarted.
    for (;;) {
        struct sockaddr_un peer;
        socklen_t peerLength = sizeof peer;
        int connection;
        {
            ySocketDescriptor::Use use(_impl->fd);  // read afresh: -1 once end() has run
            connection = accept4(use.fd(), reinterpret_cast<struct sockaddr *>(&peer), &peerLength, SOCK_CLOEXEC);
        }
        if (connection == -1) {
            YM_LOG("%s: accept error, discard!", kFn);
            continue;
        }
        ySocketFraming::limitPeerWaits(connection);  // a peer that stops reading holds a broadcast this long at most
        {
            std::lock_guard<std::mutex> guard(_impl->vecConnectionsLock);
            _impl->vecConnections.push_back(connection);
        }
        if (!ymDetachThread([self = shared_from_this(), connection] { self->connectionProcessFunc(connection); })) {
            // No thread to read this peer: let it go rather than keep a connection nobody serves.
            std::lock_guard<std::mutex> guard(_impl->vecConnectionsLock);
            auto found = std::find(_impl->vecConnections.begin(), _impl->vecConnections.end(), connection);
            if (found != _impl->vecConnections.end()) {
                _impl->vecConnections.erase(found);
                close(connection);
            }
        }
    }
}

void ySocketServerImpl_SDK::connectionProcessFunc(int fd)
{
    static const char *const kFn = "-[ySocketServerImpl_SDK connectionProcessFunc:]";
    char buffer[ySocketFraming::kReadBufferSize];
    ySocketFraming::Gatherer gatherer;
    for (;;) {
        ssize_t count = read(fd, buffer, ySocketFraming::kReadSize);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        buffer[count] = '\0';  // the chunk prints up to its first zero byte
        YM_LOG("%s: read [%d-%d]: %ld.%s\n", kFn, _impl->fd.load(), _impl->cl, static_cast<long>(count), buffer);
        gatherer.takeChunk(std::string_view(buffer, static_cast<size_t>(count)), _impl->delegate.get());
    }
    {
        std::lock_guard<std::mutex> guard(_impl->vecConnectionsLock);
        auto found = std::find(_impl->vecConnections.begin(), _impl->vecConnections.end(), fd);
        if (found != _impl->vecConnections.end())
            _impl->vecConnections.erase(found);
        std::erase(_impl->stalledConnections, fd);
    }
    close(fd);
    YM_LOG("%s: connection %d finished!", kFn, fd);
}

bool ySocketServerImpl_SDK::send(const std::optional<std::string> &message)
{
    static const char *const kFn = "-[ySocketServerImpl_SDK send:]";
    std::lock_guard<std::mutex> guard(_impl->vecConnectionsLock);
    if (_impl->fd.load() < 0 || _impl->vecConnections.empty()) {
        YM_LOG("%s: fd is %d,  connections %d!", kFn, _impl->fd.load(), static_cast<int>(_impl->vecConnections.size()));
        return false;
    }
    std::string_view bytes = ySocketFraming::bytesToSend(message);
    size_t length = bytes.size();
    YM_LOG("%s: [%d:%d]-[%ld]: buf = %.*s", kFn, _impl->fd.load(), _impl->cl, static_cast<long>(length), static_cast<int>(length), bytes.data());
    for (int connection : _impl->vecConnections) {
        auto stalledAt = std::find(_impl->stalledConnections.begin(), _impl->stalledConnections.end(), connection);
        bool stalled = stalledAt != _impl->stalledConnections.end();
        long written = ySocketFraming::sendOnce(connection, bytes, stalled);
        if (stalled && stalledAt == _impl->stalledConnections.end())
            _impl->stalledConnections.push_back(connection);
        else if (!stalled && stalledAt != _impl->stalledConnections.end())
            _impl->stalledConnections.erase(stalledAt);
        if (written == static_cast<long>(length))
            YM_LOG("%s: send success...", kFn);
        else if (length != 0)
            YM_LOG("%s: partial write! [%ld]", kFn, static_cast<long>(length));
        else
            YM_LOG("%s: write error! [%ld]", kFn, static_cast<long>(length));
    }
    return true;
}

bool ySocketServerImpl_SDK::end()
{
    static const char *const kFn = "-[ySocketServerImpl_SDK end]";
    int listening = _impl->fd.withdraw();
    if (listening < 0) {
        YM_LOG("%s: socket %d is invalid!", kFn, listening);
        return false;
    }
    // The accept thread is woken and let go of the socket before it is closed.
    if (_impl->fd.closeWithdrawn(listening) == 0)
        YM_LOG("%s: close success!", kFn);
    {
        // Each connection is shut down here and closed by its own reader thread, which wakes up
        // at once: closing it here too would let a second close hit a descriptor number that
        // another part of the process has opened meanwhile.
        std::lock_guard<std::mutex> guard(_impl->vecConnectionsLock);
        for (int connection : _impl->vecConnections)
            shutdown(connection, SHUT_RDWR);
        _impl->vecConnections.clear();
        _impl->stalledConnections.clear();
    }
    YM_LOG("%s", kFn);
    return true;
}

std::optional<std::string> ySocketServerImpl_SDK::socketPath() const { return _impl->socketPath; }
void ySocketServerImpl_SDK::setSocketPath(const std::optional<std::string> &socketPath) { _impl->socketPath = socketPath; }
std::shared_ptr<ySocketDelegate> ySocketServerImpl_SDK::delegate() const { return _impl->delegate.get(); }
void ySocketServerImpl_SDK::setDelegate(const std::weak_ptr<ySocketDelegate> &delegate) { _impl->delegate.set(delegate); }
