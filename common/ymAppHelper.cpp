#include <YumoClientSdk/ymAppHelper.h>

#include "platform/ymBundle.h"
#include "platform/ymPropertyList.h"
#include "platform/ymUserDefaults.h"
#include "platform/ymWorkspace.h"
#include "sdk/ymLog.h"
#include "sdk/ymTextRules.h"

namespace {

// A text variable that a companion may have set to NULL reads as empty.
std::string textOf(const char *variable) { return variable ? variable : ""; }

}  // namespace

ymAppHelper *ymAppHelper::sharedInstance()
{
    static ymAppHelper *shared = new ymAppHelper();
    return shared;
}

std::string ymAppHelper::getYumoappIdentifier() { return textOf(kYumoappIdentify); }

std::string ymAppHelper::getYumoappAppPath()
{
    return ymText::formatObject(textOf(kYumoappAppLaunchPath), textOf(kYumoClientAppName));
}

std::string ymAppHelper::getYumoappUserAppPath()
{
    return ymWorkspace::userApplicationsDirectory() + "/" + textOf(kYumoClientAppName);
}

std::string ymAppHelper::getYumoClientInstallPath()
{
    static const char *const kFn = "-[ymAppHelper getYumoClientInstallPath]";

    // The path the meeting client registered in its defaults domain.
    ymPropertyList::Node domain = ymUserDefaults::persistentDomain(getYumoappIdentifier());
    if (domain) {
        plist_t installPath = plist_dict_get_item(domain.get(), "installPath");
        if (installPath && plist_get_node_type(installPath) == PLIST_STRING) {
            std::optional<std::string> path = ymPropertyList::textOf(installPath);
            if (IsAppExist(path))
                return *path;
        }
    }

    std::string systemPath = getYumoappAppPath();
    if (IsAppExist(systemPath))
        return systemPath;

    // Inside Outlook's sandbox "~" is Outlook's container; the client's own copy lives in the
    // real Library, so the container's segment is taken out again.
    std::string thirdPath = ymText::replacingOccurrences(ymText::standardizingPath(textOf(kYumoappUserAppLaunchPath)),
                                                         "Containers/com.microsoft.Outlook/Data/Library/", "");
    YM_LOG("%s: filePath = %s", kFn, thirdPath.c_str());
    if (IsAppExist(thirdPath))
        return thirdPath;
    YM_LOG("Failed to get 3rd path: %s", thirdPath.c_str());

    std::string fourthPath =
        ymText::replacingOccurrences(getYumoappUserAppPath(), "Library/Containers/com.microsoft.Outlook/Data/", "");
    if (IsAppExist(fourthPath))
        YM_LOG("Success to get 4th path: %s", fourthPath.c_str());
    else
        YM_LOG("Failed to get 4th path: %s", fourthPath.c_str());
    return fourthPath;
}

bool ymAppHelper::IsAppExist(const std::optional<std::string> &path)
{
    if (!path)
        return false;
    return ymWorkspace::isFilePackageAtPath(*path);
}

std::optional<std::string> ymAppHelper::getYumoappLaunchPath(BOOL *exists)
{
    std::string installPath = getYumoClientInstallPath();
    std::optional<std::string> executable = ymBundle::executablePath(installPath);
    if (exists)
        *exists = IsAppExist(installPath) ? YES : NO;
    return executable;
}

bool ymAppHelper::isYumoappInstalled()
{
    BOOL exists = NO;
    getYumoappLaunchPath(&exists);
    return exists == YES;
}

bool ymAppHelper::isYumoRunning()
{
    return ymWorkspace::isApplicationRunning(getYumoappIdentifier());
}
