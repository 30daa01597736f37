// SPDX-License-Identifier: Apache-2.0
// The records of the USB/IP protocol as they cross the wire: big-endian, but for the setup packet.
#pragma once

#include "usb/setup.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim::usbip {

using Bytes = std::vector<uint8_t>;

inline constexpr uint16_t kVersion = 0x0111;

// First phase: which devices there are, and the import of one.

enum OperationCode : uint16_t {
    kListRequest = 0x8005,
    kListReply = 0x0005,
    kImportRequest = 0x8003,
    kImportReply = 0x0003,
};

enum class OperationStatus : uint32_t { kOk = 0, kBusy = 2, kNoDevice = 4 };

struct Operation {
    uint16_t version = kVersion;
    uint16_t code = 0;
    uint32_t status = 0;
};

inline constexpr size_t kOperationBytes = 8;
inline constexpr size_t kPathBytes = 256;
inline constexpr size_t kBusIdBytes = 32;

struct DeviceRecord {
    std::string path;
    std::string bus_id; ///< "1-2"
    uint32_t bus = 0;
    uint32_t address = 0;
    std::array<uint8_t, 18> descriptor{}; ///< of the device
    uint8_t configuration = 0;
    std::vector<std::array<uint8_t, 3>> interfaces; ///< class, subclass, protocol

    uint32_t id() const { return bus << 16 | address; }
};

Operation parse_operation(std::span<const uint8_t, kOperationBytes> bytes);
/// Up to the first NUL.
std::string parse_bus_id(std::span<const uint8_t, kBusIdBytes> bytes);
void put_operation(Bytes& out, OperationCode code, OperationStatus status);
void put_device(Bytes& out, const DeviceRecord& device);
void put_interfaces(Bytes& out, const DeviceRecord& device);
void put_u32(Bytes& out, uint32_t value);

// Second phase: transfers with the imported device.

enum CommandCode : uint32_t { kSubmit = 1, kUnlink = 2, kSubmitReply = 3, kUnlinkReply = 4 };
enum Direction : uint32_t { kOut = 0, kIn = 1 };

inline constexpr size_t kCommandBytes = 48;

struct Command {
    uint32_t code = 0;
    uint32_t sequence = 0;
    uint32_t device = 0;
    uint32_t direction = 0;
    uint32_t endpoint = 0;
    // kSubmit
    uint32_t length = 0;  ///< of the data, or of the room for them
    uint32_t packets = 0; ///< isochronous; otherwise 0 or all ones
    std::array<uint8_t, kSetupBytes> setup{};
    // kUnlink
    uint32_t victim = 0;
};

Command parse_command(std::span<const uint8_t, kCommandBytes> bytes);

struct IsoPacket {
    uint32_t offset = 0;
    uint32_t length = 0;
    uint32_t actual = 0;
    int32_t status = 0;
};
inline constexpr size_t kIsoPacketRecordBytes = 16;

IsoPacket parse_iso_packet(std::span<const uint8_t, kIsoPacketRecordBytes> bytes);
void put_iso_packet(Bytes& out, const IsoPacket& packet);

/// The answer to a transfer, without the data and packet records that follow it.
struct SubmitReply {
    uint32_t sequence = 0;
    int32_t status = 0;
    uint32_t actual = 0;
    uint32_t packets = 0;
    uint32_t errors = 0;
};

void put_submit_reply(Bytes& out, const SubmitReply& reply);
void put_unlink_reply(Bytes& out, uint32_t sequence, int32_t status);

} // namespace sim::usbip
