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
    const char* text;
};

// clang-format off
constexpr Meaning kUsbMeanings[] = {
//   libusb code                for people, and what they can do
    {LIBUSB_ERROR_ACCESS,       "no permission; install the udev rule (packaging/udev/70-nyxus.rules) and plug the camera in again, or run as root"},
    {LIBUSB_ERROR_BUSY,         "another program uses the camera; close it ('fuser -v /dev/bus/usb/*/* /dev/video*' names it) and try again"},
    {LIBUSB_ERROR_NO_DEVICE,    "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_NOT_FOUND,    "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_TIMEOUT,      "the camera did not answer in time; unplug it and plug it in again"},
    {LIBUSB_ERROR_PIPE,         "the camera rejected a request; its firmware does not know it, or is not a supported one"},
    {LIBUSB_ERROR_IO,           "USB transfer error; check the cable and the hub"},
    {LIBUSB_ERROR_OVERFLOW,     "the camera sent too much; check the cable and the hub"},
    {LIBUSB_ERROR_NO_MEM,       "out of memory"},
};

constexpr Meaning kLibraryMeanings[] = {
//   status               for people
    {NYXUS_E_SPI_COMMAND, "the flash did not answer a command in time"},
    {NYXUS_E_BUSY,        "the flash did not become ready in time"},
    {NYXUS_E_NO_SUPPORT,  "this camera does not support it"},
    {NYXUS_E_TIMEOUT,     "the flash did not confirm its write protection; is its WP pin wired to ground?"},
    {NYXUS_E_UNSUPPORTED, "the flash part cannot be identified"},
    {NYXUS_E_INVALID,     "this camera's firmware lacks a control that is needed"},
};
// clang-format on

const char* find_text(std::span<const Meaning> meanings, int32_t status, const char* otherwise)
{
    const auto found = std::ranges::find(meanings, status, &Meaning::status);
    return found == meanings.end() ? otherwise : found->text;
}

const char* usb_text(int libusb_code)
{
    return find_text(kUsbMeanings, libusb_code, libusb_strerror(libusb_code));
}

/// Of what has a better name than its number; else NULL.
const char* text_of(const nyxus::Status& failure)
{
    switch (failure.origin()) {
        case Origin::kSystem:
            return strerrordesc_np(failure.system_errno());
        case Origin::kUsb:
            return usb_text(failure.usb_code());
        default:
            return find_text(kLibraryMeanings, failure.code(), nullptr);
    }
}

} // namespace

std::string usb_reason(int libusb_code)
{
    return usb_text(libusb_code);
}

Status usb_failure(const std::string& doing, int libusb_code)
{
    const nyxus::Status failure(NYXUS_E_LIBUSB(libusb_code), doing + ": " + usb_text(libusb_code));
    return {failure.reason(), failure.message(), failure.code()};
}

Status library_failure(const std::string& doing, int32_t status)
{
    const nyxus::Status failure(status, doing);
    const char* text = text_of(failure);
    // The message variables describe the last failure, which may be an older one.
    const std::string described = nyxus_errno == status ? text::printable(nyxus_errmsg) + ", " : "";
    return {failure.reason(), text != nullptr ? doing + ": " + text : doing, status,
            described + std::to_string(status)};
}

} // namespace nyxus::engine
