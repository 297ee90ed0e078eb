// ymAppHelper: finding, launching and checking the meeting client, Outlook and signatures.
//
// Nothing is cached: every answer is computed afresh from the file system, the defaults and the
// process table, so a client installed, removed, launched or quit is seen by the next call.
#pragma once

#include <optional>
#include <string>

#include "ymAppDefine.h"
#include "ymBase.h"

class YM_EXPORT ymAppHelper {
public:
    // The shared helper, created on first use and never destroyed.
    static ymAppHelper *sharedInstance();

    // ---- Finding the meeting client ----

    // kYumoappIdentify as text.
    std::string getYumoappIdentifier();

    // kYumoappAppLaunchPath filled with kYumoClientAppName: "/Applications/yumoapp.app".
    std::string getYumoappAppPath();

    // The user's Applications folder with kYumoClientAppName: "$HOME/Applications/yumoapp.app".
    std::string getYumoappUserAppPath();

    // The meeting client's bundle path, the first of these that is a bundle: the "installPath"
    // of the client's defaults domain; /Applications/yumoapp.app; the client's own copy under
    // ~/Library/Application Support (with Outlook's container taken out of the path); the user's
    // Applications folder. When none is, the last is answered anyway: test it before use.
    std::string getYumoClientInstallPath();

    // YES when the path is an existing folder that is a file package (an .app and the like).
    bool IsAppExist(const std::optional<std::string> &path);

    // The executable of the bundle at getYumoClientInstallPath(), or nil when it names none.
    // Writes whether that bundle exists through `exists` (when given).
    std::optional<std::string> getYumoappLaunchPath(BOOL *exists);

    // YES when the meeting client's bundle was found.
    bool isYumoappInstalled();

    // YES when a running process belongs to a bundle with the meeting client's identifier.
    bool isYumoRunning();

    ymAppHelper(const ymAppHelper &) = delete;
    ymAppHelper &operator=(const ymAppHelper &) = delete;

private:
    ymAppHelper() = default;
};
