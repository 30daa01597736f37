// SPDX-License-Identifier: Apache-2.0
#include "trace_line.h"

#include <cstdarg>

uint32_t ny_trace_param = 0;
timeval ny_tv;

namespace {

void append_time_stamp(nyxus::LineText& line)
{
    gettimeofday(&ny_tv, nullptr);
    line.append("[%ld.%3ld]", static_cast<long>(ny_tv.tv_sec % 1000),
                static_cast<long>(ny_tv.tv_usec / 1000));
}

} // namespace

void nyxus::trace_line(uint32_t kind, const char* function, const char* format, ...)
{
    LineText line;
    append_time_stamp(line);
    line.append("%28s(): ", function);
    va_list arguments;
    va_start(arguments, format);
    line.append_list(format, arguments);
    va_end(arguments);
    put(kind, line);
}

void nyxus::trace_line(uint32_t kind, const char* function, const NyDevice* device,
                       const char* format, ...)
{
    LineText line;
    append_time_stamp(line);
    line.append("%20s(%p): ", function, static_cast<const void*>(device));
    va_list arguments;
    va_start(arguments, format);
    line.append_list(format, arguments);
    va_end(arguments);
    put(kind, line);
}

void nyxus::trace_bare(uint32_t kind, const char* format, ...)
{
    LineText line;
    va_list arguments;
    va_start(arguments, format);
    line.append_list(format, arguments);
    va_end(arguments);
    put(kind, line);
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
