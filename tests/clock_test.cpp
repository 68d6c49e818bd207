// SPDX-License-Identifier: MIT
#include "vexadm/clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "support/child.h"
#include "support/libc_calls.h"
#include "support/log_text.h"

// ---- Clocks that fail -------------------------------------------------------

namespace {

int g_clock_error = 0;
int g_sysinfo_error = 0;
constexpr timespec kReal = {0, -1};  // a nanosecond that no clock has
timespec g_reading = kReal;

}  // namespace

#define IN_PLACE_OF(name) __asm__(name) __attribute__((visibility("default"), used))

extern "C" int vexa_test_clock(clockid_t clock, timespec* now) IN_PLACE_OF(VEXA_CLOCK_GETTIME);
extern "C" int vexa_test_sysinfo(struct sysinfo* info) IN_PLACE_OF("sysinfo");

int vexa_test_clock(clockid_t clock, timespec* now) {
  errno = g_clock_error;
  if (g_clock_error != 0) return -1;
  if (g_reading.tv_nsec < 0) return vexa_test::kernel_clock(clock, now);
  *now = g_reading;
  return 0;
}

int vexa_test_sysinfo(struct sysinfo* info) {
  errno = g_sysinfo_error;
  return g_sysinfo_error != 0 ? -1 : static_cast<int>(syscall(SYS_sysinfo, info));
}

namespace {

using vexa_test::log_is;
using vexa_test::LogCapture;
using vexa_test::run_in_child;

double seconds_of(clockid_t clock) {
  timespec now = {};
  vexa_test::kernel_clock(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double seconds_of(const vexa_clk_time& time) { return time.sec + time.usec / 1e6; }

// ---- Readings ---------------------------------------------------------------

TEST(RelativeTime, IsThatOfTheMonotonicClock) {
  vexa_clk_time now = {-1, -1};
  const double before = seconds_of(CLOCK_MONOTONIC);
  EXPECT_EQ(vexa_clk_GetRelativeTime(&now), &now);
  EXPECT_GE(seconds_of(now), before - 1e-6);
  EXPECT_LE(seconds_of(now), seconds_of(CLOCK_MONOTONIC));
}

TEST(AbsoluteTime, IsThatOfTheRealTimeClock) {
  LogCapture log;
  vexa_clk_time now = {-1, -1};
  const double before = seconds_of(CLOCK_REALTIME);
  EXPECT_EQ(vexa_clk_GetAbsoluteTime(&now), &now);
  EXPECT_GE(seconds_of(now), before - 1e-6);
  EXPECT_LE(seconds_of(now), seconds_of(CLOCK_REALTIME) + 1e-6);
  EXPECT_TRUE(log.lines().empty());
}

TEST(RelativeTime, LosesWhatIsLessThanAMicrosecond) {
  g_reading = {7, 999999999};
  vexa_clk_time now = {};
  vexa_clk_GetRelativeTime(&now);
  EXPECT_EQ(now.sec, 7);
  g_reading = kReal;
  EXPECT_EQ(now.usec, 999999);
}

TEST(AbsoluteTime, TurnsNegativeIn2038) {
  g_reading = {2147483647LL + 1, 5000};
  vexa_clk_time now = {};
  vexa_clk_GetAbsoluteTime(&now);
  EXPECT_EQ(now.sec, INT32_MIN);
  g_reading = kReal;
  EXPECT_EQ(now.usec, 5);
}

TEST(RelativeTime, IsZeroWhenTheClockFailsWhichIsPrinted) {
  const auto child = run_in_child([] {
    vexa_clk_time now = {-1, -1};
    g_clock_error = EINVAL;
    EXPECT_EQ(vexa_clk_GetRelativeTime(&now), &now);
    EXPECT_EQ(now.sec, 0);
    EXPECT_EQ(now.usec, 0);
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.out, "clock_gettime() failed. errno = 22 (Invalid argument)\n");
}

TEST(AbsoluteTime, IsZeroWhenTheClockFailsWhichIsLogged) {
  const auto child = run_in_child([] {
    LogCapture log;
    vexa_clk_time now = {-1, -1};
    g_clock_error = EINVAL;
    EXPECT_EQ(vexa_clk_GetAbsoluteTime(&now), &now);
    EXPECT_EQ(now.sec, 0);
    EXPECT_EQ(now.usec, 0);
    EXPECT_TRUE(
        log_is(log, {"3 oem_clk_GetAbsoluteTime|CLOCK_REALTIME is not supported for Absolute time\n"}));
  });
  EXPECT_EQ(child.exit_code, 0) << child.out;
  EXPECT_EQ(child.out, "");
}

TEST(ClockReadings, WithoutARecordAreRefused) {
  vexa_clk_time time = {1, 2};
  EXPECT_EQ(vexa_clk_GetRelativeTime(nullptr), nullptr);
  EXPECT_EQ(vexa_clk_GetAbsoluteTime(nullptr), nullptr);
  EXPECT_EQ(vexa_clk_Add(nullptr, &time, &time), nullptr);
  EXPECT_EQ(vexa_clk_Add(&time, nullptr, &time), nullptr);
  EXPECT_EQ(vexa_clk_Add(&time, &time, nullptr), nullptr);
  EXPECT_EQ(time.sec, 1);
  EXPECT_EQ(time.usec, 2);
}

// ---- Sums -------------------------------------------------------------------

struct Sum {
  vexa_clk_time a;
  vexa_clk_time b;
  vexa_clk_time sum;
};

class Add : public ::testing::TestWithParam<Sum> {};

TEST_P(Add, GivesTheSum) {
  const Sum& tested = GetParam();
  vexa_clk_time out = {-7, -7};
  EXPECT_EQ(vexa_clk_Add(&out, &tested.a, &tested.b), &out);
  EXPECT_EQ(out.sec, tested.sum.sec);
  EXPECT_EQ(out.usec, tested.sum.usec);
}

INSTANTIATE_TEST_SUITE_P(Times, Add,
                         ::testing::Values(Sum{{1, 600000}, {2, 500000}, {4, 100000}},
                                           Sum{{1, 499999}, {2, 500000}, {3, 999999}},
                                           Sum{{1, 500000}, {2, 500000}, {4, 0}},
                                           // One second is carried, no more.
                                           Sum{{0, 1500000}, {0, 1500000}, {1, 2000000}},
                                           Sum{{5, -3}, {-7, 1}, {-2, -2}},
                                           Sum{{INT32_MAX, 999999}, {0, 1}, {INT32_MIN, 0}},
                                           Sum{{INT32_MAX, 0}, {1, INT32_MAX}, {INT32_MIN + 1, 2146483647}},
                                           // A sum that wraps is negative: nothing is carried.
                                           Sum{{0, INT32_MAX}, {0, 1}, {0, INT32_MIN}}));

TEST(AddInPlace, MayGiveTheSumInOneOfItsParts) {
  vexa_clk_time time = {1, 600000};
  const vexa_clk_time more = {2, 500000};
  vexa_clk_Add(&time, &time, &more);
  EXPECT_EQ(time.sec, 4);
  EXPECT_EQ(time.usec, 100000);
  vexa_clk_Add(&time, &more, &time);
  EXPECT_EQ(time.sec, 6);
  EXPECT_EQ(time.usec, 600000);
}

// ---- Uptime -----------------------------------------------------------------

TEST(Uptime, IsTheSystems) {
  LogCapture log;
  const double before = seconds_of(CLOCK_BOOTTIME);
  const long uptime = get_linuxuptime();
  EXPECT_GE(uptime, static_cast<long>(before));
  EXPECT_LE(uptime, static_cast<long>(seconds_of(CLOCK_BOOTTIME)) + 1);
  EXPECT_TRUE(log_is(log, {"0 get_linuxuptime|info.uptime is " + std::to_string(uptime) + "\n"}));
}

TEST(Uptime, ThatIsNotToldIsMinusOne) {
  LogCapture log;
  g_sysinfo_error = EPERM;
  EXPECT_EQ(get_linuxuptime(), -1);
  g_sysinfo_error = 0;
  EXPECT_TRUE(log_is(log, {"3 get_linuxuptime|info.uptime is -1\n"}));
}

// ---- Days -------------------------------------------------------------------

void use_zone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

// Days from 1970-01-01, counted year by year and month by month.
std::int64_t day_number(int year, int month, int day) {
  static constexpr int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  std::int64_t days = 0;
  const auto leap = [](int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; };
  for (int y = 1970; y < year; ++y) days += leap(y) ? 366 : 365;
  for (int y = year; y < 1970; ++y) days -= leap(y) ? 366 : 365;
  return days + kBefore[month - 1] + (month > 2 && leap(year) ? 1 : 0) + day - 1;
}

TEST(Days, AreCountedOverALeapDay) {
  EXPECT_EQ(get_days("2024-2-28", "2024-3-1"), 2);
  EXPECT_EQ(get_days("2024-3-1", "2024-2-28"), -2);
  EXPECT_EQ(get_days("2023-2-28", "2023-3-1"), 1);
  EXPECT_EQ(get_days("2024-02-28", "2024-02-28"), 0);
}

TEST(Days, AreThoseOfTheCalendar) {
  std::mt19937 random(7);
  const auto number = [&](int from, int to) { return std::uniform_int_distribution(from, to)(random); };
  for (int i = 0; i < 20000; ++i) {
    const int from[] = {number(1902, 2400), number(1, 12), number(1, 28)};
    const int to[] = {number(1902, 2400), number(1, 12), number(1, 28)};
    char date1[32];
    char date2[32];
    std::snprintf(date1, sizeof date1, "%d-%d-%d", from[0], from[1], from[2]);
    std::snprintf(date2, sizeof date2, "%04d-%02d-%02d", to[0], to[1], to[2]);
    ASSERT_EQ(get_days(date1, date2), day_number(to[0], to[1], to[2]) - day_number(from[0], from[1], from[2]))
        << date1 << " " << date2;
  }
}

TEST(Days, AreOneLessOverTheBeginningOfSummerTime) {
  use_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(get_days("2024-3-30", "2024-3-31"), 1);
  EXPECT_EQ(get_days("2024-3-31", "2024-4-1"), 0);  // 23 hours
  EXPECT_EQ(get_days("2024-3-30", "2024-4-1"), 1);
  EXPECT_EQ(get_days("2024-4-1", "2024-3-30"), -1);
  EXPECT_EQ(get_days("2024-4-1", "2024-4-3"), 2);
  EXPECT_EQ(get_days("2024-10-26", "2024-10-28"), 2);   // 49 hours
  EXPECT_EQ(get_days("2024-3-30", "2024-10-28"), 212);  // the year's hours are even
}

TEST(Days, CountOnWhereAMonthOrADayIsOutOfRange) {
  EXPECT_EQ(get_days("2024-1-1", "2024-13-1"), 366);
  EXPECT_EQ(get_days("2024-3-0", "2024-3-1"), 1);
  EXPECT_EQ(get_days("2024-1-1", "2024-1--1"), -2);
}

TEST(Days, IgnoreWhatFollowsTheDay) { EXPECT_EQ(get_days(" 2024-2- 28T12:00", "2024-3-1-7 "), 2); }

TEST(Days, OfWhatIsNoDateAreZero) {
  for (const char* text :
       {"", "2024", "2024-", "2024-2", "2024-2-", "2024-2-x", "2024 -2-3", "2024/2/3", "x2024-2-3",
        "99999999999-1-1", "2024-99999999999-1", "-2147483648-1-1", "2147483647-12-2147483647"}) {
    EXPECT_EQ(get_days(text, "1900-1-1"), 0) << text;
    EXPECT_EQ(get_days("1900-1-1", text), 0) << text;
  }
  EXPECT_EQ(get_days(nullptr, "2024-1-1"), 0);
  EXPECT_EQ(get_days("2024-1-1", nullptr), 0);
}

TEST(Days, OfMillionsOfYearsStopAtTheLimit) {
  EXPECT_EQ(get_days("2024-1-1", "2000000000-1-1"), INT32_MAX);
  EXPECT_EQ(get_days("2000000000-1-1", "2024-1-1"), INT32_MIN);
}

// ---- Date and time ----------------------------------------------------------

// "2000-02-29 12:00:00.000 2"
std::string calendar(std::uint64_t milliseconds, std::int32_t plus_one_hour = 0) {
  vexa_mytime time = {};
  vexa_util_utc_sec_2_mytime(milliseconds, &time, plus_one_hour);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d %d", time.year, time.month, time.day,
                time.hour, time.minute, time.second, time.milliseconds, time.weekday);
  return text;
}

std::string calendar_of_libc(std::uint64_t milliseconds) {
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm utc = {};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d %d", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(milliseconds % 1000), utc.tm_wday);
  return text;
}

constexpr std::uint64_t kDay = 86400000;

TEST(Calendar, BeginsOnAThursday) { EXPECT_EQ(calendar(0), "1970-01-01 00:00:00.000 4"); }

TEST(Calendar, KnowsTheLeapDayOfACentury) {
  EXPECT_EQ(calendar(951782400000), "2000-02-29 00:00:00.000 2");
  EXPECT_EQ(calendar(951782400000 + kDay), "2000-03-01 00:00:00.000 3");
  EXPECT_EQ(calendar(4107456000000), "2100-02-28 00:00:00.000 0");
  EXPECT_EQ(calendar(4107456000000 + kDay), "2100-03-01 00:00:00.000 1");
}

TEST(Calendar, AddsAnHourOnRequest) {
  EXPECT_EQ(calendar(kDay - 1, 1), "1970-01-02 00:59:59.999 5");
  EXPECT_EQ(calendar(kDay - 1, -7), "1970-01-02 00:59:59.999 5");
  EXPECT_EQ(calendar(kDay - 1, 0), "1970-01-01 23:59:59.999 4");
}

TEST(Calendar, IsThatOfTheCLibraryOnEveryDay) {
  std::mt19937_64 random(7);
  for (std::uint64_t day = 0; day * kDay < 4291747200000; ++day) {  // 2106
    for (const std::uint64_t rest : {std::uint64_t{0}, kDay - 1, random() % kDay}) {
      ASSERT_EQ(calendar(day * kDay + rest), calendar_of_libc(day * kDay + rest)) << day << " " << rest;
    }
  }
}

TEST(Calendar, IsThatOfTheCLibraryUpToTheYear65535) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 200000; ++i) {
    const std::uint64_t milliseconds = random() % 2005949145600000;
    ASSERT_EQ(calendar(milliseconds), calendar_of_libc(milliseconds)) << milliseconds;
  }
  EXPECT_EQ(calendar(2005949145599999), "65535-12-31 23:59:59.999 2");
}

TEST(Calendar, OfALaterYearKeepsItsLowerBits) {
  EXPECT_EQ(calendar(2005949145600000), "0000-01-01 00:00:00.000 3");
  // 584556019-04-03, a Wednesday
  EXPECT_EQ(calendar(UINT64_MAX), "40435-04-03 14:25:51.615 3");
  EXPECT_EQ(calendar(UINT64_MAX, 1), "1970-01-01 00:59:59.999 4");
}

TEST(Calendar, WithoutARecordDoesNothing) { vexa_util_utc_sec_2_mytime(0, nullptr, 0); }

TEST(DaysOfTheMonths, AreThoseOfACommonYear) {
  EXPECT_THAT(g_day_per_mon, ::testing::ElementsAre(31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31));
}

}  // namespace
