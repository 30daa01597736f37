// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "film.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class RomKind { kSpiFlash, kEeprom };

/// How an SPI flash answers and how long it takes. Byte commands as on the part's data sheet.
struct FlashPart {
    std::string name;
    uint8_t read_id_command = 0; ///< 0x9F, 0x15, 0x90 or 0xAB
    std::array<uint8_t, 3> id{};
    uint8_t id_length = 0;                      ///< 2 or 3
    uint8_t info_param = 0;                     ///< first byte of the controller's flash info
    std::array<uint8_t, 3> controller_params{}; ///< and its last three
    uint8_t chip_erase_command = 0;             ///< 0xFF: the part has none that works
    uint8_t block_erase_command = 0;
    uint32_t block_erase_bytes = 0;
    uint8_t sector_erase_command = 0; ///< one 4 KiB sector
    uint32_t size_bytes = 0;
    uint32_t program_us = 0; ///< one page program
    uint32_t sector_erase_us = 0;
    uint32_t block_erase_us = 0;
    uint32_t chip_erase_us = 0;
    uint32_t status_write_us = 0;
};

struct EepromPart {
    std::string name;
    uint32_t size_bytes = 0;
    uint32_t page_bytes = 0;
    uint32_t write_cycle_us = 0;
};

enum class PixelFormat : uint8_t { kYuyv, kMjpeg, kH264 };
/// In the order of PixelFormat.
inline constexpr std::string_view kPixelFormatNames[] = {"YUYV", "MJPEG", "H264"};

constexpr std::string_view name_of(PixelFormat format)
{
    return kPixelFormatNames[static_cast<size_t>(format)];
}

struct FrameSize {
    uint16_t width = 0;
    uint16_t height = 0;
    std::vector<uint32_t> intervals_100ns; ///< between frames, shortest first

    /// As YUYV; what a compressed frame has room in.
    uint32_t bytes() const { return uint32_t{width} * height * 2; }
};

/// What a frame takes on the bus, where compression makes an eighth of it at least.
inline uint32_t bytes_on_the_bus(PixelFormat pixels, const FrameSize& size)
{
    constexpr uint32_t kLeastCompression = 8;
    return pixels == PixelFormat::kYuyv ? size.bytes() : size.bytes() / kLeastCompression;
}

/// What the camera can stream; hosts name a size by its place, counted from 1.
struct FrameFormat {
    PixelFormat pixels = PixelFormat::kYuyv;
    std::vector<FrameSize> sizes;
    std::shared_ptr<const Film> film = nullptr; ///< what an H.264 camera sends
};

/// The standard controls of a camera.
enum PictureControl : uint8_t {
    kBrightness,
    kContrast,
    kSaturation,
    kHue,
    kGain,
    kWhiteBalance,
    kWhiteBalanceAuto, ///< holds kWhiteBalance back
    kZoom,
    kHueAuto, ///< holds kHue back
    kSharpness,
    kGamma,
    kBacklightCompensation,
    kPowerLineFrequency,
    kExposureMode, ///< one of ExposureMode; its step holds those that the camera has
    kExposurePriority,
    kExposureTime,
    kFocus,
    kFocusAuto, ///< holds kFocus back
    kIris,
    kPan,
    kTilt,
    kRoll,
    kPrivacy,
    kPictureControls
};

enum ExposureMode : uint8_t {
    kManual = 1,
    kAutomatic = 2,        ///< chooses time and iris
    kShutterPriority = 4,  ///< chooses the iris
    kAperturePriority = 8, ///< chooses the time
};

struct ControlRange {
    int32_t least = 0;
    int32_t most = 0;
    int32_t step = 1;
    int32_t standard = 0; ///< until the host sets another value
};

inline constexpr uint16_t kVendorId = 0x1162; ///< unless a description says otherwise
inline constexpr char kManufacturer[] = "NYXUS Simulator";

/// One camera, as data. Texts are ASCII; versions are what the firmware reports.
struct CameraModel {
    std::string name; ///< for the command line, e.g. "rowan-spi"
    std::string description;
    std::string internal_version; ///< szIntFwVer, 2 to 11 characters; starts with the signature
    uint16_t usb_vendor_id = kVendorId;
    uint16_t usb_product_id = 0;
    std::string usb_manufacturer = kManufacturer;
    std::string usb_product;
    bool has_xu_version = false;           ///< answers control 0x16
    uint16_t xu_version = 0;               ///< 0x0002, 0x0003, 0x0100, 0x0101
    bool has_memory_extension = false;     ///< "EM" in the version record
    bool selects_every_block = false;      ///< the version record begins with "FF", not with "XU"
    uint8_t bond = 0;                      ///< byte 7 of the device status (XU 0x0003)
    bool size_at_alternative_byte = false; ///< ROM header keeps its size at byte 22 instead of 6
    RomKind rom_kind = RomKind::kSpiFlash;
    FlashPart flash;                    ///< RomKind::kSpiFlash
    EepromPart eeprom;                  ///< RomKind::kEeprom
    bool gpio0_is_wp = false;           ///< WP pin hangs on GPIO 0; else on the control
    uint32_t factory_firmware_seed = 0; ///< contents of the ROM on the first power-up
    uint16_t factory_firmware_version = 0;
    uint32_t factory_firmware_bytes = 0;    ///< real size of that image
    uint32_t usb_latency_us = 0;            ///< time that a control transfer takes by itself
    uint32_t usb_wire_us = 0;               ///< what of it passes on the wire
    bool gpio0_protects_eeprom = false;     ///< EEPROM is writable only while GPIO 0 is driven low
    bool tolerates_swapped_h264 = false;    ///< the H.264 unit answers length and request swapped
    bool streams_isochronously = false;     ///< video over isochronous transfers instead of bulk
    std::vector<uint32_t> iso_packet_bytes; ///< per microframe, in its alternate settings from 1
    uint32_t bulk_payload_bytes = 0;        ///< the largest, with its header; 0: a whole frame
    std::optional<uint32_t> first_frame_ms; ///< after the commit, for the sensor to settle
    std::vector<FrameFormat> formats = {
        {PixelFormat::kYuyv,
         {{320, 240, {333333, 666666, 1000000}},
          {640, 480, {333333, 666666, 1000000}},
          {1280, 720, {1000000, 2000000, 5000000}}}}, // more would not fit through the bus
    };
    std::shared_ptr<const Film> scene =
        nullptr;                ///< what the sensor sees; without: the test pattern
    bool numbers_frames = true; ///< in the picture
    std::array<std::optional<ControlRange>, kPictureControls> controls = {
        ControlRange{.least = 0, .most = 255, .step = 1, .standard = 128}}; ///< brightness
};

inline uint32_t rom_bytes(const CameraModel& model)
{
    return model.rom_kind == RomKind::kSpiFlash ? model.flash.size_bytes : model.eeprom.size_bytes;
}

} // namespace sim
