#include <YumoClientSdk/ymIPCMsgDefine.h>
#include <YumoClientSdk/ymIPCMsgMgr.h>

#include "foundation/ymLog.h"
#include "foundation/ymWeakReference.h"
#include "platform/ymNotificationCenter.h"
#include "sdk/ymNotificationDescription.h"

struct ymIPCMsgMgr::Impl {
    ymWeakReference<YMSocketIPCChannelDelegate> delegate;
    uint64_t clientObservation = 0;
    uint64_t hostObservation = 0;

    static void post(const char *name, const std::optional<std::string> &message);
};

namespace {

std::string nameOf(const char *variable) { return variable ? variable : ""; }

// The user information as it arrived, as a dictionary of texts.
ymValue dictionaryOf(const ymNotificationCenter::UserInfo &userInfo)
{
    ymValue::Members members;
    for (const auto &[key, value] : userInfo)
        members.emplace_back(key, ymValue(value));
    return ymValue::dictionary(std::move(members));
}

}  // namespace

std::shared_ptr<ymIPCMsgMgr> ymIPCMsgMgr::create()
{
    std::shared_ptr<ymIPCMsgMgr> manager(new ymIPCMsgMgr());
    // The observers hold the manager weakly: a manager that is gone simply stops hearing.
    std::weak_ptr<ymIPCMsgMgr> weakManager = manager;
    auto handler = [weakManager](const std::string &, const ymNotificationCenter::UserInfo &userInfo) {
        if (std::shared_ptr<ymIPCMsgMgr> self = weakManager.lock())
            self->onYumoClientMessageResponse(dictionaryOf(userInfo));
    };
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    manager->_impl->clientObservation = center.addObserver(nameOf(NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK), handler);
    manager->_impl->hostObservation = center.addObserver(nameOf(NOTIFY_IPC_YYHOST_TO_YUMOSDK), handler);
    return manager;
}

ymIPCMsgMgr::ymIPCMsgMgr() : _impl(std::make_unique<Impl>())
{
    YM_LOG("%s.", "-[ymIPCMsgMgr init]");
}

ymIPCMsgMgr::~ymIPCMsgMgr()
{
    YM_LOG("%s.", "-[ymIPCMsgMgr dealloc]");
    ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
    center.removeObserver(_impl->clientObservation);
    center.removeObserver(_impl->hostObservation);
}

void ymIPCMsgMgr::cleanup() {}

void ymIPCMsgMgr::onYumoClientMessageResponse(const std::optional<ymValue> &userInfo)
{
    YM_LOG(">> %s: dict = %s", "-[ymIPCMsgMgr onYumoClientMessageResponse:]",
           ymNotificationDescription::describe(userInfo).c_str());
    if (!userInfo || !IPCMsg_CONTENT)
        return;
    const ymValue *content = userInfo->find(IPCMsg_CONTENT);
    if (!content)
        return;
    if (std::shared_ptr<YMSocketIPCChannelDelegate> receiver = delegate())
        receiver->onMessageRecieved(content->isText() ? std::optional<std::string>(content->text()) : std::nullopt);
}

void ymIPCMsgMgr::Impl::post(const char *name, const std::optional<std::string> &message)
{
    std::optional<ymNotificationCenter::UserInfo> userInfo = ymNotificationCenter::UserInfo();
    if (message && IPCMsg_CONTENT)
        userInfo->emplace(IPCMsg_CONTENT, *message);
    ymNotificationCenter::defaultCenter().post(nameOf(name), userInfo);
}

void ymIPCMsgMgr::sendIPCMessageToYumoClient(const std::optional<std::string> &message)
{
    Impl::post(NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT, message);
    YM_LOG("<< %s: content=%s", "-[ymIPCMsgMgr sendIPCMessageToYumoClient:]", ymlog::describe(message));
}

void ymIPCMsgMgr::sendIPCMessageToYyhost(const std::optional<std::string> &message)
{
    Impl::post(NOTIFY_IPC_YUMOSDK_TO_YYHOST, message);
    YM_LOG("<< %s: content=%s", "-[ymIPCMsgMgr sendIPCMessageToYyhost:]", ymlog::describe(message));
}

std::shared_ptr<YMSocketIPCChannelDelegate> ymIPCMsgMgr::delegate() const { return _impl->delegate.get(); }
void ymIPCMsgMgr::setDelegate(const std::weak_ptr<YMSocketIPCChannelDelegate> &delegate) { _impl->delegate.set(delegate); }
