// The log centre: a disabled line costs no formatting, the sink sees what is written, formatting
// never throws, and configure() takes the levels from a log4cxx properties file. Lines that must be
// off use the trace level: the file TT_TEST_LOG loads enables nothing below debug.
#include "testing/LogCapture.h"
#include "utils/LogCenter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using utils::CLogCenter;

// Counts how often it is formatted.
struct Counted {
    int* formats;
};
std::ostream& operator<<(std::ostream& os, const Counted& c) {
    ++*c.formats;
    return os << "counted";
}

// A line that is off costs no formatting; an enabled one is formatted once and reaches the sink
// with its logger, level and text, positional and printf-style.
TEST(LogCenter, DisabledLinesFormatNothingEnabledLinesReachTheSink) {
    int formats = 0;
    const Counted c{&formats};
    ASSERT_FALSE(CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_TRACE));
    TT_LOG(utils::LOGGER_STD, utils::TT_LOG_TRACE, "value %1%", c);
    TT_LOG(utils::LOGGER_DBG, utils::TT_LOG_TRACE, "value %1% %2%", c, c);
    EXPECT_EQ(0, formats);
    {
        ttservice::test::LogCapture capture(utils::TT_LOG_DEBUG);
        TT_LOG(utils::LOGGER_STD, utils::TT_LOG_TRACE, "value %1%", c);
        EXPECT_EQ(0, formats);
        TT_LOG_DBG_DEBUG("value %1%", c);
        EXPECT_EQ(1, formats);
        EXPECT_EQ(1u, capture.count("value counted"));
    }

    ttservice::test::LogCapture capture;
    EXPECT_TRUE(CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_TRACE));
    EXPECT_TRUE(CLogCenter::instance().logEnabled("TTDbgFile", utils::TT_LOG_DEBUG));
    EXPECT_FALSE(CLogCenter::instance().logEnabled("NoSuchLogger", utils::TT_LOG_FATAL));
    EXPECT_TRUE(CLogCenter::instance().fileLogEnabled(103));
    TT_LOG_STD_INFO("CAccountData::restart onTimer %1%: %2%", "acc-1", 3000);
    TT_LOG_STD_ERROR("%s=%d, ratio %.2f", "volume", 42, 0.5);
    TT_LOG_DBG_DEBUG("[dbg_id=%1%] %2%", 103, "x=1,");
    const std::vector<ttservice::test::LogCapture::Line> lines = capture.lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(utils::LOGGER_STD, lines[0].logger);
    EXPECT_EQ(utils::TT_LOG_INFO, lines[0].level);
    EXPECT_EQ("CAccountData::restart onTimer acc-1: 3000", lines[0].text);
    EXPECT_EQ(utils::TT_LOG_ERROR, lines[1].level);
    EXPECT_EQ("volume=42, ratio 0.50", lines[1].text);
    EXPECT_EQ(utils::LOGGER_DBG, lines[2].logger);
    EXPECT_EQ(utils::TT_LOG_DEBUG, lines[2].level);
    EXPECT_EQ("[dbg_id=103] x=1,", lines[2].text);
    EXPECT_EQ(std::vector<std::string>{"[dbg_id=103] x=1,"}, capture.texts(utils::LOGGER_DBG));
}

// The sink goes with the last capture; captures nest, each at its own level.
TEST(LogCenter, SinkGoesWithTheLastCaptureAndCapturesNest) {
    {
        ttservice::test::LogCapture capture;
        EXPECT_TRUE(CLogCenter::instance().logEnabled(utils::LOGGER_DBG, utils::TT_LOG_TRACE));
    }
    EXPECT_FALSE(CLogCenter::instance().logEnabled(utils::LOGGER_DBG, utils::TT_LOG_TRACE));
    // A line written with no sink set goes nowhere and does not fail.
    CLogCenter::instance().write(utils::LOGGER_STD, utils::TT_LOG_TRACE, "dropped", "f", __FILE__, __LINE__);

    ttservice::test::LogCapture outer(utils::TT_LOG_INFO);
    EXPECT_FALSE(CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_TRACE));
    {
        ttservice::test::LogCapture inner;
        EXPECT_TRUE(CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_TRACE));
        TT_LOG(utils::LOGGER_STD, utils::TT_LOG_TRACE, "trace %1%", 1);
        TT_LOG_STD_INFO("info %1%", 2);
        EXPECT_EQ((std::vector<std::string>{"trace 1", "info 2"}), inner.texts());
    }
    EXPECT_FALSE(CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_TRACE));
    TT_LOG_STD_ERROR("error %1%", 3);
    EXPECT_EQ((std::vector<std::string>{"info 2", "error 3"}), outer.texts());
}

TEST(LogCenter, WrongArgumentCountsNeverThrow) {
    struct Case {
        const char* name;
        std::string (*format)();
        const char* expected;
    };
    const Case cases[] = {
        {"too few positional", [] { return utils::formatLog("a=%1% b=%2%", 1); }, "a=1 b="},
        {"too many positional", [] { return utils::formatLog("a=%1%", 1, 2, 3); }, "a=1"},
        {"too few printf", [] { return utils::formatLog("%s and %s", "x"); }, "x and "},
        {"no arguments", [] { return utils::formatLog("plain %1%"); }, "plain "},
        {"broken directive", [] { return utils::formatLog("100% sure %1%", 5); }, "100% sure %1%"},
        {"trailing percent", [] { return utils::formatLog("rate 5%"); }, "rate 5%"},
    };
    for (const Case& c : cases) {
        std::string out;
        EXPECT_NO_THROW(out = c.format()) << c.name;
        EXPECT_EQ(c.expected, out) << c.name;
    }
    // Through the macro as well.
    ttservice::test::LogCapture capture;
    EXPECT_NO_THROW(TT_LOG_STD_INFO("%1% %2% %3%", "only one"));
    EXPECT_NO_THROW(TT_LOG_STD_INFO("%1%", "one", "two"));
    EXPECT_TRUE(capture.contains("only one"));
    EXPECT_EQ(2u, capture.size());
}

// Writes through log4cxx from a function whose qualified name the layout reports.
void writeThroughLog4cxx() {
    TT_LOG_STD_INFO("through log4cxx %1%", 7);
}

TEST(LogCenter, ConfigureTakesLevelsFromProperties) {
    CLogCenter& center = CLogCenter::instance();
    EXPECT_FALSE(center.configure("/nonexistent/ttservice-log4cxx.properties"));

    char dir[] = "/tmp/tt_logcenter_XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(dir));
    const std::string logFile = std::string(dir) + "/std.log", props = std::string(dir) + "/log.properties";
    std::ofstream(props)
        << "log4j.rootLogger=OFF\nlog4j.logger.TTDbgFile=OFF\n"
           "log4j.logger.TTStdFile=INFO, file\nlog4j.appender.file=org.apache.log4j.FileAppender\n"
           "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
           "log4j.appender.file.layout.ConversionPattern=%p %c %M %m%n\nlog4j.appender.file.File="
        << logFile << "\n";
    ASSERT_TRUE(center.configure(props));
    EXPECT_TRUE(center.logEnabled(utils::LOGGER_STD, utils::TT_LOG_INFO));
    EXPECT_FALSE(center.logEnabled(utils::LOGGER_STD, utils::TT_LOG_DEBUG));
    EXPECT_FALSE(center.logEnabled(utils::LOGGER_DBG, utils::TT_LOG_FATAL));
    EXPECT_FALSE(center.fileLogEnabled(103));
    writeThroughLog4cxx();
    std::ostringstream written;
    written << std::ifstream(logFile).rdbuf();
    EXPECT_NE(std::string::npos, written.str().find("INFO TTStdFile writeThroughLog4cxx through log4cxx 7"))
        << written.str();

    // Leave logging as the test main set it for the tests that follow in this process.
    std::ofstream(props) << "log4j.rootLogger=OFF\nlog4j.logger.TTStdFile=OFF\nlog4j.logger.TTDbgFile=OFF\n";
    ASSERT_TRUE(center.configure(props));
    EXPECT_FALSE(center.logEnabled(utils::LOGGER_STD, utils::TT_LOG_FATAL));
    if (std::getenv("TT_TEST_LOG")) center.configure(TT_SOURCE_DIR "/examples/log4cxx.properties");
    std::remove(logFile.c_str());
    std::remove(props.c_str());
    ::rmdir(dir);
}

}  // namespace
