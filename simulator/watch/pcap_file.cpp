// SPDX-License-Identifier: Apache-2.0
#include "watch/pcap_file.h"

#include <algorithm>
#include <array>

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
    file_.write(std::array{std::span<const uint8_t>(header)});
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
    file_.write(
        std::array<std::span<const uint8_t>, 3>{header, head, data.first(kept - head.size())});
}

bool PcapFile::report()
{
    const std::lock_guard lock(mutex_);
    return file_.report("capture");
}

} // namespace sim
