// SPDX-License-Identifier: Apache-2.0
#include "watch/plain_words.h"

#include "chip/control_table.h"
#include "chip/h264_unit.h"
#include "chip/memory_frame.h"
#include "text/format.h"
#include "text/hex.h"
#include "text/printable.h"
#include "usb/descriptors.h"
#include "usb/standard_request.h"
#include "usb/video_controls.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace sim {

namespace {

using namespace memory_frame;

struct Name {
    int code;
    std::string_view text;
};

constexpr Name kStandardRequests[] = {
    {kGetStatus, "GET_STATUS"},
    {kClearFeature, "CLEAR_FEATURE"},
    {kSetFeature, "SET_FEATURE"},
    {kSetAddress, "SET_ADDRESS"},
    {kGetDescriptor, "GET_DESCRIPTOR"},
    {kGetConfiguration, "GET_CONFIGURATION"},
    {kSetConfiguration, "SET_CONFIGURATION"},
    {kGetInterface, "GET_INTERFACE"},
    {kSetInterface, "SET_INTERFACE"},
};
constexpr Name kClassRequests[] = {
    {kSetCur, "SET_CUR"}, {kGetCur, "GET_CUR"}, {kGetMin, "GET_MIN"},   {kGetMax, "GET_MAX"},
    {kGetRes, "GET_RES"}, {kGetLen, "GET_LEN"}, {kGetInfo, "GET_INFO"}, {kGetDef, "GET_DEF"},
};
constexpr Name kVideoSelectors[] = {{1, "PROBE"}, {2, "COMMIT"}};
constexpr Name kResults[] = {
    {-EPIPE, "stalled"},
    {-EPROTO, "broken on the wire"},
    {-ETIME, "no answer on the wire"},
    {-ENOENT, "cancelled by the host"},
    {-ESHUTDOWN, "the camera is gone"},
    {-EOVERFLOW, "more data than room"},
};

std::string named(std::span<const Name> names, int code, const char* other)
{
    const auto found = std::ranges::find(names, code, &Name::code);
    return found == names.end() ? text::format("%s 0x%02X", other, code) : std::string(found->text);
}

std::string subject(const Setup& setup)
{
    const uint8_t selector = setup.selector();
    if (setup.interface() == kVideoInterface)
        return "video " + named(kVideoSelectors, selector, "control");
    std::string name;
    if (setup.unit() == kVendorUnit) {
        name = control_name(selector);
    } else if (setup.unit() == kH264Unit) {
        name = H264Unit::control_name(selector);
    } else if (const auto control = VideoControls::find(setup)) {
        name = kControlPlaces[*control].name;
        std::ranges::transform(name, name.begin(), ::toupper);
    }
    return text::format("unit %u ", setup.unit()) +
           (name.empty() ? named({}, selector, "control") : name);
}

/// Which bytes of a memory a record is about.
struct Piece {
    RomStep step;
    std::span<const uint8_t> data; ///< that the record has room for
};

Words piece_in_words(const Piece& piece)
{
    constexpr const char* kWhat[] = {"ask for", "read", "write"};
    const RomStep& step = piece.step;
    const size_t count = step.end - step.begin;
    Words words{text::format("%s %zu byte%s at 0x%04X", kWhat[static_cast<size_t>(step.kind)],
                             count, count == 1 ? "" : "s", step.begin)};
    if (step.kind != RomStep::Kind::kAsk)
        words.text += ": " + hex_bytes(piece.data.first(std::min(count, piece.data.size())));
    const bool is_rom =
        step.selector == kExtRom || step.selector == kExtRom512 || step.selector == kIntRom;
    if (is_rom && count > 0)
        words.step = step;
    return words;
}

// The record names no direction: while the ROM is locked, what looks like a write only asks.
Words long_rom_in_words(bool is_set, std::span<const uint8_t> record)
{
    if (record.size() < kHeaderBytes512)
        return {hex_bytes(record)};
    const uint32_t begin = be16(record.subspan(2));
    const auto kind = is_set ? RomStep::Kind::kWrite : RomStep::Kind::kRead;
    Words words = piece_in_words(
        {{kExtRom512, kind, begin, begin + static_cast<uint32_t>(length_512(record))},
         record.subspan(kHeaderBytes512)});
    if (is_set)
        words.text = "ask for, or " + words.text;
    return words;
}

Words memory_in_words(const CameraModel& model, uint8_t selector, bool is_set,
                      std::span<const uint8_t> record)
{
    if (record.size() <= kHeaderBytes)
        return {hex_bytes(record)};
    const bool is_older_rom = selector == kExtRom && !is_newer_firmware(model);
    const uint8_t length_bits = is_older_rom ? kOlderLengthBits : kLengthBits;
    const uint8_t flags = record[0] & static_cast<uint8_t>(~length_bits);
    const bool is_write = is_older_rom ? flags == kOlderRomWrite : (flags & kWrite) != 0;
    if (selector == kExtRom && flags == kErase)
        return {"erase the whole ROM"};
    if (selector == kSpiStatus) { // one byte, whatever length it names
        const bool is_busy = !is_set && (record[kHeaderBytes] & 1) != 0;
        return {is_set && !is_write
                    ? "ask for the status"
                    : text::format("status %02X%s", record[kHeaderBytes], is_busy ? ", busy" : "")};
    }
    const auto kind = is_write ? RomStep::Kind::kWrite
                      : is_set ? RomStep::Kind::kAsk
                               : RomStep::Kind::kRead;
    const uint32_t begin = be16(record.subspan(1));
    return piece_in_words(
        {{selector, kind, begin, begin + (record[0] & length_bits)}, record.subspan(kHeaderBytes)});
}

Words value_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data)
{
    const std::string text(data.begin(), std::ranges::find(data, 0));
    const bool is_set = setup.request == kSetCur;
    const auto control = find_control(model, setup.selector());
    if (setup.unit() != kVendorUnit || setup.interface() == kVideoInterface || !control ||
        (!is_set && setup.request != kGetCur))
        return {hex_bytes(data)};
    if (control->selector == kExtRom512)
        return long_rom_in_words(is_set, data);
    if (control->is_memory)
        return memory_in_words(model, control->selector, is_set, data);
    const bool is_version =
        control->selector == kIntFwVersion || control->selector == kSetfileVersion;
    return {is_version && text::is_plain(text) && !text.empty() ? '"' + text + '"'
                                                                : hex_bytes(data)};
}

} // namespace

std::string hex_bytes(std::span<const uint8_t> bytes)
{
    constexpr size_t kMost = 16;
    if (bytes.empty())
        return "nothing";
    const std::string first = text::hex(bytes.first(std::min(bytes.size(), kMost)), " ");
    return bytes.size() <= kMost ? first : first + text::format(" ... (%zu bytes)", bytes.size());
}

Words request_in_words(const CameraModel& model, const Setup& setup, std::span<const uint8_t> data)
{
    if (setup.type() == kClassType && setup.recipient() == kInterfaceRecipient) {
        Words words = value_in_words(model, setup, data);
        words.text = named(kClassRequests, setup.request, "request") + " " + subject(setup) + ": " +
                     words.text;
        return words;
    }
    const std::string name =
        setup.type() == kStandardType
            ? named(kStandardRequests, setup.request, "standard request")
            : text::format("request 0x%02X of type 0x%02X", setup.request, setup.request_type);
    return {name + text::format(", value 0x%04X, index 0x%04X", setup.value, setup.index) +
            (setup.length > 0 ? ": " + hex_bytes(data) : "")};
}

std::string result_in_words(const BusTransfer& transfer)
{
    const auto failed = std::ranges::count_if(
        transfer.packets, [](int status) { return status != 0; }, &IsoPacket::status);
    if (transfer.status == 0)
        return failed == 0 ? "" : text::format(" -> %td packets lost", failed);
    const auto* const result = std::ranges::find(kResults, transfer.status, &Name::code);
    return " -> " + (result == std::end(kResults) ? std::string(std::strerror(-transfer.status))
                                                  : std::string(result->text));
}

} // namespace sim
