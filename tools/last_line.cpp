// SPDX-License-Identifier: Apache-2.0
#include "last_line.h"

#include "files/write_all.h"

#include <poll.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>

namespace tool::last_line {

namespace {

// Read by signal handlers: plain memory and atomics, no locks.
constexpr size_t kCapacity = 2048;
std::atomic<Kind> current{Kind::kNone}; ///< what follows is valid unless it is kNone
int out_fd = -1;
char begun_line[kCapacity];
size_t begun_size;
std::chrono::steady_clock::time_point begun_at;
std::atomic<const char*> rom_contents{"unchanged"};
std::atomic<bool> is_put;
std::atomic<pid_t> writer; ///< the thread that has the turn; 0: none

/// A line that is put together without memory of its own; what does not fit is left out.
class Line {
public:
    Line& operator<<(std::string_view text)
    {
        const size_t count = std::min(text.size(), sizeof text_ - size_);
        std::copy_n(text.data(), count, text_ + size_);
        size_ += count;
        return *this;
    }
    Line& operator<<(int64_t number)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        return *this << std::string_view(digits, static_cast<size_t>(end - digits));
    }
    std::string_view text() const { return {text_, size_}; }

private:
    char text_[2 * kCapacity];
    size_t size_ = 0;
};

Line& put_seconds(Line& line)
{
    constexpr int64_t kTenth_ms = 100;
    const auto passed = std::chrono::steady_clock::now() - begun_at;
    const int64_t tenths =
        std::chrono::duration_cast<std::chrono::milliseconds>(passed).count() / kTenth_ms;
    return line << tenths / 10 << "." << tenths % 10;
}

// Not for ever: perhaps nobody reads what the other thread writes.
void await_turn()
{
    constexpr int kPatience_ms = 1000;
    const pid_t self = gettid();
    for (int waited_ms = 0; waited_ms < kPatience_ms; ++waited_ms) {
        const pid_t other = writer;
        if (other == 0 || other == self)
            return;
        poll(nullptr, 0, 1);
    }
}

} // namespace

Turn::Turn()
{
    writer = gettid();
}

Turn::~Turn()
{
    writer = 0;
}

Turn::operator bool() const
{
    return !is_put;
}

void set(int fd, Kind kind, std::string_view head)
{
    const Kind before = current.exchange(Kind::kNone);
    if (head.size() > kCapacity)
        return;
    if (before == Kind::kNone)
        begun_at = std::chrono::steady_clock::now();
    out_fd = fd;
    std::copy_n(head.data(), head.size(), begun_line);
    begun_size = head.size();
    current = kind;
}

void set_rom(const char* rom)
{
    rom_contents = rom;
}

void put(int exit_code, const char* outcome, const char* message, const char* more)
{
    const Kind kind = current.exchange(Kind::kNone);
    if (kind == Kind::kNone)
        return;
    is_put = true;
    await_turn();
    const bool is_result = kind == Kind::kResult;
    Line line;
    line << (is_result ? std::string_view(begun_line, begun_size) : "{\"error\":{")
         << "\"exit_code\":" << exit_code << ",\"message\":\"" << message << more << "\"";
    if (is_result) {
        line << ",\"outcome\":\"" << outcome << "\",\"rom\":\"" << rom_contents.load()
             << "\",\"bytes\":0,\"seconds\":";
        put_seconds(line);
    }
    line << (is_result ? "}\n" : "}}\n");
    (void)files::write_before_end(out_fd, line.text());
}

} // namespace tool::last_line
