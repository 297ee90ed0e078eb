#include <YumoClientSdk/ymAPIErrorMgr.h>

#include <atomic>

#include "common/ymClientWatch.h"
#include "sdk/ymClientChecks.h"

struct ymAPIErrorMgr::Impl {
    std::atomic<int32_t> errorCode{0};
};

ymAPIErrorMgr::ymAPIErrorMgr() : _impl(std::make_unique<Impl>()) {}
ymAPIErrorMgr::~ymAPIErrorMgr() = default;

namespace {
enum ClientStatus : int32_t { kNotInstalled = 0, kNotRunning = 1, kRunning = 2, kVersionNotSupported = 3 };
}

ymAPIErrorMgr *ymAPIErrorMgr::sharedInstance()
{
    static ymAPIErrorMgr *shared = new ymAPIErrorMgr();
    return shared;
}

int32_t ymAPIErrorMgr::getYumoAppStatus() { return ymClientChecks::getYumoAppStatus(*ymClientWatch::shared().current()); }

int32_t ymAPIErrorMgr::checkYumoAppError() { return ymClientChecks::checkYumoAppError(*ymClientWatch::shared().current()); }

int32_t ymClientChecks::getYumoAppStatus(const ymClientSnapshot &client)
{
    // The installation and version are looked at for their log lines only: they do not decide
    // the status, and "not installed" or "version not supported" is never answered.
    ymWriteLookupLines(client);  // isYumoappInstalled's look-up
    if (client.installed)
        isSupportedYumoClientVersion(client);
    return client.running ? kRunning : kNotRunning;
}

int32_t ymClientChecks::checkYumoAppError(const ymClientSnapshot &client)
{
    int32_t status = getYumoAppStatus(client);
    int32_t code = ymCommandStatusSent;
    if (status == kNotRunning)
        code = ymCommandStatusClientNotRunning;
    else if (status == kNotInstalled)
        code = ymCommandStatusClientNotInstalled;
    else if (status == kVersionNotSupported)
        code = ymCommandStatusClientVersionNotSupported;
    ymAPIErrorMgr *manager = ymAPIErrorMgr::sharedInstance();
    manager->setErrorCode(code);
    return manager->errorCode();
}

std::string ymAPIErrorMgr::to3rdClientErrorStr()
{
    if (errorCode() == ymCommandStatusClientNotInstalled)
        return "0:Error YumoClientNotInstall";
    if (errorCode() == ymCommandStatusClientVersionNotSupported)
        return "0:Error YumoClientNoSupportedVersion";
    if (errorCode() == ymCommandStatusClientNotRunning)
        return "0:Error YumoClientNotRunning";
    if (errorCode() == ymCommandStatusNotSignedIn)
        return "0:Error YumoClientNotSignIn";
    return "";
}

int32_t ymAPIErrorMgr::errorCode() const { return _impl->errorCode.load(); }
void ymAPIErrorMgr::setErrorCode(int32_t errorCode) { _impl->errorCode.store(errorCode); }
