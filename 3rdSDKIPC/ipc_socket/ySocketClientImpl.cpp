#include <YumoClientSdk/ySocketClientImpl.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "3rdSDKIPC/ipc_socket/ySocketDescriptor.h"
#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymThread.h"
#include "foundation/ymWeakReference.h"

struct ySocketClientImpl_SDK::Impl {
    ySocketDescriptor fd;  // -1 when not connected
    // The condition: held for a whole connection attempt, and waited on by send().
    std::mutex conditionLock;
    std::condition_variable condition;
    // The peer took nothing for the whole wait limit on the last write.
    std::atomic<bool> stalled{false};
    std::optional<std::string> socketPath;
    ymWeakReference<ySocketDelegate> delegate;

    void readUntilClosed(ySocketClientImpl_SDK &client);
    void closeUnpublished(int fd);
};

namespace {

// How the current thread prints, in the shape the log files have always shown.
std::string currentThreadDescription()
{
    char name[32] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    char text[128];
    snprintf(text, sizeof text, "<NSThread: %#lx>{number = %d, name = %s}",
             static_cast<unsigned long>(pthread_self()), static_cast<int>(gettid()), name[0] ? name : "(null)");
    return text;
}

}  // namespace

std::shared_ptr<ySocketClientImpl_SDK> ySocketClientImpl_SDK::create()
{
    return std::shared_ptr<ySocketClientImpl_SDK>(new ySocketClientImpl_SDK());
}

ySocketClientImpl_SDK::ySocketClientImpl_SDK() : _impl(std::make_unique<Impl>()) {}

ySocketClientImpl_SDK::~ySocketClientImpl_SDK()
{
    YM_LOG("%s.", "-[ySocketClientImpl_SDK dealloc]");
    disconnect();
}

void ySocketClientImpl_SDK::connect()
{
    static const char *const kFn = "-[ySocketClientImpl_SDK connect]";
    std::unique_lock<std::mutex> lock(_impl->conditionLock);
    if (_impl->fd.load() >= 0) {
        // Despite the words, nothing is closed: the connection and its reader stay as they are.
        YM_LOG("%d is already connected. close it.", _impl->fd.load());
        _impl->condition.notify_one();
        return;
    }
    // The new socket is published only once it is connected: a send() that comes during the
    // attempt waits for its outcome instead of writing into a socket that is not connected yet.
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        YM_LOG("%s: socket error!", kFn);
        _impl->condition.notify_one();
        return;
    }
    // A listen queue that is full makes connect wait; it waits no longer than a write may.
    ySocketFraming::limitPeerWaits(fd);
    auto fail = [&] {
        _impl->closeUnpublished(fd);
        _impl->condition.notify_one();
    };
    if (!_impl->socketPath) {
        YM_LOG("%s: socketPath is nil", kFn);
        fail();
        return;
    }
    const std::string &path = *_impl->socketPath;
    size_t length = ymText::utf16Length(path);
    if (length >= ySocketFraming::kMaximumPathLength) {
        YM_LOG("%s: socket_path len = %ld, too long", kFn, static_cast<long>(length));
        fail();
        return;
    }
    struct sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), ySocketFraming::kAddressPathBytes);
    // The length is taken from the whole path, not from what fitted into the address.
    socklen_t addressLength = static_cast<socklen_t>(path.size() + offsetof(sockaddr_un, sun_path));
    int connected;
    do {
        connected = ::connect(fd, reinterpret_cast<struct sockaddr *>(&address), addressLength);
    } while (connected == -1 && errno == EINTR);
    if (connected == -1) {
        YM_LOG("%s: connect error", kFn);
        fail();
        return;
    }
    _impl->stalled = false;
    _impl->fd.publish(fd);
    _impl->condition.notify_one();
    lock.unlock();
    YM_LOG("%s: connect %d success...", kFn, fd);
    _impl->readUntilClosed(*this);
}

void ySocketClientImpl_SDK::Impl::readUntilClosed(ySocketClientImpl_SDK &client)
{
    static const char *const kFn = "-[ySocketClientImpl_SDK connect]";
    char buffer[ySocketFraming::kReadBufferSize];
    ySocketFraming::Gatherer gatherer;
    for (;;) {
        ssize_t count;
        int fd;
        {
            // The descriptor is taken afresh for every read: a disconnect() from elsewhere ends
            // the loop here.
            ySocketDescriptor::Use use(this->fd);
            fd = use.fd();
            count = read(fd, buffer, ySocketFraming::kReadSize);
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        YM_LOG("%s:#### [%d]: [r%ld-b%ld]", kFn, fd, static_cast<long>(count),
               static_cast<long>(strnlen(buffer, static_cast<size_t>(count))));
        gatherer.takeChunk(std::string_view(buffer, static_cast<size_t>(count)), delegate.get());
    }
    client.disconnect();
    YM_LOG("%s: connect finished", kFn);
}

bool ySocketClientImpl_SDK::send(const std::optional<std::string> &message)
{
    static const char *const kFn = "-[ySocketClientImpl_SDK send:]";
    if (_impl->fd.load() < 0) {
        YM_LOG("%s: socket connect %d is not ready, need connect it again!", kFn, _impl->fd.load());
        // An attempt (another sender's, or this one's) that does not end in time counts as a
        // failed one: the caller's thread is never held by a peer that does not answer.
        auto deadline = std::chrono::steady_clock::now() + ySocketFraming::kAttemptWaitLimit;
        std::unique_lock<std::mutex> lock(_impl->conditionLock, std::defer_lock);
        // Another attempt holds the lock for as long as it takes (a few seconds at most).
        while (!lock.try_lock()) {
            if (std::chrono::steady_clock::now() >= deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!ymDetachThread([self = shared_from_this()] { self->connect(); }))
            return false;
        // One wake-up is taken as the attempt's outcome. The attempt cannot signal before this
        // wait has released the lock, so the signal is never missed.
        _impl->condition.wait_until(lock, deadline);
        lock.unlock();
        if (!message || _impl->fd.load() < 0)
            return false;
    } else if (!message) {
        return false;
    }
    if (message->empty())
        return false;

    std::string_view bytes = ySocketFraming::bytesToSend(message);
    size_t length = bytes.size();
    long written;
    {
        ySocketDescriptor::Use use(_impl->fd);
        YM_LOG("%s: [%d]-[%ld]", kFn, use.fd(), static_cast<long>(length));
        bool stalled = _impl->stalled;
        written = ySocketFraming::sendOnce(use.fd(), bytes, stalled);
        _impl->stalled = stalled;
    }
    // A failed write of a non-empty text still answers YES; only an empty one is looked at.
    if (length != 0 || written == 0)
        return true;
    YM_LOG("%s: write error!", kFn);
    return false;
}

void ySocketClientImpl_SDK::disconnect()
{
    static const char *const kFn = "-[ySocketClientImpl_SDK disconnect]";
    YM_LOG("%s", kFn);
    int fd = _impl->fd.withdraw();
    if (fd >= 0) {
        YM_LOG("%s: close socket %d, threadDict = %s", kFn, fd, currentThreadDescription().c_str());
        _impl->fd.closeWithdrawn(fd);
    }
}

void ySocketClientImpl_SDK::Impl::closeUnpublished(int fd)
{
    // Logs as disconnect() does, for the socket of a failed attempt that was never published.
    static const char *const kFn = "-[ySocketClientImpl_SDK disconnect]";
    YM_LOG("%s", kFn);
    YM_LOG("%s: close socket %d, threadDict = %s", kFn, fd, currentThreadDescription().c_str());
    close(fd);
}

std::optional<std::string> ySocketClientImpl_SDK::socketPath() const { return _impl->socketPath; }
void ySocketClientImpl_SDK::setSocketPath(const std::optional<std::string> &socketPath) { _impl->socketPath = socketPath; }
std::shared_ptr<ySocketDelegate> ySocketClientImpl_SDK::delegate() const { return _impl->delegate.get(); }
void ySocketClientImpl_SDK::setDelegate(const std::weak_ptr<ySocketDelegate> &delegate) { _impl->delegate.set(delegate); }
