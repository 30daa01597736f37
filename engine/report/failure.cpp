// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nyxus/cpp/result.hpp>
#include <nyxus/engine/status.hpp>
#include <span>

#include "text/printable.h"

namespace nyxus::engine {

namespace {

struct Meaning {
    int32_t status;
    Reason reason;
    const char* text;
};

// clang-format off
constexpr Meaning kUsbMeanings[] = {
//   libusb code                reason                 for people, and what they can do
    {LIBUSB_ERROR_ACCESS,       Reason::kNoPermission, "no permission; install the udev rule (packaging/udev/70-nyxus.rules) and plug the camera in again, or run as root"},
    {LIBUSB_ERROR_BUSY,         Reason::kBusy,         "another program uses the camera; close it ('fuser -v /dev/bus/usb/*/* /dev/video*' names it) and try again"},
    {LIBUSB_ERROR_NO_DEVICE,    Reason::kCameraGone,   "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_NOT_FOUND,    Reason::kCameraGone,   "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_TIMEOUT,      Reason::kTimedOut,     "the camera did not answer in time; unplug it and plug it in again"},
    {LIBUSB_ERROR_PIPE,         Reason::kOther,        "the camera rejected a request; its firmware does not know it, or is not a supported one"},
    {LIBUSB_ERROR_IO,           Reason::kOther,        "USB transfer error; check the cable and the hub"},
    {LIBUSB_ERROR_OVERFLOW,     Reason::kOther,        "the camera sent too much; check the cable and the hub"},
    {LIBUSB_ERROR_NO_MEM,       Reason::kOther,        "out of memory"},
};

constexpr Meaning kLibraryMeanings[] = {
//   status               reason                 for people
    {NYXUS_E_SPI_COMMAND, Reason::kTimedOut,     "the flash did not answer a command in time"},
    {NYXUS_E_BUSY,        Reason::kTimedOut,     "the flash did not become ready in time"},
    {NYXUS_E_NO_SUPPORT,  Reason::kNotSupported, "this camera does not support it"},
    {NYXUS_E_TIMEOUT,     Reason::kProtected,    "the flash did not confirm its write protection; is its WP pin wired to ground?"},
    {NYXUS_E_UNSUPPORTED, Reason::kNotSupported, "the flash part cannot be identified"},
    {NYXUS_E_INVALID,     Reason::kNotSupported, "this camera's firmware lacks a control that is needed"},
};
// clang-format on

Meaning find_meaning(std::span<const Meaning> meanings, int32_t status, const char* otherwise)
{
    const auto found = std::ranges::find(meanings, status, &Meaning::status);
    return found == meanings.end() ? Meaning{status, Reason::kOther, otherwise} : *found;
}

Meaning usb_meaning(int libusb_code)
{
    return find_meaning(kUsbMeanings, libusb_code, libusb_strerror(libusb_code));
}

/// What has a better name than its number.
Meaning meaning_of(int32_t status)
{
    const int32_t kind = -status & 0xFF;
    switch (status < 0 ? -status & 0xFF00 : 0) {
        case 0x8000:
            return {status, Reason::kOther, strerrordesc_np(kind)};
        case 0x4000:
            return usb_meaning(-kind);
        default:
            return find_meaning(kLibraryMeanings, status, nullptr);
    }
}

} // namespace

std::string usb_reason(int libusb_code)
{
    return usb_meaning(libusb_code).text;
}

Status usb_failure(const std::string& doing, int libusb_code)
{
    const Meaning meaning = usb_meaning(libusb_code);
    return {meaning.reason, doing + ": " + meaning.text, NYXUS_E_LIBUSB(libusb_code)};
}

Status library_failure(const std::string& doing, int32_t status)
{
    const Meaning meaning = meaning_of(status);
    // The message variables describe the last failure, which may be an older one.
    const std::string described = nyxus_errno == status ? text::printable(nyxus_errmsg) + ", " : "";
    return {meaning.reason, meaning.text != nullptr ? doing + ": " + meaning.text : doing, status,
            described + std::to_string(status)};
}

} // namespace nyxus::engine
