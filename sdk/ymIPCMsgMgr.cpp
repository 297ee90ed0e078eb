#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>

#include "platform/ymNotificationCenter.h"
#include "foundation/ymLog.h"
#include "sdk/ymNotificationDescription.h"
#include "foundation/ymWeakReference.h"

struct ymIPCMsgMgr::DelegateReference : ymWeakReference<YMSocketIPCChannelDelegate> {};

namespace {
std::string nameOf(const char *variable) { return variable ? variable : ""; }
}  // namespace

std::shared_ptr<ymIPCMsgMgr> ymIPCMsgMgr::create()
{
    std::shared_ptr<ymIPCMsgMgr> manager(new ymIPCMsgMgr());
    manager->observe();
    return manager;
}

ymIPCMsgMgr::ymIPCMsgMgr() : _delegate(std::make_unique<DelegateReference>())
{
    YM_LOG("%s.", "-[ymIPCMsgMgr init]");
}

void ymIPCMsgMgr::observe()
{
    // The observers hold the manager weakly: a manager that is gone simply stops hearing.
    std::weak_ptr<ymIPCMsgMgr> weakSelf = weak_from_this();
    auto handler = [weakSelf](const std::string &, const ymNotificationCenter::UserInfo &userInfo) {
        if (std::shared_ptr<ymIPCMsgMgr> self = weakSelf.lock())
            self->onYumoClientMessageResponse(userInfo);
    };
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    _clientObservation = center.addObserver(nameOf(NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK), handler);
    _hostObservation = center.addObserver(nameOf(NOTIFY_IPC_YYHOST_TO_YUMOSDK), handler);
}

ymIPCMsgMgr::~ymIPCMsgMgr()
{
    YM_LOG("%s.", "-[ymIPCMsgMgr dealloc]");
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    center.removeObserver(_clientObservation);
    center.removeObserver(_hostObservation);
}

void ymIPCMsgMgr::cleanup() {}

void ymIPCMsgMgr::onYumoClientMessageResponse(const std::optional<std::map<std::string, std::string>> &userInfo)
{
    YM_LOG(">> %s: dict = %s", "-[ymIPCMsgMgr onYumoClientMessageResponse:]",
           ymNotificationDescription::describe(userInfo).c_str());
    if (!userInfo || !IPCMsg_CONTENT)
        return;
    auto content = userInfo->find(IPCMsg_CONTENT);
    if (content == userInfo->end())
        return;
    if (std::shared_ptr<YMSocketIPCChannelDelegate> receiver = delegate())
        receiver->onMessageRecieved(content->second);
}

void ymIPCMsgMgr::post(const char *name, const std::optional<std::string> &message)
{
    std::optional<ymNotificationCenter::UserInfo> userInfo = ymNotificationCenter::UserInfo();
    if (message && IPCMsg_CONTENT)
        userInfo->emplace(IPCMsg_CONTENT, *message);
    ymNotificationCenter::defaultCenter().post(nameOf(name), userInfo);
}

void ymIPCMsgMgr::sendIPCMessageToYumoClient(const std::optional<std::string> &message)
{
    post(NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT, message);
    YM_LOG("<< %s: content=%s", "-[ymIPCMsgMgr sendIPCMessageToYumoClient:]", ymlog::describe(message));
}

void ymIPCMsgMgr::sendIPCMessageToYyhost(const std::optional<std::string> &message)
{
    post(NOTIFY_IPC_YUMOSDK_TO_YYHOST, message);
    YM_LOG("<< %s: content=%s", "-[ymIPCMsgMgr sendIPCMessageToYyhost:]", ymlog::describe(message));
}

std::shared_ptr<YMSocketIPCChannelDelegate> ymIPCMsgMgr::delegate() const { return _delegate->get(); }
void ymIPCMsgMgr::setDelegate(const std::weak_ptr<YMSocketIPCChannelDelegate> &delegate) { _delegate->set(delegate); }
