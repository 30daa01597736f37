// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Results that cannot be ignored, and views of bytes.
 */
#ifndef NYXUS_CPP_RESULT_HPP
#define NYXUS_CPP_RESULT_HPP

#include <nyxus/error.h>

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace nyxus {

/// Where a failure began.
enum class Origin {
    kNone,    ///< success
    kLibrary, ///< libNYXUS: the codes of nyxus/error.h
    kUsb,     ///< libusb: usb_code() tells which failure
    kSystem,  ///< the operating system: system_errno() tells which
    kVideo,   ///< libuvc: the code is a uvc_error_t
};

/// Why something failed: what programs decide by. C++, the engine and Python (whose exceptions are
/// named after them) share these; what only the engine finds out stands there, too.
enum class Reason {
    kNone,             ///< it did not
    kOther,            ///< nothing of what follows; the message tells
    kStopped,          ///< the caller asked for it
    kCameraGone,       ///< unplugged, or without power
    kNotBack,          ///< has not come back after a restart
    kTimedOut,         ///< the camera or its flash did not answer, or did not restart
    kPermissionDenied, ///< to open the camera
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
    kOutOfRange,       ///< an argument that the call does not take
    kDowngrade,        ///< a newer version has been there; nothing was written
};

/// For programs: "camera-gone".
inline const char* to_text(Reason reason)
{
    constexpr const char* kTexts[] = {
        "none",
        "other",
        "stopped",
        "camera-gone",
        "not-back",
        "timed-out",
        "permission-denied",
        "busy",
        "protected",
        "mismatch",
        "wrong-image",
        "not-supported",
        "unknown-rom",
        "file",
        "backup-not-kept",
        "journal-not-kept",
        "no-backup",
        "uncertain-backup",
        "nothing-to-recover",
        "not-started",
        "unreliable-reads",
        "untrusted",
        "out-of-range",
        "downgrade",
    };
    static_assert(sizeof kTexts / sizeof *kTexts == static_cast<size_t>(Reason::kDowngrade) + 1);
    return kTexts[static_cast<size_t>(reason)];
}

/// Success, or a failure with its code and a text that says what failed and why.
class [[nodiscard]] Status {
public:
    /// Success.
    Status() = default;
    /// A failure of the caller's own making. Its origin follows from the code.
    Status(int32_t code, std::string message)
        : code_(code),
          origin_(origin_of(code)),
          reason_(reason_of(origin_, code)),
          message_(std::move(message))
    {
    }
    /// One that no code tells of.
    Status(Reason reason, std::string message, int32_t code = 0)
        : code_(code), origin_(origin_of(code)), reason_(reason), message_(std::move(message))
    {
    }

    /// What a function of the C interface has just returned on this thread: 0 and more is success.
    static Status of(int32_t returned)
    {
        if (returned >= 0)
            return {};
        // The message variables describe the last failure, which may be an older one.
        const bool described = nyxus_errno == returned;
        return {returned, described ? std::string(nyxus_errmsg) : description(returned)};
    }
    /// The same for the streaming functions, which return what libuvc says.
    static Status of_video(int32_t returned)
    {
        if (returned >= 0 || returned < UVC_ERROR_OTHER)
            return of(returned);
        const bool described = nyxus_errno == returned;
        Status status(returned, described ? std::string(nyxus_errmsg)
                                          : uvc_strerror(static_cast<uvc_error_t>(returned)));
        status.origin_ = Origin::kVideo;
        status.reason_ = video_reason(returned);
        return status;
    }
    /// The same for a function of libusb.
    static Status of_libusb(int returned)
    {
        if (returned >= 0)
            return {};
        return {NYXUS_E_LIBUSB(returned), libusb_strerror(returned)};
    }

    bool ok() const { return origin_ == Origin::kNone; }
    explicit operator bool() const { return ok(); }
    /// What it means for a program.
    Reason reason() const { return reason_; }
    /// 0, or the code as the C interface returns it.
    int32_t code() const { return code_; }
    Origin origin() const { return origin_; }
    /// Empty for success.
    const std::string& message() const { return message_; }
    /// The libusb code (LIBUSB_ERROR_...), 0 for a failure of another origin.
    int usb_code() const { return origin_ == Origin::kUsb ? -(-code_ & 0xFF) : 0; }
    /// The errno, 0 for a failure of another origin.
    int system_errno() const { return origin_ == Origin::kSystem ? -code_ & 0xFF : 0; }

private:
    static constexpr int32_t kOriginMask = 0xFF00;

    static Origin origin_of(int32_t code)
    {
        const int32_t high = code < 0 && code >= -0xFFFF ? -code & kOriginMask : 0;
        if (high == 0x4000)
            return Origin::kUsb;
        return high == 0x8000 ? Origin::kSystem : Origin::kLibrary;
    }

    static Reason reason_of(Origin origin, int32_t code)
    {
        if (origin == Origin::kUsb)
            return usb_reason(-(-code & 0xFF));
        return origin == Origin::kSystem ? Reason::kFile : library_reason(code);
    }

    static Reason usb_reason(int code)
    {
        switch (code) {
            case LIBUSB_ERROR_ACCESS:
                return Reason::kPermissionDenied;
            case LIBUSB_ERROR_BUSY:
                return Reason::kBusy;
            case LIBUSB_ERROR_NO_DEVICE:
            case LIBUSB_ERROR_NOT_FOUND:
                return Reason::kCameraGone;
            case LIBUSB_ERROR_TIMEOUT:
                return Reason::kTimedOut;
            default:
                return Reason::kOther;
        }
    }

    /// libuvc numbers most of its codes as libusb does.
    static Reason video_reason(int32_t code)
    {
        if (code == UVC_ERROR_INTERRUPTED)
            return Reason::kStopped;
        const bool lacks_it = code == UVC_ERROR_INVALID_MODE || code == UVC_ERROR_NOT_SUPPORTED;
        return lacks_it ? Reason::kNotSupported : usb_reason(code);
    }

    static Reason library_reason(int32_t code)
    {
        constexpr int32_t kUnknownChip = 3; // of DEV_Init()
        switch (code) {
            case NYXUS_E_RANGE:
                return Reason::kOutOfRange;
            case NYXUS_E_SPI_COMMAND:
            case NYXUS_E_BUSY: // the flash; of an LED the caller says so
                return Reason::kTimedOut;
            case NYXUS_E_TIMEOUT: // of the write protection
                return Reason::kProtected;
            case NYXUS_E_NO_SUPPORT:
            case NYXUS_E_UNSUPPORTED:
            case NYXUS_E_INVALID:
            case kUnknownChip:
                return Reason::kNotSupported;
            default:
                return Reason::kOther;
        }
    }

    /// For the codes that come without a message.
    static std::string description(int32_t code)
    {
        switch (code) {
            case NYXUS_E_FAILED:
                return "refused: a value out of range, or not possible with this camera";
            case NYXUS_E_SPI_COMMAND:
                return "the flash did not answer a command in time";
            case NYXUS_E_BUSY:
                return "still busy";
            case NYXUS_E_NO_SUPPORT:
                return "not supported";
            default:
                break;
        }
        if (origin_of(code) == Origin::kUsb)
            return libusb_strerror(-(-code & 0xFF));
        return "failed with status " + std::to_string(code);
    }

    int32_t code_ = 0;
    Origin origin_ = Origin::kNone;
    Reason reason_ = Reason::kNone;
    std::string message_;
};

/// A value, or the reason why there is none. Taking the value of a failure ends the program. `Why`
/// is a Status.
template <typename T, typename Why = Status>
class [[nodiscard]] Result {
public:
    Result(T value) : value_(std::move(value)) {}
    Result(Why failure) : status_(std::move(failure)) {}
    /// The value if a function of the C interface has just returned success.
    static Result of(int32_t returned, T value)
    {
        if (returned < 0)
            return Status::of(returned);
        return value;
    }

    bool ok() const { return value_.has_value(); }
    explicit operator bool() const { return ok(); }
    const Why& status() const { return status_; }

    T& value() &
    {
        require_value();
        return *value_;
    }
    const T& value() const&
    {
        require_value();
        return *value_;
    }
    T&& value() &&
    {
        require_value();
        return std::move(*value_);
    }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T&& operator*() && { return std::move(*this).value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T value_or(T other) const { return ok() ? *value_ : std::move(other); }

private:
    void require_value() const
    {
        if (!value_)
            std::terminate();
    }

    std::optional<T> value_;
    Why status_;
};

/// A view of contiguous memory that somebody else owns. std::span, arrays and containers convert to
/// it, in every language standard alike.
template <typename T>
class Span {
public:
    using element_type = T;
    using value_type = std::remove_cv_t<T>;

    constexpr Span() = default;
    constexpr Span(T* data, size_t size) : data_(data), size_(size) {}
    template <size_t N>
    constexpr Span(T (&array)[N]) : data_(array), size_(N)
    {
    }
    template <typename Container, typename Pointer = decltype(std::declval<Container&>().data()),
              typename = decltype(std::declval<Container&>().size()),
              typename = std::enable_if_t<
                  !std::is_same_v<std::decay_t<Container>, Span> &&
                  std::is_convertible_v<std::remove_pointer_t<Pointer> (*)[], T (*)[]>>>
    constexpr Span(Container&& container) : data_(container.data()), size_(container.size())
    {
    }

    constexpr T* data() const { return data_; }
    constexpr size_t size() const { return size_; }
    constexpr bool empty() const { return size_ == 0; }
    constexpr T* begin() const { return data_; }
    constexpr T* end() const { return data_ + size_; }
    constexpr T& operator[](size_t index) const { return data_[index]; }
    /// The part from `offset` on; what lies beyond the end is left out.
    constexpr Span subspan(size_t offset, size_t count = static_cast<size_t>(-1)) const
    {
        const size_t start = offset < size_ ? offset : size_;
        return {data_ + start, count < size_ - start ? count : size_ - start};
    }

private:
    T* data_ = nullptr;
    size_t size_ = 0;
};

using Bytes = Span<const uint8_t>;

/// A text field of a record, which may lack a terminator.
template <size_t N>
std::string field_text(const char (&field)[N])
{
    return {field, strnlen(field, N)};
}

} // namespace nyxus

#endif
