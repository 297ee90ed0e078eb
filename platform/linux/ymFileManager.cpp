#include "platform/ymFileManager.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <optional>
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

// Copies one item with its mode and modification time: a regular file, a link (as a link), or a
// folder with everything in it. Anything else (a device, a socket) is not copied.
bool copyItem(const std::string &source, const std::string &destination);

bool copyFileContents(int in, int out)
{
    char buffer[65536];
    for (;;) {
        ssize_t count = read(in, buffer, sizeof buffer);
        if (count == 0)
            return true;
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (!writeAll(out, std::string_view(buffer, static_cast<size_t>(count))))
            return false;
    }
}

bool copyRegularFile(const std::string &source, const std::string &destination, const struct stat &status)
{
    int in = open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (in < 0)
        return false;
    int out = open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        close(in);
        return false;
    }
    bool copied = copyFileContents(in, out);
    copied = fchmod(out, status.st_mode & 07777) == 0 && copied;
    struct timespec times[2] = {status.st_atim, status.st_mtim};
    futimens(out, times);
    close(in);
    return close(out) == 0 && copied;
}

bool copyFolder(const std::string &source, const std::string &destination, const struct stat &status)
{
    // Made private first, so that a folder without write permission can still be filled.
    if (mkdir(destination.c_str(), 0700) != 0)
        return false;
    std::optional<std::vector<std::string>> names = contentsOfDirectory(source);
    if (!names)
        return false;
    for (const std::string &name : *names)
        if (!copyItem(source + "/" + name, destination + "/" + name))
            return false;
    if (chmod(destination.c_str(), status.st_mode & 07777) != 0)
        return false;
    struct timespec times[2] = {status.st_atim, status.st_mtim};
    utimensat(AT_FDCWD, destination.c_str(), times, 0);
    return true;
}

bool copyLink(const std::string &source, const std::string &destination)
{
    std::string target(4096, '\0');
    ssize_t length = readlink(source.c_str(), target.data(), target.size());
    if (length < 0 || static_cast<size_t>(length) == target.size())
        return false;
    target.resize(static_cast<size_t>(length));
    return symlink(target.c_str(), destination.c_str()) == 0;
}

bool copyItem(const std::string &source, const std::string &destination)
{
    struct stat status;
    if (lstat(source.c_str(), &status) != 0)
        return false;
    if (S_ISREG(status.st_mode))
        return copyRegularFile(source, destination, status);
    if (S_ISDIR(status.st_mode))
        return copyFolder(source, destination, status);
    if (S_ISLNK(status.st_mode))
        return copyLink(source, destination);
    return false;
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

bool createDirectory(const std::string &written)
{
    // "a/b/" names the folder "a/b".
    std::string path = written;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
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
    if (errno != EXDEV)
        return false;
    // Another file system: the item is copied whole, and only then is the original removed. A
    // copy that fails half way is taken away again and the original stays as it was.
    if (!copyItem(source, destination)) {
        removeItem(destination);
        return false;
    }
    return removeItem(source);
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

int openRegularFile(const std::string &path)
{
    // O_NONBLOCK: opening a FIFO that nobody writes must not wait for a writer.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return -1;
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

ReadResult readRegularFile(const std::string &path, std::string &bytes)
{
    bytes.clear();
    int fd = openRegularFile(path);
    if (fd < 0)
        return errno == ENOENT ? ReadResult::missing : ReadResult::unreadable;
    char buffer[65536];
    for (;;) {
        ssize_t count = read(fd, buffer, sizeof buffer);
        if (count == 0)
            break;
        if (count < 0) {
            if (errno == EINTR)
                continue;
            close(fd);
            bytes.clear();
            return ReadResult::unreadable;
        }
        bytes.append(buffer, static_cast<size_t>(count));
    }
    close(fd);
    return ReadResult::read;
}

namespace {

// The temporary file a write of `path` goes through: ".<name>.ym-XXXXXX" beside it, so that
// leftovers of one file are told from everything else in its folder.
std::string temporaryPrefixOf(const std::string &path)
{
    size_t slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return "." + name.substr(0, 200) + ".ym-";
}

}  // namespace

bool writeFile(const std::string &path, std::string_view bytes)
{
    std::string temporary = parentOf(path) + "/" + temporaryPrefixOf(path) + "XXXXXX";
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

void removeLeftoverTemporaries(const std::string &path)
{
    std::string folder = parentOf(path);
    std::string prefix = temporaryPrefixOf(path);
    std::optional<std::vector<std::string>> names = contentsOfDirectory(folder);
    if (!names)
        return;
    for (const std::string &name : *names)
        if (name.size() == prefix.size() + 6 && name.compare(0, prefix.size(), prefix) == 0)
            unlink((folder + "/" + name).c_str());
}

}  // namespace ymFileManager
