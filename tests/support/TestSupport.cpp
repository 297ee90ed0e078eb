#include "support/TestSupport.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace ymtest {
namespace {

std::string makeTemporaryDirectory(const char *prefix, const std::string &parent = "")
{
    std::string pattern = (parent.empty() ? std::filesystem::temp_directory_path().string() : parent) + "/" + prefix + "XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

}  // namespace

TemporaryHome::TemporaryHome() : _path(makeTemporaryDirectory("ymhome-"))
{
    if (const char *home = std::getenv("HOME"))
        _previousHome = home;
    setenv("HOME", _path.c_str(), 1);
    // The system language is the test's to choose, never the user's.
    for (const char *name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES"})
        unsetenv(name);
}

TemporaryHome::~TemporaryHome()
{
    if (_previousHome)
        setenv("HOME", _previousHome->c_str(), 1);
    else
        unsetenv("HOME");
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

std::string TemporaryHome::groupContainer() const
{
    return _path + "/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd";
}

TemporaryDirectory::TemporaryDirectory(const std::string &parent) : _path(makeTemporaryDirectory("ymtest-", parent)) {}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
}

CapturedStderr::CapturedStderr() : _path(makeTemporaryDirectory("ymlog-") + "/stderr.txt")
{
    fflush(stderr);
    _savedFd = dup(STDERR_FILENO);
    int fd = open(_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    dup2(fd, STDERR_FILENO);
    close(fd);
}

CapturedStderr::~CapturedStderr()
{
    fflush(stderr);
    dup2(_savedFd, STDERR_FILENO);
    close(_savedFd);
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(_path).parent_path(), ignored);
}

DescriptorsTakenButOne::DescriptorsTakenButOne()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    _limit = limit.rlim_cur;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 128);
    int base = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (base < 0 || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        close(base);
        return;
    }
    for (int fd; (fd = dup(base)) != -1;)
        _taken.push_back(fd);
    close(base);
}

void DescriptorsTakenButOne::giveBack()
{
    for (int fd : _taken)
        close(fd);
    _taken.clear();
    if (_limit != 0) {
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = _limit;
        setrlimit(RLIMIT_NOFILE, &limit);
        _limit = 0;
    }
}

std::string CapturedStderr::text() const { return readFile(_path); }

bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool runMainLoopUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit)
{
    return ymMainLoop::shared().runUntil(condition, limit);
}

std::string readFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
}

long openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

long threadCount() { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); }

bool ioThreadRuns()
{
    std::error_code error;
    for (std::filesystem::directory_iterator task("/proc/self/task", error), end; !error && task != end; task.increment(error))
        if (readFile(task->path().string() + "/comm") == "yumosdk-io\n")
            return true;
    return false;
}

int countLinesContaining(const std::string &text, const std::string &needle)
{
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        if (line.find(needle) != std::string::npos)
            ++count;
    return count;
}

}  // namespace ymtest
