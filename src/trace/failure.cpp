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
    // Put together first: a host may pass one of the variables that are written next.
    LineText detail;
    va_list arguments;
    va_start(arguments, format);
    detail.append_list(format, arguments);
    va_end(arguments);

    nyxus_errno = code;
    std::snprintf(nyxus_errtmp, sizeof nyxus_errtmp, "%s", detail.text());
    std::snprintf(nyxus_errmsg, sizeof nyxus_errmsg, "%s(%d): <%s> %s", place.unit, place.line,
                  tag_text(tag), detail.text());
    if (traces(NY_TRACE_ERROR)) {
        trace_line(NY_TRACE_ERROR, place.function, "<%s> %s (%d) \n", tag_text(tag), detail.text(),
                   code);
    }
    return code;
}

int32_t pass_on(const char* function, const char* call, int32_t status)
{
    nyxus_rv = status;
    if (traces(NY_TRACE_ERROR))
        trace_line(NY_TRACE_ERROR, function, "%s FAILED, rv = %d \n", call, status);
    return status;
}

int32_t pass_on(const char* function, const NyDevice* device, const char* call, int32_t status)
{
    nyxus_rv = status;
    if (traces(NY_TRACE_ERROR))
        trace_line(NY_TRACE_ERROR, function, device, "%s FAILED, rv = %d \n", call, status);
    return status;
}

} // namespace nyxus
