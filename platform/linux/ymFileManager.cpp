#include "platform/ymFileManager.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ymFileManager {
namespace {

std::string parentOf(const std::string &path)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool copyRegularFile(const std::string &source, const std::string &destination)
{
    int in = open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    std::string bytes;
    char buffer[65536];
    ssize_t count;
    while ((count = read(in, buffer, sizeof buffer)) != 0) {
        if (count < 0) {
            if (errno == EINTR)
                continue;
            close(in);
            return false;
        }
        bytes.append(buffer, static_cast<size_t>(count));
    }
    close(in);
    return writeFile(destination, bytes);
}

}  // namespace

bool exists(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

bool isDirectory(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isDeletable(const std::string &path)
{
    return access(parentOf(path).c_str(), W_OK | X_OK) == 0;
}

bool removeItem(const std::string &path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return false;
    if (!S_ISDIR(status.st_mode))
        return unlink(path.c_str()) == 0;
    // Depth first, without following links, staying on this file system.
    auto removeOne = [](const char *item, const struct stat *, int, struct FTW *) { return remove(item); };
    return nftw(path.c_str(), removeOne, 16, FTW_DEPTH | FTW_PHYS | FTW_MOUNT) == 0;
}

bool createDirectory(const std::string &path)
{
    if (path.empty())
        return false;
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        std::string parent = path.substr(0, slash);
        if (mkdir(parent.c_str(), 0777) != 0 && errno != EEXIST)
            return false;
    }
    return mkdir(path.c_str(), 0777) == 0;
}

bool moveItem(const std::string &source, const std::string &destination)
{
    if (rename(source.c_str(), destination.c_str()) == 0)
        return true;
    struct stat status;
    if (errno != EXDEV || lstat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    return copyRegularFile(source, destination) && unlink(source.c_str()) == 0;
}

std::optional<std::vector<std::string>> contentsOfDirectory(const std::string &path)
{
    DIR *directory = opendir(path.c_str());
    if (!directory)
        return std::nullopt;
    std::vector<std::string> names;
    while (struct dirent *entry = readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        names.emplace_back(entry->d_name);
    }
    closedir(directory);
    return names;
}

bool writeFile(const std::string &path, std::string_view bytes)
{
    std::string temporary = parentOf(path) + "/.ym-write-XXXXXX";
    int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    fchmod(fd, 0644);  // mkostemp makes it 0600; the file is an ordinary one
    bool written = writeAll(fd, bytes);
    if (close(fd) != 0)
        written = false;
    if (!written || rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace ymFileManager
