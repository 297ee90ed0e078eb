#include <YumoClientSdk/ySocketClientImpl.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>

#include "platform/ymMutex.h"
#include <pthread.h>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "3rdSDKIPC/ipc_socket/ySocketConnection.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "foundation/ymWeakReference.h"
#include "platform/ymIOLoop.h"
#include "platform/ymProcessBound.h"

namespace {

using Clock = std::chrono::steady_clock;

const char *const kConnect = "-[ySocketClientImpl_SDK connect]";
const char *const kDisconnect = "-[ySocketClientImpl_SDK disconnect]";

// After the peer went, after its socket appeared, and after an attempt asked for found its socket
// but nobody listening, the attempt is made again this many times, 10 ms, 20 ms, ... apart (about
// 2.5 s in all): the peer may be about to listen. Then only a change in its folder wakes the client.
constexpr int kQuickRetries = 8;
// A peer that accepts and then closes at once (a meeting client shutting down, say) is connected
// to again after a pause that doubles, from the first to the last of these, with jitter; a
// connection that stood this long (or brought a message) starts the pauses afresh.
constexpr std::chrono::milliseconds kFirstBackOff{50};
constexpr std::chrono::milliseconds kLastBackOff{2000};
constexpr std::chrono::milliseconds kSteadyConnection{2000};
// A peer that is there but takes nobody (its listen queue is full), a shortage here, or a folder
// that cannot be watched: looked at again this often.
constexpr std::chrono::minutes kSlowRetry{1};
// How often a connect to a full listen queue is repeated within the wait limit.
constexpr std::chrono::milliseconds kFullQueueRetry{20};

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

// What the client is, shared with the I/O thread: the connection and the attempts to make one.
// The public object owns it; work on the I/O thread holds it weakly, except the clean-up that
// ends its sources, which holds it until it has run.
struct ClientCore : ySocketConnection::Owner, std::enable_shared_from_this<ClientCore> {
    // Any thread, under the lock.
    ymMutex lock;
    std::condition_variable_any attempted;
    // Attempts are asked for with a ticket each; an attempt answers the tickets asked before it
    // began (a later one gets an attempt of its own).
    uint64_t attemptsAsked = 0;
    uint64_t attemptsAnswered = 0;
    std::shared_ptr<ySocketConnection> connection;
    std::optional<std::string> socketPath;
    // Connect again by itself whenever the connection ends or cannot be made (from the first
    // attempt asked for until disconnect()).
    bool wanted = false;
    std::shared_ptr<ymIOLoop::Use> use;  // while wanted
    ymWeakReference<ySocketDelegate> delegate;

    // The I/O thread's.
    int pendingFd = -1;            // an attempt waiting for room in a full listen queue
    uint64_t pendingTicket = 0;    // the tickets it answers
    bool askedMeanwhile = false;   // another attempt was asked for while it was under way
    Clock::time_point pendingDeadline;
    struct sockaddr_un address;
    socklen_t addressLength = 0;
    std::unique_ptr<ymIOLoop::DirectoryWatch> watch;
    std::string watchedPath;       // the socket path the watch is for
    std::unique_ptr<ymIOLoop::Timer> retry;
    int quickRetriesLeft = 0;
    Clock::time_point connectedAt;     // the connection standing now was made then
    bool heardOnConnection = false;    // and has brought a message
    std::chrono::milliseconds backOff{0};  // the pause after a connection closed at once

    std::shared_ptr<ySocketConnection> current()
    {
        std::lock_guard<ymMutex> guard(lock);
        return connection;
    }
    // Any thread: asks the I/O thread for one attempt; answers the ticket that waitFor() takes.
    uint64_t askAttempt();
    // Waits until the ticket has been answered, at most until the deadline. On the I/O thread the
    // attempt has already been made.
    void waitFor(uint64_t ticket, Clock::time_point deadline);
    // Any thread: stops connecting again, closes the connection, and ends the sources.
    void stop();

    // I/O thread.
    void attempt(bool fresh);
    void tryConnect();
    void connected(int fd);
    void failed(int error);
    void answer(uint64_t ticket);
    void closeUnpublished(int fd);
    void waitForPeer(int error);
    void retryAfter(std::chrono::milliseconds delay, std::chrono::milliseconds slack = std::chrono::milliseconds(1));
    void watchFolder(const std::string &path);

    void connectionRead(ySocketConnection &connection, long count, std::string_view chunk) override;
    void connectionReceived(ySocketConnection &connection, const std::string &message) override;
    void connectionEnded(ySocketConnection &connection) override;
};

// A pause between `pause` / 2 and `pause`: companions that lost one peer at once do not all come
// back at the same instant.
std::chrono::milliseconds withJitter(std::chrono::milliseconds pause)
{
    thread_local std::minstd_rand random(static_cast<unsigned>(getpid()) ^ static_cast<unsigned>(gettid()) ^
                                         static_cast<unsigned>(Clock::now().time_since_epoch().count()));
    long long half = pause.count() / 2;
    return std::chrono::milliseconds(half + std::uniform_int_distribution<long long>(0, half)(random));
}

}  // namespace

struct ySocketClientImpl_SDK::Impl {
    // The client of this process: a child of a fork gets one of its own, with the same path and
    // delegate, that connects anew (the parent's connection is never used there).
    ymProcessBound<ClientCore> bound{std::make_shared<ClientCore>()};

    ClientCore &core()
    {
        return bound.get([](const ClientCore *abandoned) {
            auto fresh = std::make_shared<ClientCore>();
            ClientCore &old = const_cast<ClientCore &>(*abandoned);
            std::lock_guard<ymMutex> guard(old.lock);
            fresh->socketPath = old.socketPath;
            fresh->delegate.set(old.delegate.weak());
            return fresh;
        });
    }
};

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
    ClientCore &core = _impl->core();
    uint64_t ticket = core.askAttempt();
    core.waitFor(ticket, Clock::now() + ySocketFraming::kAttemptWaitLimit);
}

bool ySocketClientImpl_SDK::send(const std::optional<std::string> &message)
{
    static const char *const kFn = "-[ySocketClientImpl_SDK send:]";
    ClientCore &core = _impl->core();
    std::shared_ptr<ySocketConnection> connection = core.current();
    if (!connection) {
        YM_LOG("%s: socket connect %d is not ready, need connect it again!", kFn, -1);
        // An attempt that has no outcome in time counts as a failed one: the caller's thread is
        // never held by a peer that does not answer.
        uint64_t ticket = core.askAttempt();
        core.waitFor(ticket, Clock::now() + ySocketFraming::kAttemptWaitLimit);
        connection = core.current();
        if (!message || !connection)
            return false;
    } else if (!message) {
        return false;
    }
    if (message->empty())
        return false;

    std::string_view bytes = ySocketFraming::bytesToSend(message);
    YM_LOG("%s: [%d]-[%ld]", kFn, connection->number(), static_cast<long>(bytes.size()));
    ySocketConnection::Written written = connection->write(bytes);
    // A failed write of a non-empty text still answers YES; only an empty one is looked at.
    if (!bytes.empty() || written != ySocketConnection::Written::failed)
        return true;
    YM_LOG("%s: write error!", kFn);
    return false;
}

void ySocketClientImpl_SDK::disconnect()
{
    YM_LOG("%s", kDisconnect);
    // A client the parent of this process made is left to the parent.
    if (ClientCore *core = _impl->bound.ifCurrent())
        core->stop();
}

uint64_t ClientCore::askAttempt()
{
    uint64_t ticket;
    {
        std::lock_guard<ymMutex> guard(lock);
        if (!wanted) {
            wanted = true;
            use = std::make_shared<ymIOLoop::Use>();
        }
        ticket = ++attemptsAsked;
    }
    if (ymIOLoop::onIOThread()) {
        attempt(true);
    } else {
        std::weak_ptr<ClientCore> weak = weak_from_this();
        if (!ymIOLoop::shared().post([weak] {
                if (std::shared_ptr<ClientCore> self = weak.lock())
                    self->attempt(true);
            }))
            answer(ticket);  // no I/O thread: nothing will connect
    }
    return ticket;
}

void ClientCore::waitFor(uint64_t ticket, Clock::time_point deadline)
{
    if (ymIOLoop::onIOThread())
        return;
    std::unique_lock<ymMutex> guard(lock);
    attempted.wait_until(guard, deadline, [&] { return attemptsAnswered >= ticket; });
}

void ClientCore::answer(uint64_t ticket)
{
    std::lock_guard<ymMutex> guard(lock);
    if (ticket > attemptsAnswered)
        attemptsAnswered = ticket;
    attempted.notify_all();
}

void ClientCore::stop()
{
    std::shared_ptr<ySocketConnection> closing;
    std::shared_ptr<ymIOLoop::Use> keptUse;
    uint64_t asked;
    {
        std::lock_guard<ymMutex> guard(lock);
        wanted = false;
        closing = std::move(connection);
        keptUse = std::move(use);
        asked = attemptsAsked;
    }
    if (closing) {
        YM_LOG("%s: close socket %d, threadDict = %s", kDisconnect, closing->number(), currentThreadDescription().c_str());
        closing->close();
    }
    if (!keptUse)
        return;  // never asked to connect: nothing of it is on the I/O thread
    // The watch, the retry and an attempt under way end on the I/O thread; the use of the thread
    // is given up there, after them.
    std::shared_ptr<ClientCore> self = shared_from_this();
    ymIOLoop::shared().runAndWait(
        [self, keptUse, asked]() mutable {
            self->watch.reset();
            self->retry.reset();
            if (self->pendingFd >= 0) {
                ::close(self->pendingFd);
                self->pendingFd = -1;
                self->askedMeanwhile = false;
            }
            std::shared_ptr<ySocketConnection> late;
            {
                std::lock_guard<ymMutex> guard(self->lock);
                if (!self->wanted)
                    late = std::move(self->connection);  // made by an attempt asked for before the stop
            }
            if (late)
                late->close();
            self->answer(asked);
            keptUse.reset();
        },
        ySocketFraming::kPeerWaitLimit);
}

void ClientCore::attempt(bool fresh)
{
    if (pendingFd >= 0) {
        askedMeanwhile = true;  // tickets the attempt under way does not answer get one of their own after it
        return;
    }
    retry.reset();  // a retry that was due is this attempt
    if (fresh)
        quickRetriesLeft = kQuickRetries;
    std::shared_ptr<ySocketConnection> existing;
    bool stillWanted;
    std::optional<std::string> path;
    uint64_t ticket;
    {
        std::lock_guard<ymMutex> guard(lock);
        existing = connection;
        stillWanted = wanted;
        path = socketPath;
        ticket = attemptsAsked;
    }
    if (existing) {
        // Despite the words, nothing is closed: the connection stays as it is.
        YM_LOG("%d is already connected. close it.", existing->number());
        answer(ticket);
        return;
    }
    if (!stillWanted) {
        answer(ticket);  // stopped meanwhile
        return;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        YM_LOG("%s: socket error!", kConnect);
        answer(ticket);
        waitForPeer(EMFILE);
        return;
    }
    if (!path) {
        YM_LOG("%s: socketPath is nil", kConnect);
        closeUnpublished(fd);
        answer(ticket);
        return;
    }
    size_t length = ymText::utf16Length(*path);
    if (length >= ySocketFraming::kMaximumPathLength) {
        YM_LOG("%s: socket_path len = %ld, too long", kConnect, static_cast<long>(length));
        closeUnpublished(fd);
        answer(ticket);
        return;
    }
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path->c_str(), ySocketFraming::kAddressPathBytes);
    // The length is taken from the whole path, not from what fitted into the address.
    addressLength = static_cast<socklen_t>(path->size() + offsetof(sockaddr_un, sun_path));
    // The folder is watched before the attempt: a socket made there after it fails is seen.
    watchFolder(*path);
    pendingFd = fd;
    pendingTicket = ticket;
    pendingDeadline = Clock::now() + ySocketFraming::kPeerWaitLimit;
    tryConnect();
}

void ClientCore::tryConnect()
{
    int result;
    do {
        result = ::connect(pendingFd, reinterpret_cast<struct sockaddr *>(&address), addressLength);
    } while (result == -1 && errno == EINTR);
    if (result == 0 || errno == EISCONN) {
        connected(pendingFd);
        return;
    }
    int error = errno;
    if ((error == EAGAIN || error == EINPROGRESS || error == EALREADY) && Clock::now() < pendingDeadline) {
        // The listen queue is full: the peer may take this connection within the wait limit.
        std::weak_ptr<ClientCore> weak = weak_from_this();
        retry = ymIOLoop::Timer::after(kFullQueueRetry, [weak] {
            if (std::shared_ptr<ClientCore> self = weak.lock(); self && self->pendingFd >= 0)
                self->tryConnect();
        });
        return;
    }
    failed(error);
}

void ClientCore::connected(int fd)
{
    pendingFd = -1;
    askedMeanwhile = false;
    std::shared_ptr<ySocketConnection> made = ySocketConnection::serve(fd, weak_from_this(), kConnect);
    if (!made) {
        YM_LOG("%s: connect error", kConnect);
        answer(pendingTicket);
        waitForPeer(ENOMEM);
        return;
    }
    uint64_t asked;
    {
        std::lock_guard<ymMutex> guard(lock);
        connection = made;
        asked = attemptsAsked;
    }
    watch.reset();
    retry.reset();
    quickRetriesLeft = 0;
    connectedAt = Clock::now();
    heardOnConnection = false;
    answer(asked);  // whoever asked meanwhile finds the connection standing
    YM_LOG("%s: connect %d success...", kConnect, fd);
}

void ClientCore::failed(int error)
{
    YM_LOG("%s: connect error", kConnect);
    closeUnpublished(pendingFd);
    pendingFd = -1;
    answer(pendingTicket);
    if (askedMeanwhile) {
        // Asked for while this attempt was under way: an attempt of their own, now. (A ticket
        // asked for after it has posted its own.)
        askedMeanwhile = false;
        std::weak_ptr<ClientCore> weak = weak_from_this();
        ymIOLoop::shared().post([weak] {
            if (std::shared_ptr<ClientCore> self = weak.lock())
                self->attempt(false);
        });
    }
    waitForPeer(error);
}

void ClientCore::closeUnpublished(int fd)
{
    // Logs as disconnect() does, for the socket of a failed attempt that never became a connection.
    YM_LOG("%s", kDisconnect);
    YM_LOG("%s: close socket %d, threadDict = %s", kDisconnect, fd, currentThreadDescription().c_str());
    ::close(fd);
}

void ClientCore::retryAfter(std::chrono::milliseconds delay, std::chrono::milliseconds slack)
{
    std::weak_ptr<ClientCore> weak = weak_from_this();
    retry = ymIOLoop::Timer::after(
        delay,
        [weak] {
            if (std::shared_ptr<ClientCore> self = weak.lock())
                self->attempt(false);
        },
        slack);
}

void ClientCore::waitForPeer(int error)
{
    {
        std::lock_guard<ymMutex> guard(lock);
        if (!wanted)
            return;
    }
    if (error != ENOENT && quickRetriesLeft > 0) {
        // Its socket is there but nobody listens on it yet, or no more: soon, perhaps.
        auto delay = std::chrono::milliseconds(10 << (kQuickRetries - quickRetriesLeft));
        --quickRetriesLeft;
        retryAfter(delay);
    } else if (error == EAGAIN || error == EINPROGRESS || error == EALREADY || error == EMFILE || error == ENFILE ||
               error == ENOMEM || error == ENOBUFS || !watch) {
        retryAfter(kSlowRetry, std::chrono::seconds(10));
    }
    // Otherwise (nobody listens, or no socket at all) the folder's watch wakes the client once a
    // socket is made there again.
}

void ClientCore::watchFolder(const std::string &path)
{
    if (watch && watchedPath == path)
        return;
    watch.reset();
    watchedPath = path;
    size_t slash = path.rfind('/');
    std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : path.substr(0, slash));
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::weak_ptr<ClientCore> weak = weak_from_this();
    watch = ymIOLoop::DirectoryWatch::watch(folder, [weak, name](const char *entry) {
        std::shared_ptr<ClientCore> self = weak.lock();
        if (!self)
            return;
        if (!entry) {
            // The folder went: look again once a minute (a new one may come).
            self->watch.reset();
            if (!self->current())
                self->retryAfter(kSlowRetry, std::chrono::seconds(10));
            return;
        }
        if (name == entry && !self->current())
            self->attempt(true);
    });
}

void ClientCore::connectionRead(ySocketConnection &connection, long count, std::string_view chunk)
{
    YM_LOG("%s:#### [%d]: [r%ld-b%ld]", kConnect, connection.number(), count,
           static_cast<long>(strnlen(chunk.data(), chunk.size())));
}

void ClientCore::connectionReceived(ySocketConnection &, const std::string &message)
{
    heardOnConnection = true;
    if (std::shared_ptr<ySocketDelegate> receiver = delegate.get())
        receiver->onMessageRecieved(message);
}

void ClientCore::connectionEnded(ySocketConnection &ended)
{
    // The reader's end, as it has always been logged.
    YM_LOG("%s", kDisconnect);
    YM_LOG("%s: close socket %d, threadDict = %s", kDisconnect, ended.number(), currentThreadDescription().c_str());
    YM_LOG("%s: connect finished", kConnect);
    {
        std::lock_guard<ymMutex> guard(lock);
        if (connection.get() == &ended)
            connection.reset();
    }
    // The peer went: connect again at once, and if nobody listens, as soon as its socket is made
    // again. A peer that took the connection only to close it is given a pause first, longer each
    // time it does so again.
    if (heardOnConnection || Clock::now() - connectedAt >= kSteadyConnection) {
        backOff = std::chrono::milliseconds(0);
        attempt(true);
        return;
    }
    backOff = backOff.count() == 0 ? kFirstBackOff : std::min(backOff * 2, kLastBackOff);
    quickRetriesLeft = kQuickRetries;
    retryAfter(withJitter(backOff));
}

std::optional<std::string> ySocketClientImpl_SDK::socketPath() const
{
    ClientCore &core = _impl->core();
    std::lock_guard<ymMutex> guard(core.lock);
    return core.socketPath;
}

void ySocketClientImpl_SDK::setSocketPath(const std::optional<std::string> &socketPath)
{
    ClientCore &core = _impl->core();
    std::lock_guard<ymMutex> guard(core.lock);
    core.socketPath = socketPath;
}

std::shared_ptr<ySocketDelegate> ySocketClientImpl_SDK::delegate() const { return _impl->core().delegate.get(); }
void ySocketClientImpl_SDK::setDelegate(const std::weak_ptr<ySocketDelegate> &delegate) { _impl->core().delegate.set(delegate); }
