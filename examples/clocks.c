/* SPDX-License-Identifier: MIT */
#include <inttypes.h>
#include <stdio.h>
#include <vexadm/vexadm.h>

int main(void) {
  vexa_clk_time deadline, now;
  const vexa_clk_time half = {.sec = 1, .usec = 500000};
  vexa_clk_Add(&deadline, vexa_clk_GetRelativeTime(&now), &half);
  printf("One and a half seconds from now: %" PRId32 ".%06" PRId32 " s of the monotonic clock.\n",
         deadline.sec, deadline.usec);

  vexa_mytime time;
  vexa_util_utc_sec_2_mytime(951782400000, &time, 1);
  printf("%04d-%02d-%02d %02d:%02d, weekday %d\n", time.year, time.month, time.day, time.hour, time.minute,
         time.weekday);
  printf("%" PRId32 " days from the end of February to March, %d of them in February.\n",
         get_days("2024-2-28", "2024-3-1"), 29 - g_day_per_mon[1]);
  return get_linuxuptime() > 0 ? 0 : 1;
}
