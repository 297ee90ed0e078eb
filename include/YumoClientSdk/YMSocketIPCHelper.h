/// @file
#pragma once

#include <optional>
#include <string>

#include "ymBase.h"

/// YMSocketIPCHelper_SDK: where the sockets and the log file live.
///
/// The app-group container is "$HOME/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd", shared
/// by the companion, the meeting client and its host process. Nothing is cached: every call looks
/// afresh.
class YM_EXPORT YMSocketIPCHelper_SDK {
public:
    /// The container's path, created (mode 0700, with any missing parents) when it does not
    /// exist. Nil when there is no home folder or the folder cannot be made.
    static std::optional<std::string> groupContainerDir();

    /// The meeting client's socket, "<container>/s.yumoclient"; nil without a container.
    static std::optional<std::string> ipcSocketPathForYumoClient();

    /// The host process's socket, "<container>/s.yyhost"; nil without a container.
    static std::optional<std::string> ipcSocketPathForYyHost();
};
