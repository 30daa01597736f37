// SPDX-License-Identifier: Apache-2.0
#include "control_table.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace sim {
namespace {

/// Generations of the firmware, by the version of the extension unit: which controls it has, and
/// how long they are.
enum Generation : size_t { kOlder, k0002, k0003, k0100, k0101, kGenerations };

enum Use : uint8_t { kValue, kReadOnly, kMemory };

struct Row {
    uint8_t selector;
    std::string_view name;
    Use use;
    std::array<uint16_t, kGenerations> lengths; ///< 0: it does not know the control
};

// clang-format off
constexpr Row kVendorControls[] = {
//   selector         name               use        older 0002 0003 0100 0101
    {kFlashBlock,     "FLASH_BLOCK",     kValue,    {  2,   2,   2,   0,   0}},
    {kExtRom,         "EXT_ROM",         kMemory,   { 11,  35,  35,  35,  35}},
    {kFlip,           "FLIP",            kValue,    {  1,   1,   1,   1,   1}},
    {kMirror,         "MIRROR",          kValue,    {  1,   1,   1,   1,   1}},
    {kReg,            "REG",             kMemory,   { 11,  11,  11,  11,  11}},
    {kSensor,         "SENSOR",          kMemory,   { 11,  35,  35,  35,  11}},
    {kMcu,            "MCU",             kMemory,   { 11,  11,  11,  11,  11}},
    {kIntRom,         "INT_ROM",         kMemory,   { 11,  11,  11,  11,  11}},
    {kHwVersion,      "HW_VERSION",      kReadOnly, {  1,   1,   1,   1,   1}},
    {kExtRomType,     "EXT_ROM_TYPE",    kValue,    {  1,   1,   1,   1,   1}},
    {kSetfileVersion, "SETFILE_VERSION", kReadOnly, { 11,  11,  11,  11,  11}},
    {kIntFwVersion,   "INT_FW_VERSION",  kReadOnly, { 11,  11,  11,  11,  11}},
    {kWriteProtect,   "WRITE_PROTECT",   kValue,    {  1,   1,   1,   1,   1}},
    {kOneWire,        "ONE_WIRE",        kValue,    {  0,  64,   0,  64,   0}},
    {kExtRomChecksum, "EXT_ROM_CHECKSUM", kMemory,  { 11,  11,   0,  11,  11}},
    {kSpiStatus,      "SPI_STATUS",      kMemory,   { 11,  11,  11,  11,  11}},
    {kOsd,            "OSD",             kValue,    {  0,  18,   0,  18,   0}},
    {kJpgGain,        "JPG_GAIN",        kValue,    {  0,  11,   0,   0,   0}},
    {kXuVersion,      "XU_VERSION",      kReadOnly, { 11,  11,  11,  11,  11}}, // where there is a version
    {kExtRom512,      "EXT_ROM_512",     kValue,    {516,   0,   0,   0, 516}},
    {kDevStatus,      "DEV_STATUS",      kReadOnly, {  0,   0,  11,   0,   0}},
    {kFlashInfo,      "FLASH_INFO",      kReadOnly, {  0,   0,  11,   0,   0}},
    {kFlashReadId,    "FLASH_READ_ID",   kValue,    {  0,   0,  11,   0,   0}},
};
// clang-format on

Generation generation(const CameraModel& model)
{
    if (!is_newer_firmware(model))
        return kOlder;
    switch (model.xu_version) {
        case 0x0002:
            return k0002;
        case 0x0003:
            return k0003;
        case 0x0100:
            return k0100;
        case 0x0101:
            return k0101;
        default:
            return kOlder;
    }
}

} // namespace

std::optional<Control> find_control(const CameraModel& model, uint8_t selector)
{
    const auto* const row = std::ranges::find(kVendorControls, selector, &Row::selector);
    if (row == std::end(kVendorControls) || (selector == kXuVersion && !model.has_xu_version))
        return std::nullopt;
    const uint16_t length = row->lengths[generation(model)];
    if (length == 0)
        return std::nullopt;
    return Control{selector, length, row->use == kReadOnly, row->use == kMemory};
}

std::string_view control_name(uint8_t selector)
{
    const auto* const row = std::ranges::find(kVendorControls, selector, &Row::selector);
    return row == std::end(kVendorControls) ? std::string_view() : row->name;
}

} // namespace sim
