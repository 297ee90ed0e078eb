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
    connection->_inbound = std::make_shared<ySocketInbound::Budget>([weak] {
        // The companion has caught up: reading goes on, on the I/O thread.
        ymIOLoop::shared().post([weak] {
            if (std::shared_ptr<ySocketConnection> self = weak.lock())
                self->readAgain();
        });
    });
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

ySocketConnection::Written ySocketConnection::write(std::string_view bytes, std::function<void(bool whole)> done,
                                                   bool mayWait)
{
    ymNSLogFlush();  // the peer may answer at once: the lines before the text come first
    std::unique_lock<ymMutex> guard(_lock);
    if (_closing || _fd < 0)
        return Written::failed;
    if (!_queue.empty() && _queuedBytes + bytes.size() > ySocketFraming::kMaximumQueuedBytes && !ymIOLoop::onIOThread() &&
        (!mayWait || !waitForRoom(guard, bytes.size())))
        return Written::failed;
    if (!_queue.empty()) {
        if (_stalled)
            return Written::failed;
        _queue.push_back({std::string(bytes), 0, std::move(done)});
        _queuedBytes += bytes.size();
        return Written::queued;  // the queue's timer runs already
    }
    long sent = sendNow(_fd, bytes.data(), bytes.size());
    if (sent == static_cast<long>(bytes.size()))
        return Written::whole;
    if (sent < 0 && !wouldBlock())
        return Written::failed;  // the peer has gone, or will not take anything more
    size_t taken = sent > 0 ? static_cast<size_t>(sent) : 0;
    _queue.push_back({std::string(bytes), taken, std::move(done)});
    _queuedBytes += bytes.size() - taken;
    _lastProgress = Clock::now();
    guard.unlock();
    // The rest goes out when the peer takes it.
    onIOThread([](ySocketConnection &self) {
        self._watch->setWritable(true);
        self.armTimer();
    });
    return Written::queued;
}

bool ySocketConnection::waitForRoom(std::unique_lock<ymMutex> &guard, size_t bytes)
{
    // The queue is full: the writer waits while the peer takes something at least every wait limit;
    // a peer that takes nothing for that long is given up by the I/O thread, and so is the text.
    for (;;) {
        if (_closing || _fd < 0 || _stalled)
            return false;
        if (_queue.empty() || _queuedBytes + bytes <= ySocketFraming::kMaximumQueuedBytes)
            return true;
        Clock::time_point giveUp = _lastProgress + ySocketFraming::kPeerWaitLimit;
        if (Clock::now() >= giveUp + std::chrono::milliseconds(100))
            return false;  // the I/O thread should have given the queue up by now: do not wait on it
        _room.wait_until(guard, giveUp + std::chrono::milliseconds(100));
    }
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
    // What was written before the close still goes out, while the peer takes it.
    _lingering = shared_from_this();
    armTimer();
}

void ySocketConnection::ready(bool readable, bool writable, bool hangup)
{
    if (writable || (hangup && _readingStopped)) {
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
    if ((readable || hangup) && !_readingStopped && _watch)
        readAvailable();
}

void ySocketConnection::readAgain()
{
    if (!_readingStopped || !_watch)
        return;
    _readingStopped = false;
    _watch->setReadable(true);
    readAvailable();  // what came meanwhile is taken now, not at the next edge
}

void ySocketConnection::readAvailable()
{
    char buffer[ySocketFraming::kReadSize + 1];
    ySocketInbound::Handing handing(_inbound);
    try {
        for (int reads = 0; reads < kReadsPerWakeUp && _watch; ++reads) {
            if (_inbound->overLimit()) {
                // The companion has not taken what was read: the peer waits until it has.
                _readingStopped = true;
                _watch->setReadable(false);
                return;
            }
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
    } catch (const std::exception &error) {
        // Memory ran out, say: what was read cannot be served, and the connection goes.
        YM_LOG("%s: [%d]: %s, connection closed", _readerName, _number, error.what());
        end(true);
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
            _room.notify_all();
            break;
        }
        head.sent += static_cast<size_t>(sent);
        _queuedBytes -= static_cast<size_t>(sent);
        if (sent > 0) {
            _lastProgress = Clock::now();
            _room.notify_all();
        }
        if (head.sent < head.bytes.size())
            return;
        completions.emplace_back(std::move(head.done), true);
        _queue.pop_front();
    }
    _stalled = false;
}

void ySocketConnection::dropIfStalled(Completions &completions)
{
    if (_queue.empty() || Clock::now() - _lastProgress < ySocketFraming::kPeerWaitLimit)
        return;
    // The peer has taken nothing for the limit: every text it has not begun is given up, and the
    // writers waiting for room with them. A text it has begun is never cut off.
    for (auto queued = _queue.begin(); queued != _queue.end();) {
        if (queued->sent == 0) {
            completions.emplace_back(std::move(queued->done), false);
            _queuedBytes -= queued->bytes.size();
            queued = _queue.erase(queued);
        } else {
            ++queued;
        }
    }
    _stalled = !_queue.empty();  // until what is begun has gone, nothing more is taken
    _room.notify_all();
}

void ySocketConnection::armTimer()
{
    std::optional<Clock::time_point> due;
    {
        std::lock_guard<ymMutex> guard(_lock);
        // A stalled queue waits for its begun text without a deadline, unless it is closing.
        if (!_queue.empty() && (!_stalled || _lingering))
            due = _lastProgress + ySocketFraming::kPeerWaitLimit;
    }
    if (!due) {
        _timer.reset();
        return;
    }
    auto delay = std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now());
    std::weak_ptr<ySocketConnection> weak = weak_from_this();
    // Progress moves the deadline: the timer looks again then, rather than being set anew per byte.
    _timer = ymIOLoop::Timer::after(delay, [weak] {
        std::shared_ptr<ySocketConnection> self = weak.lock();
        if (!self)
            return;
        Completions completions;
        bool flushed;
        bool givenUp;
        {
            std::lock_guard<ymMutex> guard(self->_lock);
            self->dropIfStalled(completions);
            flushed = self->_queue.empty();
            givenUp = self->_stalled || !completions.empty();
        }
        complete(completions);
        if (self->_lingering && (flushed || givenUp)) {
            self->end(false);
            return;
        }
        if (flushed && self->_watch)
            self->_watch->setWritable(false);
        self->armTimer();
    }, std::chrono::milliseconds(50));
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
        _room.notify_all();
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
    // The owner may queue the message for the companion: the inbound budget pays for it.
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
