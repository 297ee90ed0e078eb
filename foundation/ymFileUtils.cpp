#include <YumoClientSdk/ymFileUtils.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/ymPropertyList.h"
#include "foundation/ymAnswerStorage.h"
#include "platform/ymFileManager.h"

BOOL ymIsFileExist(const char *path)
{
    return path && ymFileManager::exists(path) ? YES : NO;
}

BOOL ymIsDirection(const char *path)
{
    return path && ymFileManager::isDirectory(path) ? YES : NO;
}

BOOL ymDeleteFile(const char *path)
{
    if (!path || !ymFileManager::exists(path) || !ymFileManager::isDeletable(path))
        return NO;
    return ymFileManager::removeItem(path) ? YES : NO;
}

namespace {

// What the functions answer (see ymAnswerStorage), one type each.
struct DirectoryListing {
    std::vector<std::string> names;
    std::vector<const char *> list;
};

struct FileVersion {
    std::string text;
};

}  // namespace

const char *const *ymGetDirectoryItems(const char *path)
{
    if (!path || !ymFileManager::isDirectory(path))
        return nullptr;
    std::optional<std::vector<std::string>> entries = ymFileManager::contentsOfDirectory(path);
    if (!entries)
        return nullptr;
    DirectoryListing &listing = ymAnswerStorage<DirectoryListing>();
    listing.names = std::move(*entries);
    listing.list.clear();
    for (const std::string &name : listing.names)
        listing.list.push_back(name.c_str());
    listing.list.push_back(nullptr);
    return listing.list.data();
}

BOOL ymCreateDirection(const char *path)
{
    if (!path || ymFileManager::exists(path))
        return NO;
    return ymFileManager::createDirectory(path) ? YES : NO;
}

BOOL ymMoveFile(const char *sourcePath, const char *destinationPath)
{
    if (!sourcePath || !destinationPath || !ymIsFileExist(sourcePath))
        return NO;
    if (ymIsFileExist(destinationPath))
        ymDeleteFile(destinationPath);  // when this fails, so does the move
    return ymFileManager::moveItem(sourcePath, destinationPath) ? YES : NO;
}

const char *ymGetFileVersion(const char *bundlePath)
{
    std::string &version = ymAnswerStorage<FileVersion>().text;
    version.clear();
    if (!bundlePath)
        return version.c_str();
    std::string infoPath = std::string(bundlePath) + "/Contents/Info.plist";
    std::shared_ptr<const ymValue> plist = ymPropertyList::readFileShared(infoPath);
    if (std::optional<std::string> value = ymPropertyList::textForKey(plist.get(), "CFBundleVersion"))
        version = std::move(*value);
    return version.c_str();
}

int32_t ymGetFileSizeFromPath(const char *path)
{
    if (!path)
        return 0;
    struct stat status;
    if (lstat(path, &status) != 0)
        return 0;
    return static_cast<int32_t>(static_cast<int64_t>(status.st_size));
}

BOOL ymCreateFile(const char *path, const char *content)
{
    if (!path)
        return NO;
    if (ymFileManager::exists(path))
        ymDeleteFile(path);
    return ymFileManager::writeFile(path, content ? content : "") ? YES : NO;
}
