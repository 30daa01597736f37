// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstddef>

namespace nyxus {

/// Text put together from formatted pieces. Only texts of an unusual length (a host's path, say)
/// are on the heap; one that finds no memory there is cut.
class LineText {
public:
    LineText() = default;
    ~LineText();
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;

    void append(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void append_list(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

    const char* text() const { return text_; } ///< NUL-terminated
    size_t length() const { return length_; }

private:
    bool make_room(size_t size);

    char room_[512] = {};
    char* text_ = room_;
    size_t size_ = sizeof room_;
    size_t length_ = 0;
};

} // namespace nyxus
