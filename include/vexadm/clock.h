/* SPDX-License-Identifier: MIT */
/**
 * @file clock.h
 * Clock readings, days between dates, and milliseconds as date and time.
 *
 * Nothing blocks or allocates but get_days(), which may read the time zone's data,
 * and the lines that functions log or print. No function keeps state: all are
 * thread-safe. A NULL where a record belongs is refused: the function then writes
 * nothing, and returns NULL where it returns a record.
 */
#ifndef VEXADM_CLOCK_H
#define VEXADM_CLOCK_H

#include "export.h"

VEXA_BEGIN_DECLS

/* ---- Clock readings ------------------------------------------------------ */

/** A moment of a clock, or a span. */
typedef struct vexa_clk_time {
  int32_t sec;  /**< seconds */
  int32_t usec; /**< microseconds, 0 to 999999 in a reading */
} vexa_clk_time;

/**
 * Reads the clock that no one sets: for spans, not for dates.
 *
 * @param out  receives the reading of CLOCK_MONOTONIC; zero when it fails
 * @return out
 * @note A failure prints "clock_gettime() failed. errno = %d (%m)\n", with the number of
 *       the error and its text, to standard output. Logs nothing.
 */
VEXA_API vexa_clk_time *vexa_clk_GetRelativeTime(vexa_clk_time *out);

/**
 * Reads the clock of the day.
 *
 * @param out  receives the reading of CLOCK_REALTIME, counted from 1970 in UTC; zero
 *             when it fails. The seconds have 32 bits: they turn negative in January 2038
 * @return out
 * @note A failure is logged at level 3: "CLOCK_REALTIME is not supported for Absolute
 *       time\n".
 */
VEXA_API vexa_clk_time *vexa_clk_GetAbsoluteTime(vexa_clk_time *out);

/**
 * Adds two times. More than 999999 microseconds carry one second, and one only: with
 * 1000000 or more in both a and b the sum keeps more than 999999.
 *
 * @param out  receives the sum, which wraps around 32 bits; may be a or b
 * @param a    a time
 * @param b    a time
 * @return out
 */
VEXA_API vexa_clk_time *vexa_clk_Add(vexa_clk_time *out, const vexa_clk_time *a, const vexa_clk_time *b);

/**
 * @return seconds since the system started, as sysinfo() counts them; -1 when it fails
 * @note Logs "info.uptime is %ld\n" with the result, at level 0 (a failure: 3).
 */
VEXA_API long get_linuxuptime(void);

/* ---- Dates --------------------------------------------------------------- */

/** Days of January to December in a common year. */
VEXA_DATA const uint8_t g_day_per_mon[12];

/**
 * Counts the days from one date to another, by the seconds between their midnights in
 * local time: where one day of a span has 23 hours, because summer time begins, one day
 * less is counted.
 *
 * @param date1  year, month and day as decimal numbers: "2024-2-28". A month or a day
 *               outside of its range counts on into its neighbours; what follows the day
 *               is ignored
 * @param date2  likewise
 * @return whole days, negative when date2 comes before date1; 0 when a date is NULL, is
 *         not of this form, or cannot be represented
 * @note Uses the process's time zone (TZ): mktime() may open the zone's file, allocate
 *       and wait for the C library's lock on it. Logs nothing.
 */
VEXA_API int32_t get_days(const char *date1, const char *date2);

/** Date and time, of the Gregorian calendar. */
typedef struct vexa_mytime {
  uint16_t year;         /**< 1970 to 65535; of a later year the lower 16 bits */
  uint8_t month;         /**< 1 to 12 */
  uint8_t day;           /**< 1 to 31 */
  uint8_t hour;          /**< 0 to 23 */
  uint8_t minute;        /**< 0 to 59 */
  uint8_t second;        /**< 0 to 59; leap seconds are not counted */
  uint16_t milliseconds; /**< 0 to 999 */
  uint8_t weekday;       /**< 0 to 6, 0 is Sunday */
} vexa_mytime;

/**
 * Breaks a time down into date and time of the day.
 *
 * @param milliseconds   since 1970-01-01 00:00:00.000; earlier times cannot be given
 * @param out            receives the result. Of a year above 65535 the lower 16 bits
 * @param plus_one_hour  nonzero: one hour is added first
 * @note Knows no time zone: UTC gives UTC. Logs nothing.
 */
VEXA_API void vexa_util_utc_sec_2_mytime(uint64_t milliseconds, vexa_mytime *out, int32_t plus_one_hour);

VEXA_END_DECLS

#endif
