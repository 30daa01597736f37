// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/setup.h"
#include "usbip/wire.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim::usbip {

/// What a host got for a transfer or a cancellation.
struct Answer {
    uint32_t code = 0;
    uint32_t sequence = 0;
    int32_t status = 0;
    uint32_t actual = 0;
    uint32_t errors = 0;
    Bytes data;
    std::vector<IsoPacket> packets;
};

/// The host's side of the protocol: makes messages and takes answers apart. Knows no socket.
class Peer {
public:
    static Bytes operation(uint16_t code, uint16_t version = kVersion)
    {
        return {static_cast<uint8_t>(version >> 8),
                static_cast<uint8_t>(version),
                static_cast<uint8_t>(code >> 8),
                static_cast<uint8_t>(code),
                0,
                0,
                0,
                0};
    }
    static Bytes import(const std::string& bus_id)
    {
        Bytes bytes = operation(kImportRequest);
        bytes.insert(bytes.end(), bus_id.begin(), bus_id.end());
        bytes.resize(kOperationBytes + kBusIdBytes);
        return bytes;
    }

    static Bytes encode(const Command& command)
    {
        Bytes bytes;
        for (const uint32_t word :
             {command.code, command.sequence, command.device, command.direction, command.endpoint,
              command.code == kUnlink ? command.victim : 0U, command.length, 0U, command.packets,
              0U})
            put_u32(bytes, word);
        bytes.insert(bytes.end(), command.setup.begin(), command.setup.end());
        return bytes;
    }

    Command command(uint32_t code, Direction direction, uint32_t endpoint, uint32_t length)
    {
        directions_[++sequence_] = direction;
        return {.code = code,
                .sequence = sequence_,
                .device = device,
                .direction = direction,
                .endpoint = endpoint,
                .length = length};
    }
    Bytes control(const Setup& setup, const Bytes& data = {})
    {
        Command made = command(kSubmit, setup.is_in() ? kIn : kOut, 0, setup.length);
        made.setup = setup.to_wire();
        Bytes bytes = encode(made);
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    }
    Bytes read(uint32_t endpoint, uint32_t length)
    {
        return encode(command(kSubmit, kIn, endpoint, length));
    }
    Bytes read_packets(uint32_t endpoint, uint32_t count, uint32_t packet_bytes)
    {
        Command made = command(kSubmit, kIn, endpoint, count * packet_bytes);
        made.packets = count;
        Bytes bytes = encode(made);
        for (uint32_t i = 0; i < count; ++i)
            put_iso_packet(bytes, {i * packet_bytes, packet_bytes, 0, 0});
        return bytes;
    }
    Bytes unlink(uint32_t victim)
    {
        Command made = command(kUnlink, kOut, 0, 0);
        made.victim = victim;
        return encode(made);
    }
    /// Of the latest message.
    uint32_t sequence() const { return sequence_; }

    /// The answers that are complete; the rest waits for more bytes.
    std::vector<Answer> take(std::span<const uint8_t> bytes)
    {
        input_.insert(input_.end(), bytes.begin(), bytes.end());
        std::vector<Answer> answers;
        while (std::optional<Answer> answer = take_one())
            answers.push_back(*std::move(answer));
        return answers;
    }
    bool has_rest() const { return !input_.empty(); }

    uint32_t device = 1 << 16 | 2;

private:
    uint32_t word(size_t at) const
    {
        return uint32_t{input_[at]} << 24 | uint32_t{input_[at + 1]} << 16 |
               uint32_t{input_[at + 2]} << 8 | input_[at + 3];
    }

    std::optional<Answer> take_one()
    {
        if (input_.size() < kCommandBytes)
            return std::nullopt;
        Answer answer{word(0), word(4), static_cast<int32_t>(word(20)), 0, 0, {}, {}};
        size_t end = kCommandBytes;
        size_t data_bytes = 0;
        size_t packets = 0;
        if (answer.code == kSubmitReply) {
            answer.actual = word(24);
            answer.errors = word(36);
            packets = word(32);
            data_bytes = directions_[answer.sequence] == kIn ? answer.actual : 0;
            end += data_bytes + packets * kIsoPacketRecordBytes;
        }
        if (input_.size() < end)
            return std::nullopt;
        const auto data = std::span(input_).subspan(kCommandBytes, data_bytes);
        answer.data.assign(data.begin(), data.end());
        for (size_t at = kCommandBytes + data_bytes; at < end; at += kIsoPacketRecordBytes) {
            answer.packets.push_back(
                parse_iso_packet(std::span(input_).subspan(at).first<kIsoPacketRecordBytes>()));
        }
        input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(end));
        return answer;
    }

    uint32_t sequence_ = 0;
    std::map<uint32_t, Direction> directions_;
    Bytes input_;
};

} // namespace sim::usbip
