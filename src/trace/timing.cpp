// SPDX-License-Identifier: Apache-2.0
#include "trace_line.h"

timeval ny_tv_start;
timeval ny_tv_interval;

void NyPrintTimeStart(void)
{
    gettimeofday(&ny_tv_start, nullptr);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Exection Time: Start counting! \n");
}

void NyPrintTimeInterval(void)
{
    timeval now;
    gettimeofday(&now, nullptr);
    ny_tv_interval.tv_sec = now.tv_sec - ny_tv_start.tv_sec;
    if (now.tv_usec > ny_tv_start.tv_usec) {
        ny_tv_interval.tv_usec = now.tv_usec - ny_tv_start.tv_usec;
    } else {
        // Printed intervals have always been the plain difference here, without a borrow.
        ny_tv_interval.tv_usec = ny_tv_start.tv_usec - now.tv_usec;
        ny_tv_interval.tv_sec -= 1;
    }
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Exection Time: Interval = %ld.%ld seconds \n",
                  static_cast<long>(ny_tv_interval.tv_sec),
                  static_cast<long>(ny_tv_interval.tv_usec / 1000));
}
