/// @file
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ymBase.h"
#include "ymCommandStatus.h"

/// ymAPIErrorMgr: whether the meeting client can take a command, as a code and a text.
///
/// Codes (ymCommandStatus): 0 no error; 2 not installed; 5 not running; 6 version not supported;
/// 7 not signed in. As the meeting client has always been judged, a client that is not
/// installed, or too old, is reported as not running (5); a running client of any version reports
/// 0. Only this user's processes count as running.
///
/// Threads: any thread may call any method. The code is one value for the whole process: the
/// text describes the last check or setErrorCode() made on any thread.
class YM_EXPORT ymAPIErrorMgr {
public:
    /// The shared manager, created on first use (code 0) and never destroyed.
    static ymAPIErrorMgr *sharedInstance();

    /// The meeting client's state: 1 not running (also when not installed or too old), 2 running.
    int32_t getYumoAppStatus();

    /// The error code for the meeting client's state, also stored as errorCode().
    int32_t checkYumoAppError();

    /// The text of the current errorCode(): "0:Error YumoClientNotInstall" (2),
    /// "0:Error YumoClientNoSupportedVersion" (6), "0:Error YumoClientNotRunning" (5),
    /// "0:Error YumoClientNotSignIn" (7), and "" for any other code.
    std::string to3rdClientErrorStr();

    /// The code of the last check, or whatever was last set.
    int32_t errorCode() const;
    /// Sets the code that to3rdClientErrorStr() describes (7, not signed in, is only ever set so).
    void setErrorCode(int32_t errorCode);

    ymAPIErrorMgr(const ymAPIErrorMgr &) = delete;
    ymAPIErrorMgr &operator=(const ymAPIErrorMgr &) = delete;

    /// Never called: the shared manager lives as long as the process.
    ~ymAPIErrorMgr();

    /// The manager's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN ymAPIErrorMgr();
    std::unique_ptr<Impl> _impl;
};
