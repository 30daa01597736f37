// SPDX-License-Identifier: Apache-2.0
#include "camera.h"

#include "failure.h"
#include "last_words.h"
#include "text.h"

#include <nyxus/config.h>
#include <nyxus/error.h>
#include <nyxus/trace.h>
#include <algorithm>

namespace tool {

namespace {

/// EEPROMs lose a write that comes earlier after the one before.
constexpr uint8_t kEepromWriteCycle_ms = 5;
/// DEV_Init()'s answer for a chip that the catalogue lacks.
constexpr int32_t kUnknownChip = 3;

Failure open_failure(const CameraEntry& entry, const nyxus::Status& status)
{
    const std::string camera = "camera " + entry.bus_address();
    const std::string reason = ": " + printable(status.message());
    if (status.code() == NYXUS_E_NO_SUPPORT) {
        return {kExitNotSupported,
                "cannot open " + camera + reason + "; 'lsusb -v -d 1162:' shows them"};
    }
    if (status.code() == kUnknownChip)
        return {kExitNotSupported, "cannot identify " + camera + reason};
    return library_failure("cannot identify " + camera, status.code());
}

/// Only these answers of the probe can mean a blank ROM; the last one is asked for the version that
/// the chip goes by. Whatever else fails says nothing about the ROM.
bool may_be_blank(int32_t status)
{
    return status == NYXUS_E_INVALID || status == NYXUS_E_UNSUPPORTED || status == kUnknownChip;
}

} // namespace

void prepare_library(int verbosity)
{
    NyTraceVerbose_level(std::min(verbosity, 3));
    NyConfig config;
    LIB_NyxusGetConfig(&config);
    // The milestones tell which phase an upgrade is in.
    config.dwTraceParam |= NY_TRACE_STEP;
    config.bWriteCycleTime = kEepromWriteCycle_ms;
    LIB_NyxusSetConfig(&config);
}

Camera Camera::open(const CameraEntry& entry)
{
    const auto hold = kernel_driver::hold();
    auto loan = std::make_unique<kernel_driver::Loan>(entry);
    auto camera = nyxus::Camera::open(entry);
    if (camera)
        return {std::move(*camera), std::move(loan)};
    if (const Openable claim = try_claim(entry); claim.libusb_code != 0)
        throw usb_failure("cannot open camera " + entry.bus_address(), claim.libusb_code);
    if (!may_be_blank(camera.status().code()))
        throw open_failure(entry, camera.status());
    auto blank = nyxus::Camera::open_blank(entry);
    if (!blank)
        throw open_failure(entry, blank.status());
    return {std::move(*blank), std::move(loan)};
}

Camera::Camera(nyxus::Camera camera, Loan loan) : camera_(std::move(camera)), loan_(std::move(loan))
{
    kernel_driver::set_open(device().usb_handle);
}

Camera& Camera::operator=(Camera&& other) noexcept
{
    give_up();
    camera_ = std::move(other.camera_);
    loan_ = std::move(other.loan_);
    wide_path_fails = other.wide_path_fails;
    return *this;
}

void Camera::give_up()
{
    if (!loan_)
        return;
    last_words::wait_for_end();
    const auto hold = kernel_driver::hold();
    kernel_driver::set_open(nullptr);
    camera_.close();
    loan_.reset();
}

void Camera::assume_eeprom(uint32_t size_bytes)
{
    if (const nyxus::Status set = camera_.assume_eeprom(size_bytes); !set)
        throw library_failure("cannot set the type of the ROM", set.code());
}

std::string Camera::chip() const
{
    return printable(camera_.chip());
}

std::string Camera::name() const
{
    return "camera " + entry().bus_address() + " (" + chip() +
           (entry().serial.empty() ? "" : ", serial " + entry().serial) + ")";
}

Difference find_difference(std::span<const uint8_t> a, std::span<const uint8_t> b)
{
    Difference difference;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        if (a[i] == b[i])
            continue;
        ++difference.count;
        if (difference.first_offsets.size() < Difference::kMostOffsets)
            difference.first_offsets.push_back(i);
    }
    return difference;
}

} // namespace tool
