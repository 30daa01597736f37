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
    kUnknownRom,       ///< nothing tells what ROM the camera has
    kFile,             ///< a file or folder cannot be read or written
    kBackupNotKept,    ///< so that nothing was written
    kJournalNotKept,   ///< so that nothing was written
    kNoBackup,         ///< of this camera
    kUncertainBackup,  ///< several may be this camera's
    kNothingToRecover, ///< the camera runs its firmware
    kNotStarted,       ///< the camera does not start what its ROM holds, or not what was written
    kUnreliableReads,  ///< what the camera says of its ROM's contents cannot be relied on
    kUntrusted,        ///< no trusted key has signed it, or nobody knows what is trusted
    kDowngrade,        ///< a newer version has been there; nothing was written
};

/// Success, or why there is none. Its message says what failed and why, printable, in one line
/// without a full stop. It names no command of any program, and what the ROM holds only where that
/// is "nothing was written".
class [[nodiscard]] Status : public nyxus::Status {
public:
    /// Success.
    Status() = default;
    Status(Reason reason, std::string message, int32_t code = 0, std::string where = {})
        : nyxus::Status(code, std::move(message)), reason_(reason), where_(std::move(where))
    {
    }

    Reason reason() const { return reason_; }
    /// Where in libNYXUS it began, with the code: "NYXuIoctl.cpp(42): ..., -16393"; "" if nowhere.
    const std::string& where() const { return where_; }
    /// The message, "; " and the advice if there is one, and where it began in brackets.
    std::string text(const std::string& advice = {}) const
    {
        return message() + (advice.empty() ? "" : "; " + advice) +
               (where_.empty() ? "" : " [" + where_ + "]");
    }

private:
    Reason reason_ = Reason::kNone;
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
