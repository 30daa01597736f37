// SPDX-License-Identifier: Apache-2.0
#include "trace_line.h"

#include <cstdarg>
#include <cstdio>

uint32_t ny_trace_param = 0;
timeval ny_tv;

namespace {

/// Holds standard error for one line, so that lines of several threads stay whole.
class LineLock {
public:
    LineLock() { flockfile(stderr); }
    ~LineLock() { funlockfile(stderr); }
    LineLock(const LineLock&) = delete;
    LineLock& operator=(const LineLock&) = delete;
};

void print_time_stamp()
{
    gettimeofday(&ny_tv, nullptr);
    std::fprintf(stderr, "[%ld.%3ld]", static_cast<long>(ny_tv.tv_sec % 1000),
                 static_cast<long>(ny_tv.tv_usec / 1000));
}

} // namespace

void nyxus::trace_line(const char* function, const char* format, ...)
{
    const LineLock lock;
    print_time_stamp();
    std::fprintf(stderr, "%28s(): ", function);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}

void nyxus::trace_line(const char* function, const NyDevice* device, const char* format, ...)
{
    const LineLock lock;
    print_time_stamp();
    std::fprintf(stderr, "%20s(%p): ", function, static_cast<const void*>(device));
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}

void nyxus::trace_bare(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}

void NyTraceVerbose_level(int32_t level)
{
    switch (level) {
        case 1:
            ny_trace_param = 0x3FF;
            break;
        case 2:
            ny_trace_param = 0x7FF;
            break;
        case 3:
            ny_trace_param = 0x1FFF;
            break;
        default:
            ny_trace_param = 0x0F;
            break;
    }
}
