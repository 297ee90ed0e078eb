#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>

#include <atomic>

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

int32_t ymAPIErrorMgr::getYumoAppStatus()
{
    // The installation and version are looked at for their log lines only: they do not decide
    // the status, and "not installed" or "version not supported" is never answered.
    if (ymAppHelper::sharedInstance()->isYumoappInstalled())
        ymClientFeatureMgr::sharedInstance()->isSupportedYumoClientVersion();
    return ymAppHelper::sharedInstance()->isYumoRunning() ? kRunning : kNotRunning;
}

int32_t ymAPIErrorMgr::checkYumoAppError()
{
    int32_t status = getYumoAppStatus();
    int32_t code = ymCommandStatusSent;
    if (status == kNotRunning)
        code = ymCommandStatusClientNotRunning;
    else if (status == kNotInstalled)
        code = ymCommandStatusClientNotInstalled;
    else if (status == kVersionNotSupported)
        code = ymCommandStatusClientVersionNotSupported;
    setErrorCode(code);
    return errorCode();
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
