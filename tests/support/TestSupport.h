// What the tests share: a private $HOME, captured standard error, and waiting for conditions
// that other threads or processes bring about.
#pragma once

#include <chrono>
#include <functional>
#include <YumoClientSdk/YMSocketIPCChannelDelegate.h>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ymtest {

// A channel delegate that keeps every message it is handed and the thread it came on.
class MessageCollector : public YMSocketIPCChannelDelegate {
public:
    std::vector<std::string> messages;
    std::vector<std::thread::id> threads;
    int32_t onMessageRecieved(const std::optional<std::string> &message) override
    {
        messages.push_back(message.value_or("(null)"));
        threads.push_back(std::this_thread::get_id());
        return 0;
    }
};

// A fresh folder that $HOME points at while the object lives; removed afterwards. The locale
// variables that would name the system language are cleared.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();
    const std::string &path() const { return _path; }
    std::string groupContainer() const;

private:
    std::string _path;
    std::optional<std::string> _previousHome;
};

// A fresh temporary folder (in the system's, or in `parent`), removed with the object.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::string &parent = "");
    ~TemporaryDirectory();
    const std::string &path() const { return _path; }

private:
    std::string _path;
};

// A build with a sanitizer: its runtime opens descriptors of its own (a pipe to test memory before
// it reads it), and reports errors that are not there when none can be opened.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitizerBuild = true;
#else
inline constexpr bool kSanitizerBuild = false;
#endif

// Takes every descriptor the process may open but one (its limit lowered to 128 meanwhile); gives
// them back, and the limit, when released or asked.
class DescriptorsTakenButOne {
public:
    DescriptorsTakenButOne();
    ~DescriptorsTakenButOne() { giveBack(); }
    // True when the limit was lowered and reached.
    bool taken() const { return !_taken.empty(); }
    void giveBack();

private:
    std::vector<int> _taken;
    unsigned long _limit = 0;
};

// Sends descriptor 2 to a file while the object lives, and reads back what was written.
class CapturedStderr {
public:
    CapturedStderr();
    ~CapturedStderr();
    std::string text() const;
    // The file descriptor 2 writes to.
    const std::string &path() const { return _path; }

private:
    std::string _path;
    int _savedFd;
};

// Polls `condition` until it holds or a generous limit passes; answers its last value. A limit
// only ends a test that would otherwise hang: no test measures time with it.
bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit = std::chrono::seconds(90));

// Runs the SDK's main loop until `condition` holds (or the same generous limit passes).
bool runMainLoopUntil(const std::function<bool()> &condition, std::chrono::milliseconds limit = std::chrono::seconds(90));

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &content);

// The number of descriptors this process has open, and of its threads.
long openDescriptors();
long threadCount();
// Whether the SDK's I/O thread runs in this process now.
bool ioThreadRuns();

// Counts the lines of `text` that contain `needle`.
int countLinesContaining(const std::string &text, const std::string &needle);

}  // namespace ymtest
