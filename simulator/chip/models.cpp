// SPDX-License-Identifier: Apache-2.0
#include "model.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint32_t kKiB = 1024;
constexpr uint32_t kMs = 1000;

// clang-format off
constexpr FlashPart kMx25l1006e = {
    .name = "MXIC MX25L1006E",
    .read_id_command = 0x9F,      .id = {0xC2, 0x20, 0x11},        .id_length = 3,
    .info_param = 0x31,           .chip_erase_command = 0xC7,
    .block_erase_command = 0xD8,  .block_erase_bytes = 64 * kKiB,  .sector_erase_command = 0x20,
    .size_bytes = 128 * kKiB,     .program_us = 110,               .sector_erase_us = 60 * kMs,
    .block_erase_us = 400 * kMs,  .chip_erase_us = 750 * kMs,      .status_write_us = 5 * kMs,
};

constexpr FlashPart kMk25q40b = {
    .name = "GigaDev MK25Q40B",
    .read_id_command = 0x9F,      .id = {0xC8, 0x40, 0x13},        .id_length = 3,
    .info_param = 0x31,           .chip_erase_command = 0xFF,
    .block_erase_command = 0xD8,  .block_erase_bytes = 64 * kKiB,  .sector_erase_command = 0x20,
    .size_bytes = 512 * kKiB,     .program_us = 110,               .sector_erase_us = 50 * kMs,
    .block_erase_us = 400 * kMs,  .chip_erase_us = 1000 * kMs,     .status_write_us = 5 * kMs,
};

constexpr FlashPart kW25x05cl = {
    .name = "WINBOND W25X05CL",
    .read_id_command = 0x9F,      .id = {0xEF, 0x30, 0x10},        .id_length = 3,
    .info_param = 0x31,           .chip_erase_command = 0xC7,
    .block_erase_command = 0x52,  .block_erase_bytes = 32 * kKiB,  .sector_erase_command = 0x20,
    .size_bytes = 64 * kKiB,      .program_us = 110,               .sector_erase_us = 45 * kMs,
    .block_erase_us = 240 * kMs,  .chip_erase_us = 500 * kMs,      .status_write_us = 5 * kMs,
};

constexpr FlashPart kSst25wf512 = {
    .name = "SST SST25WF512",
    .read_id_command = 0x90,      .id = {0xBF, 0x25, 0x01},        .id_length = 3,
    .info_param = 0x31,           .chip_erase_command = 0xC7,
    .block_erase_command = 0x52,  .block_erase_bytes = 32 * kKiB,  .sector_erase_command = 0x20,
    .size_bytes = 64 * kKiB,      .program_us = 110,               .sector_erase_us = 60 * kMs,
    .block_erase_us = 250 * kMs,  .chip_erase_us = 500 * kMs,      .status_write_us = 5 * kMs,
};

constexpr EepromPart kEeprom256k = {
    .name = "24C256", .size_bytes = 32 * kKiB, .page_bytes = 32, .write_cycle_us = 5 * kMs,
};

constexpr CameraModel kRowanSpi = {
    .name = "rowan-spi",
    .description = "ROWAN camera, extension unit 0002, 128 KiB SPI flash",
    .internal_version = "RO2-1.0.12",      .usb_product_id = 0x0601,
    .has_xu_version = true,                .xu_version = 0x0002,
    .has_memory_extension = true,          .bond = 0,
    .size_at_alternative_byte = false,     .rom_kind = RomKind::kSpiFlash,
    .flash = kMx25l1006e,                  .eeprom = {},
    .gpio0_is_wp = false,                  .factory_firmware_seed = 0x0601,
    .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x5A3C,
    .usb_latency_us = 125,
};

constexpr CameraModel kCedarSpi = {
    .name = "cedar-spi",
    .description = "CEDAR camera (bond 2), extension unit 0003, 512 KiB SPI flash",
    .internal_version = "CB-2.3.1",        .usb_product_id = 0x0602,
    .has_xu_version = true,                .xu_version = 0x0003,
    .has_memory_extension = true,          .bond = 2,
    .size_at_alternative_byte = false,     .rom_kind = RomKind::kSpiFlash,
    .flash = kMk25q40b,                    .eeprom = {},
    .gpio0_is_wp = false,                  .factory_firmware_seed = 0x0602,
    .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x5D11,
    .usb_latency_us = 125,
};

constexpr CameraModel kLarchSpi = {
    .name = "larch-spi",
    .description = "LARCH camera, no version record, 64 KiB SPI flash locked by GPIO 0",
    .internal_version = "LP-0.9.4",        .usb_product_id = 0x0603,
    .has_xu_version = false,               .xu_version = 0,
    .has_memory_extension = false,         .bond = 0,
    .size_at_alternative_byte = true,      .rom_kind = RomKind::kSpiFlash,
    .flash = kW25x05cl,                    .eeprom = {},
    .gpio0_is_wp = true,                   .factory_firmware_seed = 0x0603,
    .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x4F27,
    .usb_latency_us = 125,
};

// What differs from a camera above in one respect.

constexpr CameraModel rowan_iso()
{
    CameraModel model = kRowanSpi;
    model.name = "rowan-iso";
    model.description = "ROWAN camera, extension unit 0002, 128 KiB SPI flash, isochronous video";
    model.usb_product_id = 0x0607;
    model.streams_isochronously = true;
    return model;
}

constexpr CameraModel cedar_swapped()
{
    CameraModel model = kCedarSpi;
    model.name = "cedar-swapped";
    model.description = "CEDAR camera that also answers H.264 queries in swapped order";
    model.usb_product_id = 0x0608;
    model.tolerates_swapped_h264 = true;
    return model;
}

constexpr CameraModel larch_large()
{
    CameraModel model = kLarchSpi;
    model.name = "larch-large";
    model.description = "LARCH camera, no version record, 512 KiB SPI flash locked by GPIO 0";
    model.usb_product_id = 0x0609;
    model.flash = kMk25q40b;
    return model;
}

constexpr CameraModel kModels[] = {
    kRowanSpi,
    kCedarSpi,
    kLarchSpi,
    {
        .name = "hawthorn-eeprom",
        .description = "HAWTHORN camera, no version record, 32 KiB EEPROM",
        .internal_version = "HA-1.2.0",        .usb_product_id = 0x0604,
        .has_xu_version = false,               .xu_version = 0,
        .has_memory_extension = false,         .bond = 0,
        .size_at_alternative_byte = false,     .rom_kind = RomKind::kEeprom,
        .flash = {},                           .eeprom = kEeprom256k,
        .gpio0_is_wp = false,                  .factory_firmware_seed = 0x0604,
        .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x2135,
        .usb_latency_us = 125,
    },
    {
        .name = "willow-eeprom",
        .description = "WILLOW camera, extension unit 0100, 32 KiB EEPROM",
        .internal_version = "WI-3.1.7",        .usb_product_id = 0x0605,
        .has_xu_version = true,                .xu_version = 0x0100,
        .has_memory_extension = true,          .bond = 0,
        .size_at_alternative_byte = false,     .rom_kind = RomKind::kEeprom,
        .flash = {},                           .eeprom = kEeprom256k,
        .gpio0_is_wp = false,                  .factory_firmware_seed = 0x0605,
        .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x22E9,
        .usb_latency_us = 125,
    },
    {
        .name = "fi2-spi",
        .description = "FI2 camera, extension unit 0101, 64 KiB SPI flash identified by 0x90",
        .internal_version = "F2-1.4.2",        .usb_product_id = 0x0606,
        .has_xu_version = true,                .xu_version = 0x0101,
        .has_memory_extension = true,          .bond = 0,
        .size_at_alternative_byte = false,     .rom_kind = RomKind::kSpiFlash,
        .flash = kSst25wf512,                  .eeprom = {},
        .gpio0_is_wp = false,                  .factory_firmware_seed = 0x0606,
        .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x5402,
        .usb_latency_us = 125,
    },
    rowan_iso(),
    cedar_swapped(),
    larch_large(),
    {
        .name = "fi2-board",
        .description = "FI2 fingerprint board, extension unit 0101, 32 KiB EEPROM, GPIO 0 locks it",
        .internal_version = "F2-2.0.1",        .usb_product_id = 0x060A,
        .has_xu_version = true,                .xu_version = 0x0101,
        .has_memory_extension = true,          .bond = 0,
        .size_at_alternative_byte = false,     .rom_kind = RomKind::kEeprom,
        .flash = {},                           .eeprom = kEeprom256k,
        .gpio0_is_wp = false,                  .factory_firmware_seed = 0x060A,
        .factory_firmware_version = 0x0100,    .factory_firmware_bytes = 0x2071,
        .usb_latency_us = 125,                 .gpio0_protects_eeprom = true,
    },
};
// clang-format on

} // namespace

std::span<const CameraModel> models()
{
    return kModels;
}

const CameraModel* find_model(std::string_view name)
{
    const auto found = std::ranges::find(kModels, name, &CameraModel::name);
    return found == std::end(kModels) ? nullptr : &*found;
}

} // namespace sim
