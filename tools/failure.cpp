// SPDX-License-Identifier: Apache-2.0
#include "failure.h"

#include "text.h"

#include <libusb-1.0/libusb.h>
#include <nyxus/error.h>
#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

namespace tool {

namespace {

struct Meaning {
    int32_t status;
    ExitCode code;
    const char* reason;
};

// clang-format off
constexpr Meaning kUsbMeanings[] = {
//   libusb code                exit code        reason, and what the user can do
    {LIBUSB_ERROR_ACCESS,       kExitPermission, "no permission; install the udev rule (packaging/udev/70-nyxus.rules) and plug the camera in again, or run as root"},
    {LIBUSB_ERROR_BUSY,         kExitBusy,       "another program uses the camera; close it ('fuser -v /dev/bus/usb/*/* /dev/video*' names it) and try again"},
    {LIBUSB_ERROR_NO_DEVICE,    kExitCameraLost, "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_NOT_FOUND,    kExitCameraLost, "the camera is gone, perhaps unplugged"},
    {LIBUSB_ERROR_TIMEOUT,      kExitTimeout,    "the camera did not answer in time; unplug it and plug it in again"},
    {LIBUSB_ERROR_PIPE,         kExitFailure,    "the camera rejected a request; its firmware does not know it, or is not a supported one"},
    {LIBUSB_ERROR_IO,           kExitFailure,    "USB transfer error; check the cable and the hub"},
    {LIBUSB_ERROR_OVERFLOW,     kExitFailure,    "the camera sent too much; check the cable and the hub"},
    {LIBUSB_ERROR_NO_MEM,       kExitFailure,    "out of memory"},
};

constexpr Meaning kStatusMeanings[] = {
//   status               exit code          reason
    {NYXUS_E_SPI_COMMAND, kExitTimeout,      "the flash did not answer a command in time"},
    {NYXUS_E_BUSY,        kExitTimeout,      "the flash did not become ready in time"},
    {NYXUS_E_NO_SUPPORT,  kExitNotSupported, "this camera does not support it"},
    {NYXUS_E_TIMEOUT,     kExitProtected,    "the flash did not confirm its write protection; is its WP pin wired to ground?"},
    {NYXUS_E_UNSUPPORTED, kExitNotSupported, "the flash part cannot be identified"},
    {NYXUS_E_INVALID,     kExitNotSupported, "this camera's firmware lacks a control that is needed"},
};
// clang-format on

} // namespace

static const Meaning* find_meaning(std::span<const Meaning> meanings, int32_t status)
{
    const auto found = std::ranges::find(meanings, status, &Meaning::status);
    return found == meanings.end() ? nullptr : &*found;
}

std::string usb_reason(int libusb_code)
{
    const Meaning* meaning = find_meaning(kUsbMeanings, libusb_code);
    return meaning != nullptr ? meaning->reason : libusb_strerror(libusb_code);
}

static ExitCode usb_exit_code(int libusb_code)
{
    const Meaning* meaning = find_meaning(kUsbMeanings, libusb_code);
    return meaning != nullptr ? meaning->code : kExitFailure;
}

Failure usb_failure(const std::string& doing, int libusb_code)
{
    return {usb_exit_code(libusb_code), doing + ": " + usb_reason(libusb_code)};
}

/// "[where in the library it began, status]" - the message only if it belongs to this status.
static std::string origin(int32_t status)
{
    const std::string message = nyxus_errno == status ? printable(nyxus_errmsg) + ", " : "";
    return " [" + message + std::to_string(status) + "]";
}

/// Code and reason of a status that has a better name than its number.
static std::optional<std::pair<ExitCode, std::string>> find_reason(int32_t status)
{
    const int32_t origin_class = -status & 0xFF00;
    const int32_t kind = -status & 0xFF;
    if (status < 0 && origin_class == 0x8000)
        return std::pair(kExitFailure, std::string(std::strerror(kind)));
    if (status < 0 && origin_class == 0x4000)
        return std::pair(usb_exit_code(-kind), usb_reason(-kind));
    if (const Meaning* meaning = find_meaning(kStatusMeanings, status); meaning != nullptr)
        return std::pair(meaning->code, std::string(meaning->reason));
    return std::nullopt;
}

Failure library_failure(const std::string& doing, int32_t status, const std::string& advice)
{
    const auto reason = find_reason(status);
    std::string text = doing;
    if (reason)
        text += ": " + reason->second;
    if (!advice.empty())
        text += "; " + advice;
    return {reason ? reason->first : kExitFailure, text + origin(status)};
}

} // namespace tool
