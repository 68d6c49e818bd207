// SPDX-License-Identifier: MIT
// Days between dates, and milliseconds as date and time.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>

#include "vexadm/clock.h"

const uint8_t g_day_per_mon[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

namespace {

static_assert(offsetof(vexa_mytime, month) == 2 && offsetof(vexa_mytime, second) == 6);
static_assert(offsetof(vexa_mytime, milliseconds) == 8 && offsetof(vexa_mytime, weekday) == 10);
static_assert(sizeof(vexa_mytime) == 12);

constexpr int64_t kSecondsOfDay = 86400;
constexpr uint64_t kHour = 3600000;
constexpr uint64_t kDay = 24 * kHour;

// ---- Days between dates ----

// A number of a date, and behind it the separator, if there has to be one.
std::optional<int> take_number(const char*& text, bool separated) {
  char* end = nullptr;
  // A long may be no wider than an int: what is too great would look like the greatest there is.
  const long long number = std::strtoll(text, &end, 10);
  if (end == text || (separated && *end != '-')) return std::nullopt;
  if (number < std::numeric_limits<int>::min() + 1900 || number > std::numeric_limits<int>::max()) {
    return std::nullopt;  // no year, nor anything else
  }
  text = separated ? end + 1 : end;
  return static_cast<int>(number);
}

std::optional<std::time_t> midnight_of(const char* date) {
  if (!date) return std::nullopt;
  const std::optional<int> year = take_number(date, true);
  const std::optional<int> month = year ? take_number(date, true) : std::nullopt;
  const std::optional<int> day = month ? take_number(date, false) : std::nullopt;
  if (!day) return std::nullopt;
  std::tm fields = {};
  fields.tm_year = *year - 1900;
  fields.tm_mon = *month - 1;
  fields.tm_mday = *day;
  // Midnight by the clocks of that day. With 0 a summer's day would begin at one o'clock.
  fields.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&fields);
  // No zone has its midnight a second before the epoch.
  return seconds == -1 ? std::nullopt : std::optional(seconds);
}

// ---- Date and time of the day ----

bool is_leap(uint64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

uint64_t days_of_year(uint64_t year) { return is_leap(year) ? 366 : 365; }

uint64_t days_of_month(uint64_t year, unsigned month) {
  return month == 2 && is_leap(year) ? 29 : g_day_per_mon[month - 1];
}

// By Zeller's congruence.
uint8_t weekday_of(uint64_t year, unsigned month, unsigned day) {
  const unsigned counted = month < 3 ? month + 12 : month;
  if (month < 3) --year;
  const auto y = static_cast<int64_t>(year % 100);
  const auto c = static_cast<int64_t>(year / 100);
  const int64_t weekday = (y + y / 4 + c / 4 - 2 * c + 26 * (int64_t{counted} + 1) / 10 + day - 1) % 7;
  return static_cast<uint8_t>(weekday < 0 ? weekday + 7 : weekday);
}

}  // namespace

int32_t get_days(const char* date1, const char* date2) {
  const std::optional<std::time_t> from = midnight_of(date1);
  const std::optional<std::time_t> to = midnight_of(date2);
  if (!from || !to) return 0;
  // Truncated: a span with a day of 23 hours counts one day less.
  const int64_t days = (int64_t{*to} - int64_t{*from}) / kSecondsOfDay;
  return static_cast<int32_t>(
      std::clamp<int64_t>(days, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

void vexa_util_utc_sec_2_mytime(uint64_t milliseconds, vexa_mytime* out, int32_t plus_one_hour) {
  // Every 400 years the calendar repeats itself; without this a wild number would be counted down
  // year by year for seconds.
  constexpr uint64_t kCycleYears = 400;
  constexpr uint64_t kCycleDays = 146097;
  if (!out) return;
  if (plus_one_hour != 0) milliseconds += kHour;
  uint64_t days = milliseconds / kDay;
  const uint64_t rest = milliseconds % kDay;

  uint64_t year = 1970 + days / kCycleDays * kCycleYears;
  days %= kCycleDays;
  for (; days >= days_of_year(year); ++year) days -= days_of_year(year);
  unsigned month = 1;
  for (; month < 12 && days >= days_of_month(year, month); ++month) days -= days_of_month(year, month);
  const auto day = static_cast<unsigned>(days) + 1;

  out->year = static_cast<uint16_t>(year);
  out->month = static_cast<uint8_t>(month);
  out->day = static_cast<uint8_t>(day);
  out->hour = static_cast<uint8_t>(rest / kHour);
  out->minute = static_cast<uint8_t>(rest % kHour / 60000);
  out->second = static_cast<uint8_t>(rest % 60000 / 1000);
  out->milliseconds = static_cast<uint16_t>(rest % 1000);
  out->weekday = weekday_of(year, month, day);
}
