// SPDX-License-Identifier: Apache-2.0
#include "line_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nyxus {

LineText::~LineText()
{
    if (text_ != room_)
        std::free(text_);
}

bool LineText::make_room(size_t size)
{
    auto* larger = static_cast<char*>(std::malloc(size));
    if (larger == nullptr)
        return false;
    std::memcpy(larger, text_, length_ + 1);
    if (text_ != room_)
        std::free(text_);
    text_ = larger;
    size_ = size;
    return true;
}

void LineText::append(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    append_list(format, arguments);
    va_end(arguments);
}

void LineText::append_list(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const size_t room = size_ - length_;
    const int printed = std::vsnprintf(text_ + length_, room, format, arguments);
    auto added = static_cast<size_t>(std::max(printed, 0));
    if (added >= room) {
        if (make_room(length_ + added + 1)) {
            std::vsnprintf(text_ + length_, added + 1, format, again);
        } else {
            added = room - 1;
        }
    }
    va_end(again);
    length_ += added;
}

} // namespace nyxus
