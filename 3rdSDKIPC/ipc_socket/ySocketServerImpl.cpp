#include <YumoClientSdk/ySocketServerImpl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "3rdSDKIPC/ipc_socket/ySocketDescriptor.h"
#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymThread.h"
#include "foundation/ymWeakReference.h"

struct ySocketServerImpl_SDK::DelegateReference : ymWeakReference<ySocketDelegate> {};

std::shared_ptr<ySocketServerImpl_SDK> ySocketServerImpl_SDK::create()
{
    return std::shared_ptr<ySocketServerImpl_SDK>(new ySocketServerImpl_SDK());
}

ySocketServerImpl_SDK::ySocketServerImpl_SDK()
    : _fd(std::make_unique<ySocketDescriptor>()), _delegate(std::make_unique<DelegateReference>())
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
    if (!_socketPath) {
        YM_LOG("%s: socketPath is nil", kFn);
        return false;
    }
    const std::string &path = *_socketPath;
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
    _fd->publish(listening);

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
            ySocketDescriptor::Use use(*_fd);  // read afresh: -1 once end() has run
            connection = accept4(use.fd(), reinterpret_cast<struct sockaddr *>(&peer), &peerLength, SOCK_CLOEXEC);
        }
        if (connection == -1) {
            YM_LOG("%s: accept error, discard!", kFn);
            continue;
        }
        ySocketFraming::limitPeerWaits(connection);  // a peer that stops reading holds a broadcast this long at most
        {
            std::lock_guard<std::mutex> guard(_vecConnectionsLock);
            _vecConnections.push_back(connection);
        }
        if (!ymDetachThread([self = shared_from_this(), connection] { self->connectionProcessFunc(connection); })) {
            // No thread to read this peer: let it go rather than keep a connection nobody serves.
            std::lock_guard<std::mutex> guard(_vecConnectionsLock);
            auto found = std::find(_vecConnections.begin(), _vecConnections.end(), connection);
            if (found != _vecConnections.end()) {
                _vecConnections.erase(found);
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
        YM_LOG("%s: read [%d-%d]: %ld.%s\n", kFn, _fd->load(), _cl, static_cast<long>(count), buffer);
        gatherer.takeChunk(std::string_view(buffer, static_cast<size_t>(count)), delegate());
    }
    {
        std::lock_guard<std::mutex> guard(_vecConnectionsLock);
        auto found = std::find(_vecConnections.begin(), _vecConnections.end(), fd);
        if (found != _vecConnections.end())
            _vecConnections.erase(found);
        std::erase(_stalledConnections, fd);
    }
    close(fd);
    YM_LOG("%s: connection %d finished!", kFn, fd);
}

bool ySocketServerImpl_SDK::send(const std::optional<std::string> &message)
{
    static const char *const kFn = "-[ySocketServerImpl_SDK send:]";
    std::lock_guard<std::mutex> guard(_vecConnectionsLock);
    if (_fd->load() < 0 || _vecConnections.empty()) {
        YM_LOG("%s: fd is %d,  connections %d!", kFn, _fd->load(), static_cast<int>(_vecConnections.size()));
        return false;
    }
    std::string_view bytes = ySocketFraming::bytesToSend(message);
    size_t length = bytes.size();
    YM_LOG("%s: [%d:%d]-[%ld]: buf = %.*s", kFn, _fd->load(), _cl, static_cast<long>(length), static_cast<int>(length), bytes.data());
    for (int connection : _vecConnections) {
        auto stalledAt = std::find(_stalledConnections.begin(), _stalledConnections.end(), connection);
        bool stalled = stalledAt != _stalledConnections.end();
        long written = ySocketFraming::sendOnce(connection, bytes, stalled);
        if (stalled && stalledAt == _stalledConnections.end())
            _stalledConnections.push_back(connection);
        else if (!stalled && stalledAt != _stalledConnections.end())
            _stalledConnections.erase(stalledAt);
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
    int listening = _fd->withdraw();
    if (listening < 0) {
        YM_LOG("%s: socket %d is invalid!", kFn, listening);
        return false;
    }
    // The accept thread is woken and let go of the socket before it is closed.
    if (_fd->closeWithdrawn(listening) == 0)
        YM_LOG("%s: close success!", kFn);
    {
        // Each connection is shut down here and closed by its own reader thread, which wakes up
        // at once: closing it here too would let a second close hit a descriptor number that
        // another part of the process has opened meanwhile.
        std::lock_guard<std::mutex> guard(_vecConnectionsLock);
        for (int connection : _vecConnections)
            shutdown(connection, SHUT_RDWR);
        _vecConnections.clear();
        _stalledConnections.clear();
    }
    YM_LOG("%s", kFn);
    return true;
}

std::optional<std::string> ySocketServerImpl_SDK::socketPath() const { return _socketPath; }
void ySocketServerImpl_SDK::setSocketPath(const std::optional<std::string> &socketPath) { _socketPath = socketPath; }
std::shared_ptr<ySocketDelegate> ySocketServerImpl_SDK::delegate() const { return _delegate->get(); }
void ySocketServerImpl_SDK::setDelegate(const std::weak_ptr<ySocketDelegate> &delegate) { _delegate->set(delegate); }
