// SPDX-License-Identifier: Apache-2.0
#include "usbip/wire.h"

#include "bus/protocol.h"

#include <algorithm>
#include <string_view>

namespace sim::usbip {

namespace {

uint16_t get_u16(std::span<const uint8_t> bytes, size_t at)
{
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

uint32_t get_u32(std::span<const uint8_t> bytes, size_t at)
{
    return uint32_t{get_u16(bytes, at)} << 16 | get_u16(bytes, at + 2);
}

void put_u16(Bytes& out, uint16_t value)
{
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

void put_zeros(Bytes& out, size_t count)
{
    out.insert(out.end(), count, 0);
}

// A text that fills its field is cut, so that a NUL always ends it.
void put_text(Bytes& out, std::string_view text, size_t field_bytes)
{
    text = text.substr(0, field_bytes - 1);
    out.insert(out.end(), text.begin(), text.end());
    put_zeros(out, field_bytes - text.size());
}

} // namespace

void put_u32(Bytes& out, uint32_t value)
{
    put_u16(out, static_cast<uint16_t>(value >> 16));
    put_u16(out, static_cast<uint16_t>(value));
}

Operation parse_operation(std::span<const uint8_t, kOperationBytes> bytes)
{
    return {get_u16(bytes, 0), get_u16(bytes, 2), get_u32(bytes, 4)};
}

std::string parse_bus_id(std::span<const uint8_t, kBusIdBytes> bytes)
{
    return {bytes.begin(), std::ranges::find(bytes, uint8_t{0})};
}

void put_operation(Bytes& out, OperationCode code, OperationStatus status)
{
    put_u16(out, kVersion);
    put_u16(out, code);
    put_u32(out, static_cast<uint32_t>(status));
}

void put_device(Bytes& out, const DeviceRecord& device)
{
    constexpr size_t kVendor = 8;
    constexpr size_t kProduct = 10;
    constexpr size_t kRelease = 12;
    constexpr size_t kClass = 4;
    constexpr size_t kConfigurations = 17;
    put_text(out, device.path, kPathBytes);
    put_text(out, device.bus_id, kBusIdBytes);
    put_u32(out, device.bus);
    put_u32(out, device.address);
    put_u32(out, kHighSpeed);
    const auto& bytes = device.descriptor;
    for (const size_t at : {kVendor, kProduct, kRelease})
        put_u16(out, static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8));
    out.insert(out.end(),
               {bytes[kClass], bytes[kClass + 1], bytes[kClass + 2], device.configuration,
                bytes[kConfigurations], static_cast<uint8_t>(device.interfaces.size())});
}

void put_interfaces(Bytes& out, const DeviceRecord& device)
{
    for (const auto& interface : device.interfaces) {
        out.insert(out.end(), interface.begin(), interface.end());
        out.push_back(0);
    }
}

Command parse_command(std::span<const uint8_t, kCommandBytes> bytes)
{
    Command command;
    command.code = get_u32(bytes, 0);
    command.sequence = get_u32(bytes, 4);
    command.device = get_u32(bytes, 8);
    command.direction = get_u32(bytes, 12);
    command.endpoint = get_u32(bytes, 16);
    if (command.code == kUnlink) {
        command.victim = get_u32(bytes, 20);
        return command;
    }
    command.length = get_u32(bytes, 24);
    command.packets = get_u32(bytes, 32);
    std::ranges::copy(bytes.last<kSetupBytes>(), command.setup.begin());
    return command;
}

IsoPacket parse_iso_packet(std::span<const uint8_t, kIsoPacketRecordBytes> bytes)
{
    return {get_u32(bytes, 0), get_u32(bytes, 4), get_u32(bytes, 8),
            static_cast<int32_t>(get_u32(bytes, 12))};
}

void put_iso_packet(Bytes& out, const IsoPacket& packet)
{
    put_u32(out, packet.offset);
    put_u32(out, packet.length);
    put_u32(out, packet.actual);
    put_u32(out, static_cast<uint32_t>(packet.status));
}

void put_submit_reply(Bytes& out, const SubmitReply& reply)
{
    put_u32(out, kSubmitReply);
    put_u32(out, reply.sequence);
    put_zeros(out, 12); // device, direction and endpoint are the command's
    put_u32(out, static_cast<uint32_t>(reply.status));
    put_u32(out, reply.actual);
    put_u32(out, 0); // start frame
    put_u32(out, reply.packets);
    put_u32(out, reply.errors);
    put_zeros(out, kSetupBytes);
}

void put_unlink_reply(Bytes& out, uint32_t sequence, int32_t status)
{
    put_u32(out, kUnlinkReply);
    put_u32(out, sequence);
    put_zeros(out, 12);
    put_u32(out, static_cast<uint32_t>(status));
    put_zeros(out, 24);
}

} // namespace sim::usbip
