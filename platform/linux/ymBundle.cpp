#include "platform/ymBundle.h"

#include <string_view>

#include "platform/ymPropertyList.h"

namespace ymBundle {

std::string infoPlistPath(const std::string &bundlePath) { return bundlePath + "/Contents/Info.plist"; }

std::optional<std::string> infoValue(const std::string &bundlePath, const char *key)
{
    std::shared_ptr<const ymValue> info = ymPropertyList::readFileShared(infoPlistPath(bundlePath));
    return ymPropertyList::textForKey(info.get(), key);
}

std::optional<std::string> executablePath(const std::string &bundlePath)
{
    std::optional<std::string> name = infoValue(bundlePath, "CFBundleExecutable");
    if (!name || name->empty() || name->find('/') != std::string::npos)
        return std::nullopt;
    std::string path = bundlePath;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path + "/Contents/MacOS/" + *name;
}

std::optional<std::string> bundleIdentifier(const std::string &bundlePath)
{
    return infoValue(bundlePath, "CFBundleIdentifier");
}

std::optional<std::string> bundlePathOfExecutable(const std::string &executablePath)
{
    constexpr std::string_view marker = ".app/Contents/MacOS/";  // nothing to destroy at exit
    size_t found = executablePath.rfind(marker);
    if (found == std::string::npos)
        return std::nullopt;
    // The executable itself lies directly in MacOS/, not deeper.
    if (executablePath.find('/', found + marker.size()) != std::string::npos || found + marker.size() == executablePath.size())
        return std::nullopt;
    return executablePath.substr(0, found + 4);
}

}  // namespace ymBundle
