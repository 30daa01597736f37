// SPDX-License-Identifier: Apache-2.0
#include "failure.h"

#include <cstdarg>
#include <cstdio>

__thread int32_t nyxus_errno;
__thread int32_t nyxus_rv;
__thread char nyxus_errtmp[128];
__thread char nyxus_errmsg[256];
__thread char nyxus_errstr[256];

namespace nyxus {

static const char* tag_text(FailureTag tag)
{
    switch (tag) {
        case FailureTag::kLibusb:
            return "ERROR_LIBUSB";
        case FailureTag::kSystem:
            return "ERROR_SYSTEM";
        case FailureTag::kNyxus:
            break;
    }
    return "ERROR_NYXUS";
}

int32_t raise_failure(FailureTag tag, int32_t code, const FailurePlace& place, const char* format,
                      ...)
{
    nyxus_errno = code;

    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(nyxus_errtmp, sizeof nyxus_errtmp, format, arguments);
    va_end(arguments);

    if (traces(NY_TRACE_ERROR))
        trace_line(place.function, "<%s> %s (%d) \n", tag_text(tag), nyxus_errtmp, code);

    std::snprintf(nyxus_errmsg, sizeof nyxus_errmsg, "%s(%d): <%s> %s", place.unit, place.line,
                  tag_text(tag), nyxus_errtmp);
    return nyxus_errno;
}

int32_t pass_on(const char* function, const char* call, int32_t status)
{
    nyxus_rv = status;
    if (traces(NY_TRACE_ERROR))
        trace_line(function, "%s FAILED, rv = %d \n", call, status);
    return status;
}

int32_t pass_on(const char* function, const NyDevice* device, const char* call, int32_t status)
{
    nyxus_rv = status;
    if (traces(NY_TRACE_ERROR))
        trace_line(function, device, "%s FAILED, rv = %d \n", call, status);
    return status;
}

} // namespace nyxus
