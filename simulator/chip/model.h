// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace sim {

enum class RomKind { kSpiFlash, kEeprom };

/// How an SPI flash answers and how long it takes. Byte commands as on the part's data sheet.
struct FlashPart {
    std::string_view name;
    uint8_t read_id_command; ///< 0x9F, 0x15, 0x90 or 0xAB
    std::array<uint8_t, 3> id;
    uint8_t id_length;          ///< 2 or 3
    uint8_t info_param;         ///< first byte of the controller's flash info
    uint8_t chip_erase_command; ///< 0xFF: the part has none that works
    uint8_t block_erase_command;
    uint32_t block_erase_bytes;   ///< 32 KiB for 0x52, 64 KiB for 0xD8
    uint8_t sector_erase_command; ///< one 4 KiB sector
    uint32_t size_bytes;
    uint32_t program_us; ///< one page program
    uint32_t sector_erase_us;
    uint32_t block_erase_us;
    uint32_t chip_erase_us;
    uint32_t status_write_us;
};

struct EepromPart {
    std::string_view name;
    uint32_t size_bytes;
    uint32_t page_bytes;
    uint32_t write_cycle_us;
};

/// One camera, as data. Texts are ASCII; versions are what the firmware reports.
struct CameraModel {
    std::string_view name; ///< for the command line, e.g. "rowan-spi"
    std::string_view description;
    std::string_view
        internal_version; ///< szIntFwVer, at most 11 characters; starts with the signature
    uint16_t usb_product_id;
    bool has_xu_version;           ///< answers control 0x16
    uint16_t xu_version;           ///< 0x0002, 0x0003, 0x0100, 0x0101
    bool has_memory_extension;     ///< "EM" in the version record
    uint8_t bond;                  ///< byte 7 of the device status (XU 0x0003)
    bool size_at_alternative_byte; ///< ROM header keeps its size at byte 22 instead of 6
    RomKind rom_kind;
    FlashPart flash;                ///< RomKind::kSpiFlash
    EepromPart eeprom;              ///< RomKind::kEeprom
    bool gpio0_is_wp;               ///< WP pin hangs on GPIO 0; else on the write-protect control
    uint32_t factory_firmware_seed; ///< contents of the ROM on the first power-up
    uint16_t factory_firmware_version;
    uint32_t factory_firmware_bytes;     ///< real size of that image
    uint32_t usb_latency_us;             ///< simulated time per control transfer
    bool gpio0_protects_eeprom = false;  ///< EEPROM is writable only while GPIO 0 is driven low
    bool tolerates_swapped_h264 = false; ///< the H.264 unit answers length and request swapped
    bool streams_isochronously = false;  ///< video over isochronous transfers instead of bulk
};

std::span<const CameraModel> models();
/// nullptr when there is none of that name.
const CameraModel* find_model(std::string_view name);

} // namespace sim
