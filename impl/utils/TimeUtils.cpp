#include "utils/TimeUtils.h"

#include <sys/time.h>

#include <ctime>

namespace utils {

namespace {
bool toLocal(int64_t seconds, struct tm& out) {
    const time_t t = static_cast<time_t>(seconds);
    return ::localtime_r(&t, &out) != nullptr;
}
}  // namespace

int secondsToDate(int64_t seconds) {
    struct tm lt;
    if (!toLocal(seconds, lt)) return 0;
    return (lt.tm_year + 1900) * 10000 + (lt.tm_mon + 1) * 100 + lt.tm_mday;
}

void d8_secondToDateTime(int64_t seconds, int& date, int& time) {
    struct tm lt;
    if (!toLocal(seconds, lt)) {
        date = 0;
        time = 0;
        return;
    }
    date = (lt.tm_year + 1900) * 10000 + (lt.tm_mon + 1) * 100 + lt.tm_mday;
    time = lt.tm_hour * 10000 + lt.tm_min * 100 + lt.tm_sec;
}

int64_t dateTimeToSeconds(int date, int time) {
    if (date <= 0 || time < 0) return -1;
    const int year = date / 10000, month = date / 100 % 100, day = date % 100;
    const int hour = time / 10000, minute = time / 100 % 100, second = time % 100;
    if (year < 1900 || month < 1 || month > 12 || day < 1 || day > 31) return -1;
    if (hour > 23 || minute > 59 || second > 59) return -1;
    struct tm lt = {};
    lt.tm_year = year - 1900;
    lt.tm_mon = month - 1;
    lt.tm_mday = day;
    lt.tm_hour = hour;
    lt.tm_min = minute;
    lt.tm_sec = second;
    lt.tm_isdst = -1;  // let the zone rules decide
    const time_t t = ::mktime(&lt);
    if (t == static_cast<time_t>(-1)) return -1;
    // mktime normalises out-of-range fields (31 April becomes 1 May): such a date is invalid.
    if (lt.tm_year != year - 1900 || lt.tm_mon != month - 1 || lt.tm_mday != day) return -1;
    return static_cast<int64_t>(t);
}

int64_t nowSeconds() {
    struct timeval tv;
    ::gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec);
}

}  // namespace utils
