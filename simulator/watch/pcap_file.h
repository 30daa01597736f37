// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"
#include "usb/observer.h"
#include "watch/output_file.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace sim {

/// What a record is about; the letters are those of Linux's usbmon.
enum class UsbmonEvent : uint8_t { kSubmitted = 'S', kFinished = 'C', kRefused = 'E' };

/// Where the transfer belongs.
struct UsbmonPlace {
    uint16_t bus = 0;
    uint8_t address = 0;
    int32_t interval = 0; ///< of the endpoint, in frames or microframes; 0: not periodic
};

/// Header and isochronous descriptors as usbmon writes them, little-endian
/// (LINKTYPE_USB_LINUX_MMAPPED); `captured_bytes` of data follow.
std::vector<uint8_t> usbmon_header(UsbmonEvent event, const BusTransfer& transfer,
                                   const UsbmonPlace& place, uint64_t time_us,
                                   uint32_t captured_bytes);

/// The data as the host's buffer holds it: an isochronous packet stands at its own offset.
std::vector<uint8_t> usbmon_data(const BusTransfer& transfer);

/// When something happened, in microseconds since 1970. The cameras' real clock is shown as the
/// time of day; their virtual clock as it is, so that two runs can be compared.
class RecordTime {
public:
    RecordTime(Clock& clock, bool is_real);

    uint64_t now_us() const { return offset_us_ + clock_.now_us(); }

private:
    Clock& clock_;
    uint64_t offset_us_ = 0;
};

/// The largest record that Wireshark reads.
inline constexpr uint32_t kLargestPcapRecord = 262144;

/// A capture of USB traffic for Wireshark and tshark, of all cameras. Every record is in the file
/// when add() returns, so that a crash loses none. Thread-safe.
class PcapFile {
public:
    /// Records are cut at `snaplen` bytes. Throws std::runtime_error.
    PcapFile(const std::string& path, uint32_t snaplen, RecordTime time);

    void add(UsbmonEvent event, const BusTransfer& transfer, const UsbmonPlace& place);
    /// False, and a line on standard error, when the capture has a hole.
    bool report();

private:
    std::mutex mutex_;
    OutputFile file_;
    uint32_t snaplen_;
    RecordTime time_;
};

} // namespace sim
