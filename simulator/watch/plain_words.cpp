// SPDX-License-Identifier: Apache-2.0
#include "watch/plain_words.h"

#include "text/format.h"
#include "text/hex.h"
#include "usb/descriptors.h"
#include "usb/standard_request.h"
#include "usb/video_controls.h"
#include "watch/unit_words.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace sim {

namespace {

std::string descriptor_in_words(const Setup& setup)
{
    const unsigned index = setup.value & 0xFF;
    switch (setup.value >> 8) {
        case kDevice:
            return "device";
        case kConfiguration:
            return text::format("configuration %u", index);
        case kString:
            return index == 0 ? "languages" : text::format("string %u", index);
        default:
            return text::format("type 0x%02X, index %u", setup.value >> 8, index);
    }
}

std::string standard_request_in_words(const Setup& setup, std::span<const uint8_t> data)
{
    switch (setup.request) {
        case kGetDescriptor:
            return "GET_DESCRIPTOR " + descriptor_in_words(setup);
        case kSetConfiguration:
            return text::format("SET_CONFIGURATION %u", setup.value);
        case kGetConfiguration:
            return "GET_CONFIGURATION: " + hex_bytes(data);
        case kSetInterface:
            return text::format("SET_INTERFACE %u: setting %u", setup.index, setup.value);
        case kGetInterface:
            return text::format("GET_INTERFACE %u: setting ", setup.index) + hex_bytes(data);
        case kClearFeature:
            if (setup.recipient() == kEndpointRecipient && setup.value == kEndpointHalt)
                return text::format("CLEAR_FEATURE: end the halt of endpoint 0x%02X", setup.index);
            return text::format("CLEAR_FEATURE %u of 0x%04X", setup.value, setup.index);
        case kSetFeature:
            return text::format("SET_FEATURE %u of 0x%04X", setup.value, setup.index);
        case kGetStatus:
            return "GET_STATUS: " + hex_bytes(data);
        case kSetAddress:
            return text::format("SET_ADDRESS %u", setup.value);
        default:
            return text::format("standard request 0x%02X", setup.request);
    }
}

bool is_control_request(const Setup& setup)
{
    return setup.type() == kClassType && setup.recipient() == kInterfaceRecipient;
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
    if (setup.type() == kStandardType)
        return {standard_request_in_words(setup, data)};
    if (is_control_request(setup))
        return control_in_words(model, setup, data);
    return {text::format("request 0x%02X of type 0x%02X, value 0x%04X, index 0x%04X: ",
                         setup.request, setup.request_type, setup.value, setup.index) +
            hex_bytes(data)};
}

std::string result_in_words(const BusTransfer& transfer)
{
    const auto failed = std::ranges::count_if(
        transfer.packets, [](int status) { return status != 0; }, &IsoPacket::status);
    switch (transfer.status) {
        case 0:
            return failed == 0 ? "" : text::format(" -> %td packets lost", failed);
        case -EPIPE:
            return " -> stalled";
        case -EPROTO:
            return " -> broken on the wire";
        case -ETIME:
            return " -> no answer on the wire";
        case -ENOENT:
            return " -> cancelled by the host";
        case -ESHUTDOWN:
            return " -> the camera is gone";
        case -EOVERFLOW:
            return " -> more data than room";
        default:
            return std::string(" -> ") + std::strerror(-transfer.status);
    }
}

} // namespace sim
