#include "3rdSDKIPC/ipc_socket/ySocketConnection.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "foundation/ymLog.h"

namespace {

using Clock = std::chrono::steady_clock;

// How many reads one wake-up serves before the other sources get their turn.
constexpr int kReadsPerWakeUp = 16;

long sendNow(int fd, const char *bytes, size_t length)
{
    ssize_t sent;
    do {
        sent = ::send(fd, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return static_cast<long>(sent);
}

bool wouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK; }

}  // namespace

std::shared_ptr<ySocketConnection> ySocketConnection::serve(int fd, std::weak_ptr<Owner> owner, const char *readerName)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::shared_ptr<ySocketConnection> connection(new ySocketConnection(fd, std::move(owner), readerName));
    std::weak_ptr<ySocketConnection> weak = connection;
    connection->_watch = ymIOLoop::Descriptor::watch(fd, [weak](bool readable, bool writable, bool hangup) {
        if (std::shared_ptr<ySocketConnection> self = weak.lock())
            self->ready(readable, writable, hangup);
    });
    if (!connection->_watch) {
        connection->end(false);
        return nullptr;
    }
    return connection;
}

ySocketConnection::ySocketConnection(int fd, std::weak_ptr<Owner> owner, const char *readerName)
    : _fd(fd), _number(fd), _owner(std::move(owner)), _readerName(readerName)
{
}

ySocketConnection::~ySocketConnection()
{
    if (_fd < 0)
        return;
    // Dropped without close(): the sources must still end on the I/O thread, and the descriptor
    // with them. Nothing calls back any more (the watches hold this object weakly).
    if (ymIOLoop::onIOThread()) {
        _watch.reset();
        _timer.reset();
        _unfinished.reset();
        ::close(_fd);
        return;
    }
    struct Sources {
        std::unique_ptr<ymIOLoop::Descriptor> watch;
        std::unique_ptr<ymIOLoop::Timer> timer, unfinished;
    };
    auto sources = std::make_shared<Sources>(Sources{std::move(_watch), std::move(_timer), std::move(_unfinished)});
    int fd = _fd;
    ymIOLoop::shared().post([sources, fd] {
        *sources = Sources();
        ::close(fd);
    });
}

ySocketConnection::Written ySocketConnection::write(std::string_view bytes, std::function<void(bool whole)> done)
{
    std::unique_lock<ymMutex> guard(_lock);
    if (_closing || _fd < 0)
        return Written::failed;
    if (!_queue.empty()) {
        if (_stalled || _queuedBytes + bytes.size() > ySocketFraming::kMaximumQueuedBytes)
            return Written::failed;
        _queue.push_back({std::string(bytes), 0, Clock::now() + ySocketFraming::kPeerWaitLimit, std::move(done)});
        _queuedBytes += bytes.size();
        // Behind a text the peer has begun there may be no deadline set yet: this one needs one.
        if (_deadlineArmed)
            return Written::queued;
        _deadlineArmed = true;
        guard.unlock();
        onIOThread([](ySocketConnection &self) { self.armTimer(); });
        return Written::queued;
    }
    long sent = sendNow(_fd, bytes.data(), bytes.size());
    if (sent == static_cast<long>(bytes.size()))
        return Written::whole;
    if (sent < 0 && !wouldBlock())
        return Written::failed;  // the peer has gone, or will not take anything more
    size_t taken = sent > 0 ? static_cast<size_t>(sent) : 0;
    _queue.push_back({std::string(bytes), taken, Clock::now() + ySocketFraming::kPeerWaitLimit, std::move(done)});
    _queuedBytes += bytes.size() - taken;
    guard.unlock();
    // The rest goes out when the peer takes it.
    onIOThread([](ySocketConnection &self) {
        self._watch->setWritable(true);
        self.armTimer();
    });
    return Written::queued;
}

void ySocketConnection::onIOThread(void (*work)(ySocketConnection &self))
{
    std::weak_ptr<ySocketConnection> weak = weak_from_this();
    auto run = [weak, work] {
        if (std::shared_ptr<ySocketConnection> self = weak.lock(); self && self->_watch)
            work(*self);
    };
    if (ymIOLoop::onIOThread())
        run();
    else
        ymIOLoop::shared().post(run);
}

void ySocketConnection::close()
{
    {
        std::lock_guard<ymMutex> guard(_lock);
        if (_closing || _fd < 0)
            return;
        _closing = true;
    }
    if (ymIOLoop::onIOThread())
        closeWhenFlushed();
    else
        ymIOLoop::shared().post([self = shared_from_this()] { self->closeWhenFlushed(); });
}

void ySocketConnection::closeWhenFlushed()
{
    bool flushed;
    {
        std::lock_guard<ymMutex> guard(_lock);
        flushed = _queue.empty();
    }
    if (flushed) {
        end(false);
        return;
    }
    // What was written before the close still goes out, within the wait limit.
    _lingering = shared_from_this();
    _closeDeadline = Clock::now() + ySocketFraming::kPeerWaitLimit;
    armTimer();
}

void ySocketConnection::ready(bool readable, bool writable, bool hangup)
{
    if (writable) {
        Completions completions;
        bool flushed;
        {
            std::lock_guard<ymMutex> guard(_lock);
            writeQueued(completions);
            flushed = _queue.empty();
        }
        complete(completions);
        if (flushed && _watch) {
            _watch->setWritable(false);
            if (_lingering) {
                end(false);
                return;
            }
            armTimer();
        }
    }
    if (readable || hangup)
        readAvailable();
}

void ySocketConnection::readAvailable()
{
    char buffer[ySocketFraming::kReadSize + 1];
    for (int reads = 0; reads < kReadsPerWakeUp && _watch; ++reads) {
        ssize_t count = ::read(_fd, buffer, ySocketFraming::kReadSize);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && wouldBlock())
            return;
        if (count <= 0) {
            end(true);
            return;
        }
        buffer[count] = '\0';
        std::string_view chunk(buffer, static_cast<size_t>(count));
        if (std::shared_ptr<Owner> owner = _owner.lock())
            owner->connectionRead(*this, static_cast<long>(count), chunk);
        _splitter.feed(chunk, *this);
        if (_watch)
            watchUnfinished();
    }
}

void ySocketConnection::watchUnfinished()
{
    if (!_splitter.unfinished()) {
        _unfinished.reset();
        return;
    }
    // Started afresh by every read: it fires only when nothing more has come for the limit.
    std::weak_ptr<ySocketConnection> weak = weak_from_this();
    _unfinished = ymIOLoop::Timer::after(ySocketFraming::kPeerWaitLimit, [weak] {
        if (std::shared_ptr<ySocketConnection> self = weak.lock(); self && self->_watch) {
            self->_unfinished.reset();
            self->_splitter.abandon(*self);
            self->watchUnfinished();
        }
    });
}

void ySocketConnection::writeQueued(Completions &completions)
{
    while (!_queue.empty()) {
        Queued &head = _queue.front();
        long sent = sendNow(_fd, head.bytes.data() + head.sent, head.bytes.size() - head.sent);
        if (sent < 0 && wouldBlock())
            return;
        if (sent < 0) {
            // The peer has gone: nothing queued will reach it.
            for (Queued &queued : _queue)
                completions.emplace_back(std::move(queued.done), false);
            _queue.clear();
            _queuedBytes = 0;
            break;
        }
        head.sent += static_cast<size_t>(sent);
        _queuedBytes -= static_cast<size_t>(sent);
        if (head.sent < head.bytes.size())
            return;
        completions.emplace_back(std::move(head.done), true);
        _queue.pop_front();
    }
    _stalled = false;
}

void ySocketConnection::dropExpired(Completions &completions)
{
    Clock::time_point now = Clock::now();
    for (auto queued = _queue.begin(); queued != _queue.end();) {
        // A text the peer has begun to take is never cut off.
        if (queued->sent == 0 && queued->deadline <= now) {
            completions.emplace_back(std::move(queued->done), false);
            _queuedBytes -= queued->bytes.size();
            queued = _queue.erase(queued);
            _stalled = true;
        } else {
            ++queued;
        }
    }
    if (_queue.empty())
        _stalled = false;  // nothing is left to wait for: the next text goes out as any other
}

void ySocketConnection::armTimer()
{
    std::optional<Clock::time_point> due;
    {
        std::lock_guard<ymMutex> guard(_lock);
        for (const Queued &queued : _queue)
            if (queued.sent == 0 && (!due || queued.deadline < *due))
                due = queued.deadline;
        _deadlineArmed = due.has_value();
    }
    if (_lingering && (!due || _closeDeadline < *due))
        due = _closeDeadline;
    if (!due) {
        _timer.reset();
        return;
    }
    auto delay = std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now());
    std::weak_ptr<ySocketConnection> weak = weak_from_this();
    _timer = ymIOLoop::Timer::after(delay, [weak] {
        std::shared_ptr<ySocketConnection> self = weak.lock();
        if (!self)
            return;
        Completions completions;
        bool flushed;
        {
            std::lock_guard<ymMutex> guard(self->_lock);
            self->dropExpired(completions);
            flushed = self->_queue.empty();
        }
        complete(completions);
        if (self->_lingering && (flushed || Clock::now() >= self->_closeDeadline)) {
            self->end(false);
            return;
        }
        if (flushed && self->_watch)
            self->_watch->setWritable(false);
        self->armTimer();
    });
}

void ySocketConnection::end(bool byPeer)
{
    Completions completions;
    int fd;
    bool ownerClosed;
    {
        std::lock_guard<ymMutex> guard(_lock);
        if (_fd < 0)
            return;
        fd = _fd;
        _fd = -1;
        ownerClosed = _closing;
        _closing = true;
        for (Queued &queued : _queue)
            completions.emplace_back(std::move(queued.done), false);
        _queue.clear();
        _queuedBytes = 0;
    }
    _watch.reset();
    _timer.reset();
    _unfinished.reset();
    ::close(fd);
    // This may be the last reference: it is kept to the end of this function.
    std::shared_ptr<ySocketConnection> keep = std::move(_lingering);
    complete(completions);
    if (byPeer && !ownerClosed)
        if (std::shared_ptr<Owner> owner = _owner.lock())
            owner->connectionEnded(*this);
}

void ySocketConnection::complete(Completions &completions)
{
    for (auto &[done, whole] : completions)
        if (done)
            done(whole);
    completions.clear();
}

void ySocketConnection::messageSplit(std::string_view message)
{
    if (_closing)
        return;
    if (std::shared_ptr<Owner> owner = _owner.lock())
        owner->connectionReceived(*this, std::string(message));
}

void ySocketConnection::textDropped(Dropped why, std::string_view text)
{
    if (_closing)
        return;
    if (why == Dropped::tooLong)
        YM_LOG("%s: [%d]: more than %zu bytes without the end of a message, dropped: %.*s", _readerName, _number,
               ySocketFraming::kMaximumMessageSize, static_cast<int>(text.size()), text.data());
    else
        YM_LOG("%s: [%d]: not a JSON message, dropped: %.*s", _readerName, _number, static_cast<int>(text.size()), text.data());
}
