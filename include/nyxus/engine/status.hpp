// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How things end: a reason for programs, a message for people. Thread-safe, nothing blocks.
 */
#ifndef NYXUS_ENGINE_STATUS_HPP
#define NYXUS_ENGINE_STATUS_HPP

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

/// What libnyxus-engine exports.
#define NYXUS_ENGINE_API __attribute__((visibility("default")))

namespace nyxus::engine {

/// Why something failed.
enum class Reason {
    kNone,             ///< it did not
    kOther,            ///< nothing of what follows; the message tells
    kStopped,          ///< the caller asked for it
    kCameraGone,       ///< unplugged, or without power
    kNotBack,          ///< has not come back after a restart
    kTimedOut,         ///< the camera or its flash did not answer, or did not restart
    kNoPermission,     ///< to open the camera
    kBusy,             ///< another program has it
    kProtected,        ///< the ROM stays write-protected
    kMismatch,         ///< the ROM does not hold what was written
    kWrongImage,       ///< the image is broken, or not for this camera; nothing was written
    kNotSupported,     ///< by this camera
    kFile,             ///< a file or folder cannot be read or written
    kBackupNotKept,    ///< so that nothing was written
    kNoBackup,         ///< of this camera
    kNothingToRecover, ///< the camera runs its firmware
    kNotStarted,       ///< the camera does not start what its ROM holds
};

/// Success, or why there is none.
class [[nodiscard]] Status {
public:
    /// Success.
    Status() = default;
    Status(Reason reason, std::string message, int32_t code = 0, std::string origin = {})
        : reason_(reason), code_(code), message_(std::move(message)), origin_(std::move(origin))
    {
    }

    bool ok() const { return reason_ == Reason::kNone; }
    explicit operator bool() const { return ok(); }
    Reason reason() const { return reason_; }
    /// The status of libNYXUS (nyxus/error.h) that it came from, 0 if none.
    int32_t code() const { return code_; }
    /// What failed and why, printable, in one line without a full stop. It names no command of any
    /// program, and what the ROM holds only where that is "nothing was written".
    const std::string& message() const { return message_; }
    /// Where in libNYXUS it began, with the code: "NYXuIoctl.cpp(42): ..., -16393"; "" if nowhere.
    const std::string& origin() const { return origin_; }
    /// The message, "; " and the advice if there is one, and the origin in brackets.
    std::string text(const std::string& advice = {}) const
    {
        return message_ + (advice.empty() ? "" : "; " + advice) +
               (origin_.empty() ? "" : " [" + origin_ + "]");
    }

private:
    Reason reason_ = Reason::kNone;
    int32_t code_ = 0;
    std::string message_;
    std::string origin_;
};

/// What a negative status means that libNYXUS has just returned on this thread.
NYXUS_ENGINE_API Status library_failure(const std::string& doing, int32_t status);
/// The same for a code of libusb; its reason alone for people.
NYXUS_ENGINE_API Status usb_failure(const std::string& doing, int libusb_code);
NYXUS_ENGINE_API std::string usb_reason(int libusb_code);

/// A value, or why there is none. Taking the value of a failure ends the program.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}
    Result(Status failure) : status_(std::move(failure)) {}

    bool ok() const { return value_.has_value(); }
    explicit operator bool() const { return ok(); }
    const Status& status() const { return status_; }

    T& operator*() &
    {
        require_value();
        return *value_;
    }
    const T& operator*() const&
    {
        require_value();
        return *value_;
    }
    T&& operator*() && { return std::move(**this); }
    T* operator->() { return &**this; }
    const T* operator->() const { return &**this; }

private:
    void require_value() const
    {
        if (!value_)
            std::terminate();
    }

    std::optional<T> value_;
    Status status_;
};

} // namespace nyxus::engine

#endif
