/// @file
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ymAppDefine.h"
#include "ymBase.h"
#include "ymValue.h"

/// ymAppHelper: finding, launching and checking the meeting client, Outlook and signatures.
///
/// Nothing is cached: every answer is computed afresh from the file system, the defaults and the
/// process table, so a client installed, removed, launched or quit is seen by the next call. Only
/// applications of this user (real uid) count as running.
///
/// Threads: any method may be called from any thread, at the same time as any other. The checks
/// that run a tool (checkAppCodeSign, modifyBundleIdentify) hold the caller's thread until it exits.
///
/// The activation notifications go out as the notification transport's do (see ymIPCMsgMgr: one
/// D-Bus signal, interface com.yumocorp.DistributedNotification, member Notification, signature
/// sa{sv}): ("Noti_ActivateYumoApplicationExternally", {"Param_ActivateYumoApplicationExternally":
/// <"yumoconf://meet.yumocorp.com/start">}) hands the running client the launch URL, and
/// ("Noti_SilentActiveYumoApp", {}) asks it to activate silently. A meeting client on Linux
/// observes those names with the match rule given there.
class YM_EXPORT ymAppHelper {
public:
    /// The shared helper, created on first use and never destroyed.
    static ymAppHelper *sharedInstance();

    /// ---- Finding the meeting client ----

    /// kYumoappIdentify as text.
    std::string getYumoappIdentifier();

    /// kYumoappAppLaunchPath filled with kYumoClientAppName: "/Applications/yumoapp.app".
    std::string getYumoappAppPath();

    /// The user's Applications folder with kYumoClientAppName: "$HOME/Applications/yumoapp.app".
    std::string getYumoappUserAppPath();

    /// The meeting client's bundle path, the first of these that is a bundle: the "installPath"
    /// of the client's defaults domain; /Applications/yumoapp.app; the client's own copy under
    /// ~/Library/Application Support (with Outlook's container taken out of the path); the user's
    /// Applications folder. When none is, the last is answered anyway: test it before use.
    std::string getYumoClientInstallPath();

    /// YES when the path is an existing folder that is a file package (an .app and the like).
    bool IsAppExist(const std::optional<std::string> &path);

    /// The executable of the bundle at getYumoClientInstallPath(), or nil when it names none.
    /// Writes whether that bundle exists through `exists` (when given).
    std::optional<std::string> getYumoappLaunchPath(BOOL *exists);

    /// YES when the meeting client's bundle was found.
    bool isYumoappInstalled();

    /// YES when a running process of this user (its real uid is the caller's) belongs to a bundle
    /// with the meeting client's identifier. Another user's meeting client does not count.
    bool isYumoRunning();

    /// ---- Launching and activating the meeting client ----

    /// Starts the meeting client's executable, detached, without waiting for it. YES only when a
    /// new instance was started. When the client already runs it is handed the launch URL
    /// ("yumoconf://meet.yumocorp.com/start") with the activation notification instead, and the
    /// answer is NO. NO also when the client is not installed or cannot be started.
    bool LaunchYumoClient();

    /// Posts the activation notification (kNoti_ActivateYumoApplicationExternally) with the URL
    /// under kParam_ActivateYumoApplicationExternally. Nothing is awaited.
    void walkWithAlreadyRunningYumoapp(const std::optional<std::string> &url);

    /// Asks a running meeting client to activate silently; never starts one.
    void silentActiveYumoClient();

    /// Posts the silent-activation notification (kNoti_SilentActiveYumoApplication).
    void silentActiveAlreadyRunningYumoapp();

    /// Starts the first application with the identifier in /Applications or ~/Applications (YES
    /// also when it already runs). NO when there is none or it cannot be started.
    bool launchApplicationWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier);

    /// YES when a running process of this user belongs to a bundle with the identifier.
    bool isAppRunningWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier);

    /// YES when an application with the identifier is in /Applications or ~/Applications.
    bool isAppInstalledWithBundleIdentifier(const std::optional<std::string> &bundleIdentifier);

    /// Sets CFBundleIdentifier in the property list with
    ///     /usr/libexec/PlistBuddy -c "Set:CFBundleIdentifier <identifier>" "<path>"
    /// (nothing in it is escaped). YES when the tool succeeded; NO when the file is missing or the
    /// tool failed.
    bool modifyBundleIdentify(const std::optional<std::string> &plistPath, const std::optional<std::string> &identifier);

    /// ---- Outlook and the operating system ----

    /// The packed system version (0x1068 for 10.6.8) from Gestalt; 0 when it fails, as it always
    /// does on this platform.
    int32_t macOSVersion();

    /// YES when macOSVersion() is above 0x1060.
    bool isSupportedOSVersion();

    /// Outlook's CFBundleShortVersionString; nil (or empty) when Outlook, its Info.plist or the key
    /// is missing.
    std::optional<std::string> OutlookVersion();

    /// YES for Outlook 14.1.4 and later (components compared as signed numbers).
    bool isSupportedOutlookVersion();

    /// The value of a top-level key of a property list (XML or binary): texts, numbers, Booleans,
    /// lists and dictionaries as themselves (a dictionary's members in the order of their keys),
    /// data as its bytes in a text, a date as seconds since 2001-01-01. Nil when the file is missing,
    /// is not a regular file or not a property list, or has no such key.
    std::optional<ymValue> objectForPropertyListKey(const std::optional<std::string> &key,
                                                           const std::optional<std::string> &filePath);

    /// Starts Outlook (see launchApplicationWithBundleIdentifier).
    bool launchOutlookApp();

    /// YES while Outlook runs.
    bool isOutlookRunning();

    /// YES when Outlook is installed.
    bool isOutlookInstalled();

    /// The user's first preferred language ("en-US"): the "AppleLanguages" list of the global
    /// defaults domain, or else the locale of the environment. Nil when neither says anything.
    std::optional<std::string> getSystemLanguage();

    /// ---- Code signatures ----

    /// Asks the system's signing tool whether the bundle is signed by the maker's team with a
    /// chain that ends in Apple's root:
    ///     /usr/bin/codesign -v --verbose=1  -R="anchor apple generic and certificate leaf[subject.OU] = Q4W7N2R8TX" "<path>"
    /// YES only when it exits with 0. NO for an empty or missing path, without running anything.
    /// This platform has no such tool, so the answer is NO unless one is provided.
    bool checkAppCodeSign(const std::optional<std::string> &path);

    /// YES when the installer package (a xar archive) is signed, its first signature carries at
    /// least three certificates, the first certificate's subject is "Developer ID Installer:
    /// Yumocorp (Q4W7N2R8TX)" and the third's is "Apple Root CA" (exact comparisons). The chain is
    /// judged by its members' names only; the signature itself is not verified. NO otherwise.
    bool checkCodeSignForYumoPkg(const std::optional<std::string> &path);

    /// The command line checkAppCodeSign runs for a path.
    static std::string codeSignCommandLine(const std::string &path);

    ymAppHelper(const ymAppHelper &) = delete;
    ymAppHelper &operator=(const ymAppHelper &) = delete;

private:
    ymAppHelper() = default;
};
