// SPDX-License-Identifier: Apache-2.0
#include "watch/pcap_file.h"

#include "chip/clock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <type_traits>

namespace sim {

namespace {

constexpr uint32_t kMagic = 0xA1B2C3D4; // times in microseconds
constexpr uint32_t kLinkTypeUsbLinuxMmapped = 220;

void put(std::span<uint8_t> bytes, size_t at, uint64_t value)
{
    for (size_t i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

std::array<uint8_t, 24> file_header(uint32_t snaplen)
{
    std::array<uint8_t, 24> header{};
    put(header, 0, kMagic);
    header[4] = 2; // version 2.4
    header[6] = 4;
    put(header, 16, snaplen);
    put(header, 20, kLinkTypeUsbLinuxMmapped);
    return header;
}

std::array<uint8_t, 16> record_header(uint64_t time_us, size_t kept, size_t whole)
{
    std::array<uint8_t, 16> header{};
    put(header, 0, time_us / kUsPerSecond);
    put(header, 4, time_us % kUsPerSecond);
    put(header, 8, kept);
    put(header, 12, whole);
    return header;
}

} // namespace

PcapFile::PcapFile(const std::string& path, uint32_t snaplen, RecordTime time)
    : file_(path), snaplen_(snaplen), time_(time)
{
    const auto header = file_header(snaplen_);
    file_.write(header);
}

void PcapFile::add(UsbmonEvent event, const BusTransfer& transfer, const UsbmonPlace& place)
{
    const std::lock_guard lock(mutex_);
    if (file_.has_failed())
        return;
    const std::vector<uint8_t> spread = usbmon_data(transfer);
    const std::span<const uint8_t> data =
        transfer.packets.empty() ? transfer.data : std::span(spread);
    const uint64_t time_us = time_.now_us();
    const std::vector<uint8_t> usbmon =
        usbmon_header(event, transfer, place, time_us, static_cast<uint32_t>(data.size()));

    const size_t whole = usbmon.size() + data.size();
    const size_t kept = std::min<size_t>(whole, snaplen_);
    const auto head = std::span(usbmon).first(std::min(usbmon.size(), kept));
    const auto header = record_header(time_us, kept, whole);
    for (const std::span<const uint8_t> part :
         {std::span<const uint8_t>(header), head, data.first(kept - head.size())})
        file_.write(part);
}

bool PcapFile::report()
{
    const std::lock_guard lock(mutex_);
    return file_.report("capture");
}

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

RecordTime::RecordTime(Clock& clock, bool is_real) : clock_(clock)
{
    using std::chrono::system_clock;
    if (is_real) {
        const auto today = std::chrono::duration_cast<std::chrono::microseconds>(
            system_clock::now().time_since_epoch());
        offset_us_ = static_cast<uint64_t>(today.count()) - clock.now_us();
    }
}

} // namespace sim
