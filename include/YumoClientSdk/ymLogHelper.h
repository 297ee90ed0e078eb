/// @file
#pragma once

#include "ymBase.h"

/// ymLogHelper: sends the SDK's log to the file "yumoclientsdk.log" in the app-group container.
class YM_EXPORT ymLogHelper {
public:
    /// Reopens the process's standard error in append mode on the log file, so that every line
    /// written to standard error from then on (the SDK's, the companion's, and the error output of
    /// commands the SDK runs) lands there. The container is created when missing. With `fresh` YES
    /// any existing log is deleted first; with NO it is deleted only when it has reached
    /// 102400 bytes. Nothing is reported: when the container cannot be had, standard error stays
    /// where it was. The redirection is never undone.
    static void redirectNSLog(BOOL fresh);
};
