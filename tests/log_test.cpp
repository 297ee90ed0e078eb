// The log: the shape of a line (date, process, then "<file>(<line>) " and the message, one write
// per line), standard error redirected to yumoclientsdk.log in the group container, and that file
// shared by several processes which cut it, while no write of the log ends a process.
#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <climits>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <optional>
#include <regex>
#include <sstream>
#include <thread>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "foundation/ymCallbackSlot.h"
#include "foundation/ymLog.h"
#include "platform/ymLogFormat.h"
#include "platform/ymNSLog.h"
#include "support/TestSupport.h"

namespace {

TEST(LogLine, CarriesTheCallersFileAndLineAndStaysWhole)
{
    ymtest::CapturedStderr captured;
    const int line = __LINE__ + 1;
    YM_LOG(">> %s start", "-[ymSdkImplement GetIMPresenceStatus]");
    YM_LOG("%s.", "-[ymIPCMsgMgr init]");
    YM_LOG("%d is already connected. close it.", 7);
    YM_LOG("%s: read [%d-%d]: %ld.%s\n", "-[ySocketServerImpl_SDK connectionProcessFunc:]", 3, 0, 2L, "{}");

    std::string text = captured.text();
    std::regex first("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} [^\\[]+\\[\\d+:\\d+\\] "
                     "log_test\\.cpp\\(" + std::to_string(line) +
                     "\\) >> -\\[ymSdkImplement GetIMPresenceStatus\\] start\n");
    EXPECT_TRUE(std::regex_search(text, first)) << text;
    EXPECT_NE(text.find("log_test.cpp(" + std::to_string(line + 1) + ") -[ymIPCMsgMgr init].\n"), std::string::npos);
    EXPECT_NE(text.find(") 7 is already connected. close it.\n"), std::string::npos);
    // A message that ends with a newline gets no second one from the writer.
    EXPECT_TRUE(text.ends_with("read [3-0]: 2.{}\n")) << text;

    // Long lines and concurrent writers: each line is written whole.
    std::string big(70000, 'x');
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t)
        writers.emplace_back([&big, t] {
            for (int i = 0; i < 50; ++i)
                YM_LOG("%s: writer %d line %d %s", "-[Test run]", t, i, i % 10 == 0 ? big.c_str() : "short");
        });
    for (std::thread &writer : writers)
        writer.join();
    text = captured.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[Test run]: writer"), 200);
    // Every line has the prefix: none was cut into another.
    EXPECT_EQ(ymtest::countLinesContaining(text, "log_test.cpp("), ymtest::countLinesContaining(text, ""));
    EXPECT_EQ(ymtest::countLinesContaining(text, big), 20);
}

// The log's formatter, as ymLogFormat(out, room, format, ...).
int formatted(char *out, size_t room, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = ymLogFormat(out, room, format, arguments);
    va_end(arguments);
    return length;
}

// The formatter writes what snprintf writes, and answers the same length, into any room.
template <typename... Arguments>
void expectAsPrintf(const char *format, Arguments... arguments)
{
    for (size_t room : {0, 1, 2, 7, 4096}) {
        std::vector<char> ours(room + 1, '#'), theirs(room + 1, '#');
        EXPECT_EQ(formatted(ours.data(), room, format, arguments...), snprintf(theirs.data(), room, format, arguments...))
            << format << " in " << room;
        EXPECT_EQ(std::string(ours.begin(), ours.end()), std::string(theirs.begin(), theirs.end())) << format << " in " << room;
    }
}

TEST(LogLine, TheFormatterWritesWhatPrintfWritesAndLeavesTheRestToIt)
{
    const char unterminated[3] = {'a', 'b', 'c'};
    const char *volatile nothing = nullptr;  // not known to the compiler, which would warn of it
    const char *none = nothing;
    expectAsPrintf("plain text, 100%% of it");
    expectAsPrintf("%s|%s|%s", "", "text", none);
    expectAsPrintf("%.*s|%.*s|%.*s|%.*s", 0, "abc", 2, unterminated, 9, "abc", -1, "abc");
    expectAsPrintf("%.*s|%.*s|%.3s|%.s", 5, none, 6, none, "abcdef", "abc");
    expectAsPrintf("%d %d %d %i %d", INT_MIN, INT_MAX, 0, -1, 7);
    expectAsPrintf("%ld %ld %lld %lld", LONG_MIN, LONG_MAX, LLONG_MIN, LLONG_MAX);
    expectAsPrintf("%u %lu %llu %zu %zu %zd", UINT_MAX, ULONG_MAX, ULLONG_MAX, SIZE_MAX, size_t{0}, ssize_t{-5});
    expectAsPrintf("%x %lx %zx %c%c", 0xdeadbeefu, 0xfedcba9876543210ul, size_t{255}, 'A', '\n');
    expectAsPrintf("%s:#### [%d]: [r%ld-b%ld]", "-[ySocketClientImpl_SDK connect]", 7, 105L, 104L);

    // Flags, widths, precisions of numbers and other conversions are vsnprintf's, through the
    // same line.
    char out[64];
    for (const char *other : {"%5d", "%-d", "%05d", "%+d", "%.3d", "%hd", "%p", "%f", "%5s", "%.2c", "a lone %"})
        EXPECT_EQ(formatted(out, sizeof out, other, 1), -1) << other;
    ymtest::CapturedStderr captured;
    YM_LOG("%s %5.2f|%-4d|%p", "left to printf:", 2.5, 7, static_cast<void *>(nullptr));
    EXPECT_NE(captured.text().find("left to printf:  2.50|7   |(nil)\n"), std::string::npos);
}

// The write calls this process has made so far.
long writeCalls()
{
    std::istringstream io(ymtest::readFile("/proc/self/io"));
    for (std::string key, value; io >> key >> value;)
        if (key == "syscw:")
            return std::stol(value);
    return -1;
}

TEST(LogLine, ABatchWritesItsLinesTogetherAndFirstWhereAnotherMaySeeThem)
{
    ymtest::CapturedStderr captured;
    ymNSLogSetDestination(-1);  // standard error, looked at afresh: a file now
    bool seenByCallback = false;
    {
        ymNSLogBatch batch;
        const long before = writeCalls();
        for (int i = 0; i < 10; ++i)
            YM_LOG("batched %d", i);
        const long afterLines = writeCalls();
        EXPECT_EQ(captured.text().find("batched 0"), std::string::npos);
        // A callback into the companion finds the lines before it written, in one write.
        // Inside it, the SDK's lines and the companion's own keep their order.
        ymCallbackSlot<std::function<void()>> slot;
        slot.set([&] {
            seenByCallback = captured.text().find("batched 9") != std::string::npos;
            YM_LOG("%s", "the SDK inside the callback");
            std::fputs("the companion's own line\n", stderr);
            std::fflush(stderr);
        });
        slot.call();
        const long afterCallback = writeCalls();
        if (!ymtest::kSanitizerBuild) {  // whose runtime makes write calls of its own
            EXPECT_EQ(afterLines, before);
            EXPECT_EQ(afterCallback, before + 3);  // the batch, the SDK's line, the companion's
        }
        // A child process writes after the lines before it; a forked child writes none of the
        // lines kept here, only its own.
        YM_LOG("%s", "before the child");
        CMD::runAsCommand_ret("echo 'from a child' >&2");
        YM_LOG("%s", "kept at the fork");
        pid_t child = fork();
        if (child == 0) {
            ymNSLogFlush();
            YM_LOG("%s", "the child's own");
            ymNSLogFlush();
            _exit(0);
        }
        ASSERT_GT(child, 0);
        waitpid(child, nullptr, 0);
    }
    EXPECT_TRUE(seenByCallback);
    std::string text = captured.text();
    EXPECT_LT(text.find("the SDK inside the callback"), text.find("the companion's own line"));
    EXPECT_LT(text.find("batched 9"), text.find("before the child"));
    EXPECT_LT(text.find("before the child"), text.find("from a child"));
    EXPECT_EQ(ymtest::countLinesContaining(text, "kept at the fork"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "the child's own"), 1);
    EXPECT_EQ(ymtest::countLinesContaining(text, "log_test.cpp("), ymtest::countLinesContaining(text, "") - 2);  // lines whole

    // A batch past 64 KiB is written without waiting for its end; a pipe gets each line at once.
    const std::string filler(1000, 'f');
    {
        ymNSLogBatch batch;
        for (int i = 0; i < 70; ++i)
            YM_LOG("long %d %s", i, filler.c_str());
        EXPECT_NE(captured.text().find("long 0 "), std::string::npos);
        int pipe[2];
        ASSERT_EQ(pipe2(pipe, O_NONBLOCK | O_CLOEXEC), 0);
        ymNSLogSetDestination(pipe[1]);
        YM_LOG("%s", "piped");
        char bytes[512];
        ssize_t length = read(pipe[0], bytes, sizeof bytes);
        EXPECT_NE(std::string(bytes, length > 0 ? static_cast<size_t>(length) : 0).find("piped\n"), std::string::npos);
        ymNSLogSetDestination(-1);
        close(pipe[0]);
        close(pipe[1]);
    }
    EXPECT_NE(captured.text().find("long 69 "), std::string::npos);
}

// A hundred lines of about 1 KB each, numbered: more than `limit` bytes in all.
void writeLinesPast(size_t limit, const char *word)
{
    std::string filler(limit / 100 + 1, 'f');
    for (int i = 0; i < 100; ++i)
        YM_LOG("%s %d %s", word, i, filler.c_str());
}

// Descriptor 2 is put back afterwards (by the capture), so the redirection ends with the test.
class Stderr : public ::testing::Test {
protected:
    std::string logPath() const { return home.groupContainer() + "/yumoclientsdk.log"; }

    ymtest::CapturedStderr saved;
    ymtest::TemporaryHome home;
};

TEST_F(Stderr, MissingContainerIsCreatedAndTheLogCutAtItsSizeLimitOnly)
{
    // The log is created as freopen creates a file: mode 0666 less the umask.
    mode_t previous = umask(002);
    ymLogHelper::redirectNSLog(NO);
    umask(previous);
    struct stat status;
    ASSERT_EQ(stat(logPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0664u);
    YM_LOG("%s: first line", "-[Test redirect]");
    CMD::runAsCommand_ret("echo 'child error output' >&2");
    std::string log = ymtest::readFile(logPath());
    EXPECT_NE(log.find("log_test.cpp("), std::string::npos);
    EXPECT_NE(log.find("-[Test redirect]: first line\n"), std::string::npos);
    EXPECT_NE(log.find("child error output\n"), std::string::npos);

    // A second redirection appends to the same file; the log's descriptor is put in place, not kept twice.
    auto before = ymtest::openDescriptors();
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "line two");
    EXPECT_EQ(ymtest::openDescriptors(), before);
    log = ymtest::readFile(logPath());
    EXPECT_NE(log.find("line two", log.find("first line")), std::string::npos);

    // 102399 bytes are kept and appended to; 102400 bytes or more start a new log.
    for (size_t size : {102399, 102400}) {
        const bool kept = size < 102400;
        ymtest::writeFile(logPath(), std::string(size, 'k'));
        ymLogHelper::redirectNSLog(NO);
        YM_LOG("after a log of %zu bytes", size);
        log = ymtest::readFile(logPath());
        EXPECT_EQ(log.find(std::string(kept ? size : 64, 'k')), kept ? 0 : std::string::npos) << size;
        EXPECT_NE(log.find("after a log of " + std::to_string(size) + " bytes"), std::string::npos);
    }

    // A fresh log is asked for: any size is deleted.
    ymtest::writeFile(logPath(), "tiny");
    ymLogHelper::redirectNSLog(YES);
    EXPECT_EQ(std::filesystem::file_size(logPath()), 0u);

    // Past its limit while the process runs, the log starts afresh in place of standard error,
    // which the children still share. Too late to keep standard error now.
    EXPECT_FALSE(ymLogHelper::setTakesStandardError(NO));
    ASSERT_TRUE(ymLogHelper::setLogSizeLimit(65536));
    writeLinesPast(65536, "taken");
    CMD::runAsCommand_ret("echo 'child after the cut' >&2");
    log = ymtest::readFile(logPath());
    EXPECT_EQ(log.find("taken 0 "), std::string::npos);
    EXPECT_NE(log.find("taken 99 "), std::string::npos);
    EXPECT_NE(log.find("child after the cut\n"), std::string::npos);
    EXPECT_LT(log.size(), 65536u);
}

TEST_F(Stderr, KeptStandardErrorHasNoLineOfTheLogWhichStartsAfreshPastItsLimit)
{
    EXPECT_FALSE(ymLogHelper::setLogSizeLimit(65535));  // below the least: nothing changes
    EXPECT_TRUE(ymLogHelper::setLogSizeLimit(65536));
    ASSERT_TRUE(ymLogHelper::setTakesStandardError(NO));
    ymtest::CapturedStderr captured;
    long before = ymtest::openDescriptors();
    ymLogHelper::redirectNSLog(NO);
    ymLogHelper::redirectNSLog(NO);  // the log's own descriptor is put in place, not kept twice
    EXPECT_EQ(ymtest::openDescriptors(), before + 1);
    EXPECT_FALSE(ymLogHelper::setTakesStandardError(YES));
    YM_LOG("%s", "first line of the log");
    std::fputs("the companion's own line\n", stderr);
    CMD::runAsCommand_ret("echo 'child error output' >&2");
    std::string log = ymtest::readFile(logPath());
    EXPECT_NE(log.find("first line of the log"), std::string::npos);
    EXPECT_EQ(log.find("own line"), std::string::npos);
    EXPECT_EQ(captured.text().find("first line of the log"), std::string::npos);
    EXPECT_NE(captured.text().find("the companion's own line"), std::string::npos);
    EXPECT_NE(captured.text().find("child error output"), std::string::npos);

    writeLinesPast(65536, "kept");
    log = ymtest::readFile(logPath());
    EXPECT_EQ(log.find("first line of the log"), std::string::npos);
    EXPECT_NE(log.find("kept 99 "), std::string::npos);
    EXPECT_LT(log.size(), 65536u);
    EXPECT_EQ(ymtest::openDescriptors(), before + 1);
    EXPECT_EQ(captured.text().find("kept 99 "), std::string::npos);
}

TEST_F(Stderr, TheEnvironmentChoosesForAProgramThatDoesNot)
{
    ymtest::CapturedStderr captured;
    setenv("YUMOCLIENTSDK_STDERR", "keep", 1);
    setenv("YUMOCLIENTSDK_LOG_LIMIT", "70000", 1);
    ymLogHelper::redirectNSLog(NO);
    unsetenv("YUMOCLIENTSDK_STDERR");
    unsetenv("YUMOCLIENTSDK_LOG_LIMIT");
    YM_LOG("%s", "first line of the log");
    writeLinesPast(70000, "limited");
    std::string log = ymtest::readFile(logPath());
    EXPECT_EQ(log.find("first line of the log"), std::string::npos);
    EXPECT_NE(log.find("limited 99 "), std::string::npos);
    EXPECT_EQ(captured.text().find("limited"), std::string::npos);
}

TEST_F(Stderr, StaysWhereItWasWhenTheLogCannotBeOpened)
{
    ymtest::CapturedStderr captured;
    // A home whose path is not ASCII (its one such byte the lowest there is), then a home where
    // the container cannot be made.
    std::string other = home.path() + "/h\x80";
    ASSERT_EQ(mkdir(other.c_str(), 0700), 0);
    setenv("HOME", other.c_str(), 1);
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "not redirected");
    ymtest::writeFile(other + "/Library", "not a folder");
    ymLogHelper::redirectNSLog(YES);
    YM_LOG("%s", "still on the old stream");
    EXPECT_NE(captured.text().find("not redirected"), std::string::npos);
    EXPECT_NE(captured.text().find("still on the old stream"), std::string::npos);
}

TEST_F(Stderr, ABatchWrittenAfterTheLogWasRemovedReachesTheNewLogOnce)
{
    ASSERT_TRUE(ymLogHelper::setTakesStandardError(NO));
    ASSERT_TRUE(ymLogHelper::setLogSizeLimit(65536));  // a look at the log every 4 KiB written
    ymLogHelper::redirectNSLog(YES);
    YM_LOG("%s", "before the removal");
    ASSERT_EQ(unlink(logPath().c_str()), 0);
    // The look before the batch's write finds the log gone and opens it anew, which writes what
    // the thread kept: nothing is left to write twice.
    const std::string filler(500, 'f');
    {
        ymNSLogBatch batch;
        for (int i = 0; i < 10; ++i)
            YM_LOG("kept %d %s", i, filler.c_str());
    }
    std::string log = ymtest::readFile(logPath());
    EXPECT_EQ(ymtest::countLinesContaining(log, "kept 0 "), 1);
    EXPECT_EQ(ymtest::countLinesContaining(log, "kept 9 "), 1);
    EXPECT_EQ(log.find('\0'), std::string::npos);
}

TEST_F(Stderr, ALogThatCannotBeEmptiedInPlaceIsDeletedAndMadeAfresh)
{
    ymLogHelper::redirectNSLog(NO);  // makes the container
    // A link at the log's path: the file it names is not the log's and stays as it was.
    std::string elsewhere = home.path() + "/someone-elses-file";
    ymtest::writeFile(elsewhere, "not a log");
    ASSERT_EQ(unlink(logPath().c_str()), 0);
    ASSERT_EQ(symlink(elsewhere.c_str(), logPath().c_str()), 0);
    ymLogHelper::redirectNSLog(YES);
    YM_LOG("%s", "after the link");
    struct stat status;
    ASSERT_EQ(lstat(logPath().c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_NE(ymtest::readFile(logPath()).find("after the link"), std::string::npos);
    EXPECT_EQ(ymtest::readFile(elsewhere), "not a log");

    // A folder at the log's path, with something in it.
    ASSERT_EQ(unlink(logPath().c_str()), 0);
    ASSERT_EQ(mkdir(logPath().c_str(), 0700), 0);
    ymtest::writeFile(logPath() + "/inside", "x");
    ymLogHelper::redirectNSLog(YES);
    YM_LOG("%s", "after the folder");
    ASSERT_EQ(lstat(logPath().c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_NE(ymtest::readFile(logPath()).find("after the folder"), std::string::npos);
}

// A child process forked from this one, which runs `body` and exits with what it answers.
pid_t forked(const std::function<int()> &body)
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    return pid;
}

// The child's wait status: 0 when it exited with 0, not when a signal ended it.
int waitStatus(pid_t pid)
{
    int status = -1;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

TEST_F(Stderr, FourProcessesCuttingTheLogKeepEveryLineFromTheLastCutOnBatchedOrNot)
{
    ASSERT_TRUE(ymLogHelper::setLogSizeLimit(65536));
    ymLogHelper::redirectNSLog(NO);
    int ready[2], go[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(go), 0);
    constexpr int kLines = 3000;
    std::map<int, pid_t> writers;
    for (int w = 0; w < 4; ++w)
        writers[w] = forked([&, w] {
            ymLogHelper::redirectNSLog(NO);  // as a companion starting: a descriptor of its own
            std::string filler(100, static_cast<char>('a' + w));
            for (int i = 0; i < kLines - 1;) {
                // Writers 2 and 3 write as a command does: 13 lines at a time.
                std::optional<ymNSLogBatch> batch;
                if (w >= 2)
                    batch.emplace();
                for (int end = std::min(i + 13, kLines - 1); i < end; ++i)
                    YM_LOG("writer %d line %d %s", w, i, filler.c_str());
            }
            // The last line once the test holds the cut's lock: no later cut takes it away.
            char byte;
            if (write(ready[1], "r", 1) != 1 || read(go[0], &byte, 1) != 1)
                return 2;
            YM_LOG("writer %d line %d last", w, kLines - 1);
            return 0;
        });
    char byte;
    for (int w = 0; w < 4; ++w)
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
    int lock = open(logPath().c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(lock, LOCK_EX), 0);  // waits for a cut under way
    EXPECT_EQ(write(go[1], "gggg", 4), 4);
    for (auto [w, pid] : writers)
        EXPECT_EQ(waitStatus(pid), 0) << "writer " << w;
    close(lock);

    // Each writer's lines, in the order of the file, carry its own process id.
    std::map<int, std::vector<int>> seen;
    std::istringstream log(ymtest::readFile(logPath()));
    for (std::string line; std::getline(log, line);) {
        int w = -1, i = -1;
        size_t at = line.find(") writer ");
        if (at == std::string::npos || std::sscanf(line.c_str() + at, ") writer %d line %d", &w, &i) != 2)
            continue;
        seen[w].push_back(i);
        EXPECT_NE(line.find("[" + std::to_string(writers[w]) + ":"), std::string::npos) << line;
    }
    for (int w = 0; w < 4; ++w) {
        std::vector<int> &lines = seen[w];
        ASSERT_FALSE(lines.empty()) << "writer " << w;
        EXPECT_GT(lines.front(), 0) << "never cut";
        std::vector<int> whole(lines.size());
        std::iota(whole.begin(), whole.end(), lines.front());
        EXPECT_EQ(lines, whole) << "writer " << w << " lost lines";
        EXPECT_EQ(lines.back(), kLines - 1);
    }
    // What the others wrote counts for a writer's limit too: its next look cuts the log.
    writeLinesPast(8192, "fifth");
    EXPECT_LT(std::filesystem::file_size(logPath()), 65536u + 8192);
}

TEST_F(Stderr, AWriterGoesOnInTheLogThatAnotherProcessCutOrAUserRemovedOrReplaced)
{
    ymLogHelper::redirectNSLog(NO);
    writeLinesPast(102400, "early");
    // A second process starting cuts the log of 102400 bytes; the first's next line is in it.
    EXPECT_EQ(waitStatus(forked([] {
                  ymLogHelper::redirectNSLog(NO);
                  YM_LOG("%s", "second process started");
                  return 0;
              })), 0);
    YM_LOG("%s", "first goes on");
    std::string log = ymtest::readFile(logPath());
    EXPECT_EQ(log.find("early "), std::string::npos);
    EXPECT_NE(log.find("first goes on"), std::string::npos);
    EXPECT_LT(log.find("second process started"), log.find("first goes on"));

    // Removed, then replaced: the writer opens the path anew at its next look (every 4 KiB here).
    ASSERT_TRUE(ymLogHelper::setLogSizeLimit(65536));
    ASSERT_EQ(unlink(logPath().c_str()), 0);
    writeLinesPast(16384, "removed");
    EXPECT_NE(ymtest::readFile(logPath()).find("removed 99 "), std::string::npos);
    ymtest::writeFile(logPath() + ".new", "another program's\n");
    ASSERT_EQ(rename((logPath() + ".new").c_str(), logPath().c_str()), 0);
    writeLinesPast(16384, "replaced");
    log = ymtest::readFile(logPath());
    EXPECT_EQ(log.rfind("another program's\n", 0), 0u);
    EXPECT_NE(log.find("replaced 99 "), std::string::npos);
    {
        ymtest::CapturedStderr elsewhere;  // the program sends standard error elsewhere: left there
        writeLinesPast(16384, "elsewhere");
        EXPECT_NE(elsewhere.text().find("elsewhere 99 "), std::string::npos);
    }

    // A process finding another cutting (holding the lock) leaves the cut to it.
    int other = open(logPath().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    ymLogHelper::redirectNSLog(YES);
    EXPECT_GT(std::filesystem::file_size(logPath()), 0u);
    close(other);
    ymLogHelper::redirectNSLog(YES);
    EXPECT_EQ(std::filesystem::file_size(logPath()), 0u);
}

TEST_F(Stderr, APipeOrSocketWithItsReaderGoneEndsNoProcess)
{
    std::string foreign = home.path() + "/h\x80";  // the log cannot move to its file there
    pid_t pid = forked([&foreign] {
        int broken[2], pair[2];
        if (pipe(broken) != 0 || dup2(broken[1], STDERR_FILENO) < 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
            return 2;
        close(broken[0]);
        close(pair[1]);
        mkdir(foreign.c_str(), 0700);
        setenv("HOME", foreign.c_str(), 1);
        ymLogHelper::redirectNSLog(NO);
        for (int i = 0; i < 3; ++i)
            YM_LOG("line %d to a pipe nobody reads", i);
        ymNSLogSetDestination(pair[0]);
        YM_LOG("%s", "to a socket nobody reads");
        ymNSLogSetDestination(-1);
        // SIGPIPE is unblocked again; a caller blocking it finds none left by the log, and keeps its own.
        sigset_t pipeOnly, now;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        if (pthread_sigmask(SIG_BLOCK, &pipeOnly, &now) != 0 || sigismember(&now, SIGPIPE))
            return 3;
        YM_LOG("%s", "with SIGPIPE blocked");
        if (sigpending(&now) != 0 || sigismember(&now, SIGPIPE))
            return 4;
        raise(SIGPIPE);
        YM_LOG("%s", "with the caller's SIGPIPE pending");
        return sigpending(&now) == 0 && sigismember(&now, SIGPIPE) ? 0 : 5;
    });
    EXPECT_EQ(waitStatus(pid), 0) << "13 is SIGPIPE";
}

}  // namespace
