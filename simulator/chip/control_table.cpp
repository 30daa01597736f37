// SPDX-License-Identifier: Apache-2.0
#include "control_table.h"

#include <algorithm>
#include <iterator>

namespace sim {
namespace {

// clang-format off
constexpr Control kTableNone[] = {
    {kFlashBlock,       2},
    {kExtRom,          11},
    {kFlip,             1},
    {kMirror,           1},
    {kReg,             11},
    {kSensor,          11},
    {kMcu,             11},
    {kIntRom,          11},
    {kHwVersion,        1},
    {kExtRomType,       1},
    {kSetfileVersion,  11},
    {kWriteProtect,     1},
    {kExtRomChecksum,  11},
    {kSpiStatus,       11},
    {kExtRom512,      516},
};

constexpr Control kTable0002[] = {
    {kFlashBlock,       2},
    {kExtRom,          35},
    {kFlip,             1},
    {kMirror,           1},
    {kReg,             11},
    {kSensor,          35},
    {kMcu,             11},
    {kIntRom,          11},
    {kHwVersion,        1},
    {kExtRomType,       1},
    {kSetfileVersion,  11},
    {kWriteProtect,     1},
    {kOneWire,         64},
    {kExtRomChecksum,  11},
    {kSpiStatus,       11},
    {kOsd,             18},
    {kJpgGain,         11},
};

constexpr Control kTable0003[] = {
    {kFlashBlock,       2},
    {kExtRom,          35},
    {kFlip,             1},
    {kMirror,           1},
    {kReg,             11},
    {kSensor,          35},
    {kMcu,             11},
    {kIntRom,          11},
    {kHwVersion,        1},
    {kExtRomType,       1},
    {kSetfileVersion,  11},
    {kWriteProtect,     1},
    {kSpiStatus,       11},
    {kDevStatus,       11},
    {kFlashInfo,       11},
    {kFlashReadId,     11},
};

constexpr Control kTable0100[] = {
    {kExtRom,          35},
    {kFlip,             1},
    {kMirror,           1},
    {kReg,             11},
    {kSensor,          35},
    {kMcu,             11},
    {kIntRom,          11},
    {kHwVersion,        1},
    {kExtRomType,       1},
    {kSetfileVersion,  11},
    {kWriteProtect,     1},
    {kOneWire,         64},
    {kExtRomChecksum,  11},
    {kSpiStatus,       11},
    {kOsd,             18},
};

constexpr Control kTable0101[] = {
    {kExtRom,          35},
    {kFlip,             1},
    {kMirror,           1},
    {kReg,             11},
    {kSensor,          11},
    {kMcu,             11},
    {kIntRom,          11},
    {kHwVersion,        1},
    {kExtRomType,       1},
    {kSetfileVersion,  11},
    {kWriteProtect,     1},
    {kExtRomChecksum,  11},
    {kSpiStatus,       11},
    {kExtRom512,      516},
};

struct Name {
    uint8_t selector;
    std::string_view text;
};
constexpr Name kNames[] = {
    {kFlashBlock,     "FLASH_BLOCK"},
    {kExtRom,         "EXT_ROM"},
    {kFlip,           "FLIP"},
    {kMirror,         "MIRROR"},
    {kReg,            "REG"},
    {kSensor,         "SENSOR"},
    {kMcu,            "MCU"},
    {kIntRom,         "INT_ROM"},
    {kHwVersion,      "HW_VERSION"},
    {kExtRomType,     "EXT_ROM_TYPE"},
    {kSetfileVersion, "SETFILE_VERSION"},
    {kIntFwVersion,   "INT_FW_VERSION"},
    {kWriteProtect,   "WRITE_PROTECT"},
    {kOneWire,        "ONE_WIRE"},
    {kExtRomChecksum, "EXT_ROM_CHECKSUM"},
    {kSpiStatus,      "SPI_STATUS"},
    {kOsd,            "OSD"},
    {kJpgGain,        "JPG_GAIN"},
    {kXuVersion,      "XU_VERSION"},
    {kExtRom512,      "EXT_ROM_512"},
    {kDevStatus,      "DEV_STATUS"},
    {kFlashInfo,      "FLASH_INFO"},
    {kFlashReadId,    "FLASH_READ_ID"},
};
// clang-format on

constexpr Control kIntFwVersionControl = {kIntFwVersion, 11};
constexpr Control kXuVersionControl = {kXuVersion, 11};

} // namespace

std::span<const Control> control_table(const CameraModel& model)
{
    if (!is_newer_firmware(model))
        return kTableNone;
    switch (model.xu_version) {
        case 0x0002:
            return kTable0002;
        case 0x0003:
            return kTable0003;
        case 0x0100:
            return kTable0100;
        case 0x0101:
            return kTable0101;
        default:
            return kTableNone;
    }
}

const Control* find_control(const CameraModel& model, uint8_t selector)
{
    if (selector == kIntFwVersion)
        return &kIntFwVersionControl;
    if (selector == kXuVersion)
        return model.has_xu_version ? &kXuVersionControl : nullptr;

    const auto table = control_table(model);
    const auto found = std::ranges::find(table, selector, &Control::selector);
    return found == table.end() ? nullptr : &*found;
}

std::string_view control_name(uint8_t selector)
{
    const auto* const found = std::ranges::find(kNames, selector, &Name::selector);
    return found == std::end(kNames) ? std::string_view() : found->text;
}

bool is_read_only(uint8_t selector)
{
    switch (selector) {
        case kHwVersion:
        case kSetfileVersion:
        case kIntFwVersion:
        case kXuVersion:
        case kDevStatus:
        case kFlashInfo:
            return true;
        default:
            return false;
    }
}

bool is_memory(uint8_t selector)
{
    switch (selector) {
        case kExtRom:
        case kReg:
        case kSensor:
        case kMcu:
        case kIntRom:
        case kExtRomChecksum:
        case kSpiStatus:
            return true;
        default:
            return false;
    }
}

} // namespace sim
