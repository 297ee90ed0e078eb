// The log: the shape of a line (date, process, then "<file>(<line>) " and the message, one write
// per line), and standard error redirected to yumoclientsdk.log in the group container.
#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <thread>
#include <sys/stat.h>

#include "foundation/ymLog.h"
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
    EXPECT_LT(log.find("first line"), log.find("line two"));
    EXPECT_NE(log.find("line two"), std::string::npos);

    // 102399 bytes are kept and appended to.
    ymtest::writeFile(logPath(), std::string(102399, 'k'));
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "after a kept log");
    std::string kept = ymtest::readFile(logPath());
    EXPECT_EQ(kept.substr(0, 102399), std::string(102399, 'k'));
    EXPECT_NE(kept.find("after a kept log"), std::string::npos);

    // 102400 bytes or more start a new log.
    ymtest::writeFile(logPath(), std::string(102400, 'd'));
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "after a cut log");
    std::string cut = ymtest::readFile(logPath());
    EXPECT_EQ(cut.find(std::string(64, 'd')), std::string::npos);
    EXPECT_NE(cut.find("after a cut log"), std::string::npos);

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

}  // namespace
