// The log-line shape: date, process, then "<file>(<line>) " and the message, one write per line.
#include <gtest/gtest.h>
#include <regex>
#include <thread>
#include <vector>

#include "foundation/ymLog.h"
#include "support/TestSupport.h"

namespace {

TEST(LogLine, CarriesTheCallersFileAndLine)
{
    ymtest::CapturedStderr captured;
    const int line = __LINE__ + 1;
    YM_LOG(">> %s start", "-[ymSdkImplement GetIMPresenceStatus]");
    YM_LOG("%s.", "-[ymIPCMsgMgr init]");
    YM_LOG("%d is already connected. close it.", 7);
    YM_LOG("%s: read [%d-%d]: %ld.%s\n", "-[ySocketServerImpl_SDK connectionProcessFunc:]", 3, 0, 2L, "{}");

    std::string text = captured.text();
    std::regex first("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} [^\\[]+\\[\\d+:\\d+\\] "
                     "log_line_test\\.cpp\\(" + std::to_string(line) +
                     "\\) >> -\\[ymSdkImplement GetIMPresenceStatus\\] start\n");
    EXPECT_TRUE(std::regex_search(text, first)) << text;
    EXPECT_NE(text.find("log_line_test.cpp(" + std::to_string(line + 1) + ") -[ymIPCMsgMgr init].\n"), std::string::npos);
    EXPECT_NE(text.find(") 7 is already connected. close it.\n"), std::string::npos);
    // A message that ends with a newline gets no second one from the writer.
    EXPECT_TRUE(text.ends_with("read [3-0]: 2.{}\n")) << text;
}

TEST(LogLine, LongLinesAndConcurrentWritersStayWhole)
{
    ymtest::CapturedStderr captured;
    std::string big(70000, 'x');
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t)
        writers.emplace_back([&big, t] {
            for (int i = 0; i < 50; ++i)
                YM_LOG("%s: writer %d line %d %s", "-[Test run]", t, i, i % 10 == 0 ? big.c_str() : "short");
        });
    for (std::thread &writer : writers)
        writer.join();
    std::string text = captured.text();
    EXPECT_EQ(ymtest::countLinesContaining(text, "-[Test run]: writer"), 200);
    // Every line starts with the prefix: none was cut into another.
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        EXPECT_NE(line.find("log_line_test.cpp("), std::string::npos) << line.substr(0, 80);
    EXPECT_EQ(ymtest::countLinesContaining(text, big), 20);
}

}  // namespace
