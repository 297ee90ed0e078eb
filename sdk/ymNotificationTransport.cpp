#include "sdk/ymNotificationTransport.h"

#include <YumoClientSdk/ymCommandStatus.h>

void ymNotificationTransport::open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver, bool now)
{
    {
        std::lock_guard<ymMutex> guard(_lock);
        _receiver = receiver;
        _pending = true;
    }
    if (now)
        manager();
}

int32_t ymNotificationTransport::send(Peer peer, const std::string &text)
{
    std::shared_ptr<ymIPCMsgMgr> target = manager();
    if (!target)
        return ymCommandStatusNoTransport;
    if (peer == Peer::meetingClient)
        target->sendIPCMessageToYumoClient(text);
    else
        target->sendIPCMessageToYyhost(text);
    return ymCommandStatusSent;
}

void ymNotificationTransport::close()
{
    // The manager is released with the facade, and its destructor ends its observations. (It used
    // to be kept, observing for the rest of the process and delivering to nobody: every facade ever
    // made added a handler to each notification. That is given up on purpose.)
    std::shared_ptr<ymIPCMsgMgr> released;
    {
        std::lock_guard<ymMutex> guard(_lock);
        _pending = false;
        released.swap(_manager);
    }
    // Let go here, outside the lock.
}

std::shared_ptr<ymIPCMsgMgr> ymNotificationTransport::manager() const
{
    {
        std::lock_guard<ymMutex> guard(_lock);
        if (!_pending)
            return _manager;
    }
    // Made without the lock held: observing may wait (briefly) for the session bus.
    std::lock_guard<ymMutex> making(_making);
    std::weak_ptr<YMSocketIPCChannelDelegate> receiver;
    {
        std::lock_guard<ymMutex> guard(_lock);
        if (!_pending)
            return _manager;
        receiver = _receiver;
    }
    std::shared_ptr<ymIPCMsgMgr> made = ymIPCMsgMgr::create();
    made->setDelegate(receiver);
    std::lock_guard<ymMutex> guard(_lock);
    if (_pending) {
        _manager = made;
        _pending = false;
    }
    // Closed or replaced meanwhile: the one made here goes (after the lock, with `made`).
    return _manager;
}

void ymNotificationTransport::setManager(const std::shared_ptr<ymIPCMsgMgr> &manager)
{
    std::shared_ptr<ymIPCMsgMgr> replaced;
    std::lock_guard<ymMutex> guard(_lock);
    _pending = false;
    replaced.swap(_manager);
    _manager = manager;
}
