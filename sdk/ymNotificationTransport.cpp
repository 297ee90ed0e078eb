#include "sdk/ymNotificationTransport.h"

#include <YumoClientSdk/ymCommandStatus.h>
#include <vector>

void ymNotificationTransport::open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver)
{
    std::shared_ptr<ymIPCMsgMgr> made = ymIPCMsgMgr::create();
    setManager(made);
    made->setDelegate(receiver);
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
    static auto *keptManagers = new std::vector<std::shared_ptr<ymIPCMsgMgr>>();
    static auto *keptLock = new ymMutex();
    std::shared_ptr<ymIPCMsgMgr> kept = manager();
    if (!kept)
        return;
    std::lock_guard<ymMutex> guard(*keptLock);
    keptManagers->push_back(std::move(kept));
}

std::shared_ptr<ymIPCMsgMgr> ymNotificationTransport::manager() const
{
    std::lock_guard<ymMutex> guard(_lock);
    return _manager;
}

void ymNotificationTransport::setManager(const std::shared_ptr<ymIPCMsgMgr> &manager)
{
    std::lock_guard<ymMutex> guard(_lock);
    _manager = manager;
}
