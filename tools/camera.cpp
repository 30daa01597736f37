// SPDX-License-Identifier: Apache-2.0
#include "camera.h"

#include "failure.h"
#include "text.h"

#include <nyxus/access.h>
#include <nyxus/config.h>
#include <nyxus/error.h>
#include <nyxus/trace.h>
#include <nyxus/video.h>
#include <algorithm>

namespace tool {

namespace {

/// EEPROMs lose a write that comes earlier after the one before.
constexpr uint8_t kEepromWriteCycle_ms = 5;
/// DEV_Init()'s answer for a chip that the catalogue lacks.
constexpr int32_t kUnknownChip = 3;
/// Read-ID commands of the known flash parts, the most common one first.
constexpr uint8_t kReadIdCommands[] = {0x9F, 0x90, 0xAB, 0x15};

void close_device(NyDevice* device)
{
    DEV_DeleteObject(device);
}

/// For an object of ours: the library frees none.
void close_and_free_device(NyDevice* device)
{
    DEV_DeleteObject(device);
    delete device;
}

/// What the bus reads as where no flash answers.
bool nothing_answered(const uint8_t (&id)[3])
{
    return id[0] == id[1] && (id[0] == 0x00 || id[0] == 0xFF);
}

std::shared_ptr<NyDevice> open_by_hand(const CameraEntry& entry)
{
    std::shared_ptr<NyDevice> device(new NyDevice{}, close_and_free_device);
    device->state = 1;
    device->index = -1;
    device->usb_device = entry.device.get();
    init_uvc_video(device.get());
    if (device->uvc_handle == nullptr)
        throw Failure(kExitNotSupported, "cannot open camera " + entry.bus_address() +
                                             ": libuvc does not understand its descriptors; "
                                             "'lsusb -v -d 1162:' shows them");
    device->usb_handle = uvc_get_libusb_handle(device->uvc_handle);
    libusb_set_auto_detach_kernel_driver(device->usb_handle, 1);
    return device;
}

Failure probe_failure(const NyDevice& device, const CameraEntry& entry, int32_t status)
{
    const std::string doing = "cannot identify camera " + entry.bus_address();
    if (status == kUnknownChip)
        return {kExitNotSupported,
                doing + ": unknown controller, its internal firmware is '" +
                    printable_field(device.szIntFwVer, sizeof device.szIntFwVer) + "'"};
    return library_failure(doing, status);
}

/// Probes a camera whose ROM tells nothing about itself: a flash says what it is when it is asked
/// with the right command.
RomState probe_blank(NyDevice& device, const CameraEntry& entry)
{
    bool probed = false;
    for (const uint8_t command : kReadIdCommands) {
        device.oFlashInfo = {};
        device.oFlashInfo.bCmdRDID = command;
        const int32_t status = probed ? MP_QueryExtRom(&device) : DEV_Init(&device);
        if (status != 0 && status != NYXUS_E_SPI_COMMAND)
            throw probe_failure(device, entry, status);
        if (status == 0 && !nothing_answered(device.oFlashInfo.ID))
            return RomState::kBlank;
        probed = true;
    }
    device.oFlashInfo = {};
    device.xSpiMode = 0;
    device.dwExtRomSize = 0;
    return RomState::kUnknown;
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
    NyDevice* created = DEV_CreateObjectUsb(entry.device.get());
    if (created != nullptr)
        return {entry, {created, close_device}, RomState::kFirmware};

    // Libuvc says only on standard error why it cannot open a camera.
    const Openable claim = try_claim(entry);
    if (claim.libusb_code != 0)
        throw usb_failure("cannot open camera " + entry.bus_address(), claim.libusb_code);

    std::shared_ptr<NyDevice> own = open_by_hand(entry);
    const RomState state = probe_blank(*own, entry);
    return {entry, std::move(own), state};
}

void Camera::assume_eeprom(uint32_t size_bytes)
{
    constexpr uint32_t kTypeUnit = 128;
    constexpr uint32_t kLargestType = 0x80;
    device_->xSpiMode = 0;
    device_->dwExtRomSize = size_bytes;
    device_->bExtRomType = static_cast<uint8_t>(std::min(size_bytes / kTypeUnit, kLargestType));
    const int32_t status = XuSetExtRomType(device_.get(), device_->bExtRomType);
    if (status < 0)
        throw library_failure("cannot set the type of the ROM", status);
}

std::string Camera::chip() const
{
    return printable_field(device_->oBackend.name, sizeof device_->oBackend.name);
}

std::string Camera::family() const
{
    const uint32_t index = device_->oBackend.family;
    return index < std::size(IC_FAMILY_STR) ? IC_FAMILY_STR[index] : IC_FAMILY_STR[0];
}

std::string Camera::name() const
{
    return "camera " + entry_.bus_address() + " (" + chip() +
           (entry_.serial.empty() ? "" : ", serial " + entry_.serial) + ")";
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
