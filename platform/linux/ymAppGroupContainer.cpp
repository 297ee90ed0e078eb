#include "platform/ymAppGroupContainer.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace ymAppGroupContainer {

std::optional<std::string> pathForGroup(const std::string &groupIdentifier)
{
    const char *home = std::getenv("HOME");
    if (!home || home[0] == '\0')
        return std::nullopt;
    std::string path = home;
    if (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path + "/Library/Group Containers/" + groupIdentifier;
}

bool create(const std::string &path)
{
    // Parents first, with the usual permissions; the container itself is private to the user.
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        std::string parent = path.substr(0, slash);
        if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

}  // namespace ymAppGroupContainer
