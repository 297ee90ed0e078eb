#include <YumoClientSdk/YMSocketIPCHelper.h>

#include <sys/stat.h>

#include "platform/ymAppGroupContainer.h"
#include "foundation/ymTextRules.h"

namespace {
const char *const kApplicationGroupIdentifier = "Q4W7N2R8TX.YumoClient3rd";
}

std::optional<std::string> YMSocketIPCHelper_SDK::groupContainerDir()
{
    std::optional<std::string> path = ymAppGroupContainer::pathForGroup(kApplicationGroupIdentifier);
    if (!path)
        return std::nullopt;
    struct stat status;
    if (stat(path->c_str(), &status) != 0 && !ymAppGroupContainer::create(*path))
        return std::nullopt;
    return path;
}

std::optional<std::string> YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient()
{
    std::optional<std::string> container = groupContainerDir();
    if (!container)
        return std::nullopt;
    return ymText::appendingPathComponent(*container, "/s.yumoclient");
}

std::optional<std::string> YMSocketIPCHelper_SDK::ipcSocketPathForYyHost()
{
    std::optional<std::string> container = groupContainerDir();
    if (!container)
        return std::nullopt;
    return ymText::appendingPathComponent(*container, "/s.yyhost");
}
