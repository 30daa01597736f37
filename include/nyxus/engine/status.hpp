// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How things end: a reason for programs, a message for people. Thread-safe, nothing blocks.
 */
#ifndef NYXUS_ENGINE_STATUS_HPP
#define NYXUS_ENGINE_STATUS_HPP

#include <nyxus/cpp/result.hpp>

/// What libnyxus-engine exports.
#define NYXUS_ENGINE_API __attribute__((visibility("default")))

namespace nyxus::engine {

using nyxus::Reason;

/// Success, or why there is none. Its message says what failed and why, printable, in one line
/// without a full stop. It names no command of any program, and what the ROM holds only where that
/// is "nothing was written".
class [[nodiscard]] Status : public nyxus::Status {
public:
    /// Success.
    Status() = default;
    Status(Reason reason, std::string message, int32_t code = 0, std::string where = {})
        : nyxus::Status(reason, std::move(message), code), where_(std::move(where))
    {
    }

    /// Where in libNYXUS it began, with the code: "NYXuIoctl.cpp(42): ..., -16393"; "" if nowhere.
    const std::string& where() const { return where_; }
    /// The message, "; " and the advice if there is one, and where it began in brackets.
    std::string text(const std::string& advice = {}) const
    {
        return message() + (advice.empty() ? "" : "; " + advice) +
               (where_.empty() ? "" : " [" + where_ + "]");
    }

private:
    std::string where_;
};

/// What a negative status means that libNYXUS has just returned on this thread.
NYXUS_ENGINE_API Status library_failure(const std::string& doing, int32_t status);
/// The same for a code of libusb; its reason alone for people.
NYXUS_ENGINE_API Status usb_failure(const std::string& doing, int libusb_code);
NYXUS_ENGINE_API std::string usb_reason(int libusb_code);

/// A value, or why there is none.
template <typename T>
using Result = nyxus::Result<T, Status>;

} // namespace nyxus::engine

#endif
