// Time conversions used by the data layer. All take seconds since the epoch and use the local time
// zone of the process (the terminal runs in the exchange's time zone). Stateless; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace utils {

// The local date of `seconds` as YYYYMMDD (for example 20261123).
int secondsToDate(int64_t seconds);

// Splits `seconds` into the local date (YYYYMMDD) and time of day (HHMMSS, for example 93000).
void d8_secondToDateTime(int64_t seconds, int& date, int& time);

// Seconds since the epoch of a local date (YYYYMMDD) and time of day (HHMMSS); -1 when invalid.
int64_t dateTimeToSeconds(int date, int time);

// Seconds since the epoch, now, from the system clock.
int64_t nowSeconds();

}  // namespace utils
