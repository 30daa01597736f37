// SPDX-License-Identifier: Apache-2.0
#include "watch/unit_words.h"

#include "chip/control_table.h"
#include "chip/h264_unit.h"
#include "chip/memory_frame.h"
#include "text/format.h"
#include "text/printable.h"
#include "usb/descriptors.h"
#include "usb/video_controls.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

namespace sim {

namespace {

using namespace memory_frame;

const char* verb(uint8_t request)
{
    switch (request) {
        case kSetCur:
            return "SET_CUR";
        case kGetCur:
            return "GET_CUR";
        case kGetMin:
            return "GET_MIN";
        case kGetMax:
            return "GET_MAX";
        case kGetRes:
            return "GET_RES";
        case kGetLen:
            return "GET_LEN";
        case kGetInfo:
            return "GET_INFO";
        case kGetDef:
            return "GET_DEF";
        default:
            return nullptr;
    }
}

std::string named(std::string_view name, uint8_t selector)
{
    return name.empty() ? text::format("control 0x%02X", selector) : std::string(name);
}

std::string subject(const Setup& setup)
{
    if (setup.interface() == kVideoInterface) {
        constexpr std::string_view kNames[] = {"", "PROBE", "COMMIT"};
        const uint8_t selector = setup.selector();
        return "video " + named(selector < std::size(kNames) ? kNames[selector] : "", selector);
    }
    std::string_view name;
    std::string picture_control;
    if (setup.unit() == kVendorUnit) {
        name = control_name(setup.selector());
    } else if (setup.unit() == kH264Unit) {
        name = H264Unit::control_name(setup.selector());
    } else if (const auto control = VideoControls::find(setup)) {
        picture_control = kControlPlaces[*control].name;
        std::ranges::transform(picture_control, picture_control.begin(), ::toupper);
        name = picture_control;
    }
    return text::format("unit %u ", setup.unit()) + named(name, setup.selector());
}

std::string info_in_words(std::span<const uint8_t> data)
{
    constexpr const char* kMeanings[] = {"neither read nor set", "read only", "set only",
                                         "read and set"};
    return data.empty() ? hex_bytes(data) : kMeanings[data[0] & 3];
}

std::string number_in_words(std::span<const uint8_t> data)
{
    uint32_t number = 0;
    for (size_t i = 0; i < std::min<size_t>(data.size(), 4); ++i)
        number |= uint32_t{data[i]} << (8 * i);
    return data.empty() ? hex_bytes(data) : text::format("%u", number);
}

std::string text_in_words(std::span<const uint8_t> data)
{
    const std::string text(data.begin(), std::ranges::find(data, 0));
    return text::is_plain(text) && !text.empty() ? "\"" + text + "\"" : hex_bytes(data);
}

std::string video_in_words(const CameraModel& model, std::span<const uint8_t> record)
{
    const auto format = VideoControls::format_in(model, record);
    if (!format)
        return hex_bytes(record);
    constexpr double kUnitsPerSecond = 1e7;
    const double rate = format->interval_100ns == 0 ? 0 : kUnitsPerSecond / format->interval_100ns;
    const std::string pixels(format->pixels == PixelFormat::kYuyv ? "" : name_of(format->pixels));
    return pixels + text::format("%s%ux%u, %.4g frames per second, payloads of %u bytes",
                                 pixels.empty() ? "" : " ", format->size.width, format->size.height,
                                 rate, format->payload_bytes);
}

/// Which bytes of a memory a record is about.
struct Piece {
    uint8_t selector;
    RomStep::Kind kind;
    uint16_t address;
    size_t count;
    std::span<const uint8_t> data; ///< that the record has room for

    bool is_rom() const
    {
        return selector == kExtRom || selector == kExtRom512 || selector == kIntRom;
    }
};

std::string piece_in_words(const Piece& piece)
{
    const std::string place =
        text::format("%s0x%04X", piece.is_rom() ? "" : "register ", piece.address);
    const std::string count = piece.count == 1 ? "1 byte" : text::format("%zu bytes", piece.count);
    const auto data = piece.data.first(std::min(piece.count, piece.data.size()));
    if (piece.kind == RomStep::Kind::kAsk)
        return "asks for " + count + " at " + place;
    const std::string what = piece.kind == RomStep::Kind::kWrite ? "write " : "read ";
    if (!piece.is_rom() && data.size() == 1)
        return what + place + text::format(" = 0x%02X", data[0]);
    return what + count + " at " + place + ": " + hex_bytes(data);
}

Words piece_with_step(const Piece& piece)
{
    Words words{piece_in_words(piece)};
    if (piece.is_rom() && piece.count > 0) {
        words.step = {piece.selector, piece.kind, piece.address,
                      static_cast<uint32_t>(piece.address + piece.count)};
    }
    return words;
}

// The record names no direction: while the ROM is locked, what looks like a write only asks.
Words long_rom_in_words(uint8_t request, std::span<const uint8_t> record)
{
    if (record.size() < kHeaderBytes512)
        return {hex_bytes(record)};
    const auto kind = request == kSetCur ? RomStep::Kind::kWrite : RomStep::Kind::kRead;
    Words words = piece_with_step({kExtRom512, kind, be16(record.subspan(2)), length_512(record),
                                   record.subspan(kHeaderBytes512)});
    if (request == kSetCur)
        words.text = "ask for, or " + words.text;
    return words;
}

std::string flash_status_in_words(std::span<const uint8_t> record, bool is_set)
{
    const uint8_t status = record[kHeaderBytes];
    if (is_set) {
        return (record[0] & kWrite) != 0 ? text::format("write flash status 0x%02X", status)
                                         : "asks for the flash status";
    }
    return text::format("flash status 0x%02X%s%s", status, (status & 1) != 0 ? ", busy" : "",
                        (status & 2) != 0 ? ", writing enabled" : "");
}

// What a memory control does beside moving bytes; empty when it does that.
std::string special_in_words(uint8_t selector, std::span<const uint8_t> record, bool is_set)
{
    const auto data = record.subspan(kHeaderBytes);
    if (selector == kSpiStatus)
        return flash_status_in_words(record, is_set);
    if (selector == kExtRomChecksum) {
        return is_set ? "asks for the checksum"
                      : "checksum " + hex_bytes(data.first(std::min<size_t>(2, data.size())));
    }
    if (selector == kSensor && is_version_request(record)) {
        return is_set
                   ? "asks for the firmware version"
                   : "firmware version " + hex_bytes(data.first(std::min<size_t>(4, data.size())));
    }
    return "";
}

Words memory_in_words(const CameraModel& model, uint8_t selector, std::span<const uint8_t> record,
                      bool is_set)
{
    if (record.size() <= kHeaderBytes)
        return {hex_bytes(record)};
    if (std::string special = special_in_words(selector, record, is_set); !special.empty())
        return {std::move(special)};
    const bool is_older_rom = selector == kExtRom && !is_newer_firmware(model);
    const uint8_t length_bits = is_older_rom ? kOlderLengthBits : kLengthBits;
    const uint8_t flags = record[0] & static_cast<uint8_t>(~length_bits);
    const bool is_write = is_older_rom ? flags == kOlderRomWrite : (flags & kWrite) != 0;
    if (selector == kExtRom && flags == kErase)
        return {is_set ? "erase the whole ROM" : "erasing was asked for"};
    if (!is_set && is_write)
        return {"the last write, unchanged"};
    const auto kind = !is_set    ? RomStep::Kind::kRead
                      : is_write ? RomStep::Kind::kWrite
                                 : RomStep::Kind::kAsk;
    return piece_with_step({selector, kind, be16(record.subspan(1)),
                            static_cast<size_t>(record[0] & length_bits),
                            record.subspan(kHeaderBytes)});
}

Words value_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data)
{
    const bool is_current = setup.request == kSetCur || setup.request == kGetCur;
    if (setup.request == kGetInfo)
        return {info_in_words(data)};
    if (setup.request == kGetLen)
        return {"length " + number_in_words(data)};
    if (setup.interface() == kVideoInterface)
        return {video_in_words(model, data)};
    if (setup.unit() == kProcessingUnit || VideoControls::find(setup))
        return {number_in_words(data)};
    if (setup.unit() == kVendorUnit && is_current && setup.selector() == kExtRom512)
        return long_rom_in_words(setup.request, data);
    if (setup.unit() == kVendorUnit && is_current && is_memory(setup.selector()))
        return memory_in_words(model, setup.selector(), data, setup.request == kSetCur);
    if (setup.unit() == kVendorUnit &&
        (setup.selector() == kIntFwVersion || setup.selector() == kSetfileVersion))
        return {text_in_words(data)};
    return {hex_bytes(data)};
}

} // namespace

Words control_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data)
{
    const char* const known = verb(setup.request);
    const std::string request =
        known != nullptr ? known : text::format("request 0x%02X", setup.request);
    Words words = value_in_words(model, setup, data);
    words.text = request + " " + subject(setup) + ": " + words.text;
    return words;
}

} // namespace sim
