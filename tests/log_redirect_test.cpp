// Redirecting standard error to yumoclientsdk.log in the group container.
#include <YumoClientSdk/CMD.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/ymLog.h"
#include "support/TestSupport.h"

namespace {

// Keeps descriptor 2 and puts it back afterwards, so the redirection ends with the test.
class Stderr : public ::testing::Test {
protected:
    void SetUp() override { _saved = dup(STDERR_FILENO); }
    void TearDown() override
    {
        dup2(_saved, STDERR_FILENO);
        close(_saved);
    }
    std::string logPath() const { return home.groupContainer() + "/yumoclientsdk.log"; }
    long logSize() const
    {
        struct stat status;
        return stat(logPath().c_str(), &status) == 0 ? static_cast<long>(status.st_size) : -1;
    }

    ymtest::TemporaryHome home;

private:
    int _saved = -1;
};

TEST_F(Stderr, MissingContainerIsCreatedAndLinesLandInTheLog)
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
    EXPECT_NE(log.find("log_redirect_test.cpp("), std::string::npos);
    EXPECT_NE(log.find("-[Test redirect]: first line\n"), std::string::npos);
    EXPECT_NE(log.find("child error output\n"), std::string::npos);
}

TEST_F(Stderr, LogIsCutAtItsSizeLimitOnly)
{
    ASSERT_TRUE(ymtest::eventually([&] { return system(("mkdir -p '" + home.groupContainer() + "'").c_str()) == 0; }));

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
    EXPECT_EQ(logSize(), 0);
}

TEST_F(Stderr, SecondRedirectionAppendsToTheSameFile)
{
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "line one");
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "line two");
    std::string log = ymtest::readFile(logPath());
    ASSERT_NE(log.find("line one"), std::string::npos);
    EXPECT_LT(log.find("line one"), log.find("line two"));
}

TEST_F(Stderr, WithoutAContainerStandardErrorStaysWhereItWas)
{
    ymtest::CapturedStderr captured;
    ymtest::writeFile(home.path() + "/Library", "not a folder");
    ymLogHelper::redirectNSLog(YES);
    YM_LOG("%s", "still on the old stream");
    EXPECT_NE(captured.text().find("still on the old stream"), std::string::npos);
}

TEST_F(Stderr, NonAsciiPathKeepsTheOldStream)
{
    ymtest::CapturedStderr captured;
    std::string home = this->home.path() + "/h\xc3\xa9";
    ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
    setenv("HOME", home.c_str(), 1);
    ymLogHelper::redirectNSLog(NO);
    YM_LOG("%s", "not redirected");
    EXPECT_NE(captured.text().find("not redirected"), std::string::npos);
}

}  // namespace
