#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>

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
    int32_t code = 0;
    if (status == kNotRunning)
        code = 5;
    else if (status == kNotInstalled)
        code = 2;
    else if (status == kVersionNotSupported)
        code = 6;
    setErrorCode(code);
    return errorCode();
}

std::string ymAPIErrorMgr::to3rdClientErrorStr()
{
    if (errorCode() == 2)
        return "0:Error YumoClientNotInstall";
    if (errorCode() == 6)
        return "0:Error YumoClientNoSupportedVersion";
    if (errorCode() == 5)
        return "0:Error YumoClientNotRunning";
    if (errorCode() == 7)
        return "0:Error YumoClientNotSignIn";
    return "";
}

int32_t ymAPIErrorMgr::errorCode() const { return _errorCode.load(); }
void ymAPIErrorMgr::setErrorCode(int32_t errorCode) { _errorCode.store(errorCode); }
