// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "watch/output_file.h"
#include "watch/record_time.h"
#include "watch/usbmon_record.h"

#include <mutex>

namespace sim {

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
