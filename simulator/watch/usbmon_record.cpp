// SPDX-License-Identifier: Apache-2.0
#include "watch/usbmon_record.h"

#include "chip/clock.h"

#include <algorithm>
#include <cerrno>
#include <type_traits>

namespace sim {

namespace {

constexpr size_t kRecordBytes = 64;
constexpr size_t kIsoDescriptorBytes = 16;

constexpr uint8_t kSetupFollows = 0;
constexpr uint8_t kNoSetup = '-';
constexpr uint8_t kDataFollows = 0;
constexpr uint8_t kInWithoutData = '<';
constexpr uint8_t kOutWithoutData = '>';
constexpr uint8_t kErrorWithoutData = 'E';
constexpr uint32_t kFlagIn = 0x0200;
constexpr uint32_t kFlagIsoAsap = 0x0002;

template <typename Word>
void add(std::vector<uint8_t>& bytes, Word word)
{
    const auto value = static_cast<std::make_unsigned_t<Word>>(word);
    for (size_t i = 0; i < sizeof word; ++i)
        bytes.push_back(static_cast<uint8_t>(uint64_t{value} >> (8 * i)));
}

uint8_t data_flag(UsbmonEvent event, const BusTransfer& transfer)
{
    if (event == UsbmonEvent::kRefused)
        return kErrorWithoutData;
    const bool carries_data = transfer.is_in() == (event == UsbmonEvent::kFinished);
    if (carries_data)
        return kDataFollows;
    return transfer.is_in() ? kInWithoutData : kOutWithoutData;
}

void add_setup(std::vector<uint8_t>& bytes, UsbmonEvent event, const BusTransfer& transfer)
{
    if (transfer.type == TransferType::kIsochronous) {
        const auto failed = std::ranges::count_if(
            transfer.packets, [](int status) { return status != 0; }, &IsoPacket::status);
        add(bytes, event == UsbmonEvent::kFinished ? static_cast<int32_t>(failed) : 0);
        add(bytes, static_cast<int32_t>(transfer.packets.size()));
        return;
    }
    const auto setup = transfer.setup.to_wire();
    bytes.insert(bytes.end(), setup.begin(), setup.end());
}

void add_iso_descriptors(std::vector<uint8_t>& bytes, UsbmonEvent event,
                         std::span<const IsoPacket> packets)
{
    uint32_t offset = 0;
    for (const IsoPacket& packet : packets) {
        const bool finished = event == UsbmonEvent::kFinished;
        add(bytes, static_cast<int32_t>(finished ? packet.status : -EXDEV));
        add(bytes, offset);
        add(bytes, finished ? packet.moved : packet.room);
        add(bytes, uint32_t{0});
        offset += packet.room;
    }
}

} // namespace

std::vector<uint8_t> usbmon_header(UsbmonEvent event, const BusTransfer& transfer,
                                   const UsbmonPlace& place, uint64_t time_us,
                                   uint32_t captured_bytes)
{
    const bool has_setup =
        transfer.type == TransferType::kControl && event == UsbmonEvent::kSubmitted;
    const bool isochronous = transfer.type == TransferType::kIsochronous;
    const auto descriptors = static_cast<uint32_t>(transfer.packets.size());
    const auto descriptor_bytes = static_cast<uint32_t>(descriptors * kIsoDescriptorBytes);

    std::vector<uint8_t> bytes;
    bytes.reserve(kRecordBytes + descriptor_bytes);
    // Different cameras number their transfers alike.
    add(bytes, transfer.id | uint64_t{place.address} << 40 | uint64_t{place.bus} << 48);
    add(bytes, static_cast<uint8_t>(event));
    add(bytes, static_cast<uint8_t>(transfer.type));
    add(bytes, transfer.endpoint);
    add(bytes, place.address);
    add(bytes, place.bus);
    add(bytes, has_setup ? kSetupFollows : kNoSetup);
    add(bytes, data_flag(event, transfer));
    add(bytes, static_cast<int64_t>(time_us / kUsPerSecond));
    add(bytes, static_cast<int32_t>(time_us % kUsPerSecond));
    add(bytes, event == UsbmonEvent::kSubmitted ? -EINPROGRESS : transfer.status);
    add(bytes, event == UsbmonEvent::kFinished ? transfer.moved : transfer.room);
    add(bytes, captured_bytes + descriptor_bytes);
    add_setup(bytes, event, transfer);
    add(bytes, place.interval);
    add(bytes, int32_t{0}); // start frame
    add(bytes, (transfer.is_in() ? kFlagIn : 0) | (isochronous ? kFlagIsoAsap : 0));
    add(bytes, descriptors);
    add_iso_descriptors(bytes, event, transfer.packets);
    return bytes;
}

std::vector<uint8_t> usbmon_data(const BusTransfer& transfer)
{
    std::vector<uint8_t> buffer;
    size_t taken = 0;
    size_t offset = 0;
    for (const IsoPacket& packet : transfer.packets) {
        if (packet.moved > 0 && packet.moved <= transfer.data.size() - taken) {
            buffer.resize(offset);
            const auto bytes = transfer.data.subspan(taken, packet.moved);
            buffer.insert(buffer.end(), bytes.begin(), bytes.end());
            taken += bytes.size();
        }
        offset += packet.room;
    }
    return buffer;
}

} // namespace sim
