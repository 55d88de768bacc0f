// Local time conversions. Each test sets the process time zone to CST-8: UTC+8 without daylight
// saving, which is what Asia/Shanghai, the exchanges' zone, has been since 1991. A POSIX zone string
// needs no time zone database, so the expected values below hold on any machine.
#include "utils/TimeUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace {

class TimeUtils : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* tz = std::getenv("TZ")) m_oldTz.reset(new std::string(tz));
        ::setenv("TZ", "CST-8", 1);
        ::tzset();
    }
    void TearDown() override {
        m_oldTz ? ::setenv("TZ", m_oldTz->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }
    std::unique_ptr<std::string> m_oldTz;
};

TEST_F(TimeUtils, KnownInstantsAndNow) {
    const struct {
        int64_t seconds;
        int date, time;
    } cases[] = {
        {0, 19700101, 80000},           {1700000000, 20231115, 61320},  // 2023-11-14 22:13:20 UTC
        {1704038399, 20231231, 235959},                                 // last second of 2023 at UTC+8
        {1704038400, 20240101, 0},                                      // first second of 2024
        {1709136000, 20240229, 0},                                      // leap day
        {1763861400, 20251123, 93000},                                  // morning open
        {1763892000, 20251123, 180000},                                 // night session begins
    };
    for (const auto& c : cases) {
        int date = -1, time = -1;
        utils::d8_secondToDateTime(c.seconds, date, time);
        EXPECT_EQ(c.date, date) << c.seconds;
        EXPECT_EQ(c.time, time) << c.seconds;
        EXPECT_EQ(c.date, utils::secondsToDate(c.seconds)) << c.seconds;
        EXPECT_EQ(c.seconds, utils::dateTimeToSeconds(c.date, c.time)) << c.date << " " << c.time;
    }
    // std::time reads the kernel's coarse clock, which may lag the fine one by a tick: allow a
    // second either side.
    const int64_t before = static_cast<int64_t>(std::time(nullptr));
    const int64_t now = utils::nowSeconds();
    EXPECT_LE(before - 1, now);
    EXPECT_LE(now, static_cast<int64_t>(std::time(nullptr)) + 1);
}

// Every hour of two years round-trips; an invalid date or time is -1.
TEST_F(TimeUtils, RoundTripsAndRefusesInvalidDates) {
    const int64_t start = 1704038400;  // 2024-01-01 00:00:00 local
    for (int64_t s = start; s < start + 2 * 366 * 86400; s += 3600 + 17) {
        int date = 0, time = 0;
        utils::d8_secondToDateTime(s, date, time);
        ASSERT_EQ(s, utils::dateTimeToSeconds(date, time)) << date << " " << time;
    }
    const int bad[][2] = {
        {20240230, 0},       // 30 February
        {20230229, 0},       // not a leap year
        {20241301, 0},       // month 13
        {20240100, 0},       // day 0
        {0, 0},              // no date
        {20240101, 240000},  // hour 24
        {20240101, 96000},   // minute 60
        {20240101, 93060},   // second 60
        {20240101, -1},
    };
    for (const auto& b : bad) EXPECT_EQ(-1, utils::dateTimeToSeconds(b[0], b[1])) << b[0] << " " << b[1];
}

}  // namespace
