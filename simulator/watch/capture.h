// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "watch/pcap_file.h"

#include <map>

namespace sim {

/// Puts the traffic of one camera into a capture, its enumeration included.
class Capture final : public UsbObserver {
public:
    explicit Capture(PcapFile& file) : file_(file) {}

    void plugged(const UsbCamera& camera, unsigned bus, unsigned address) override;
    void left(Departure) override {}
    void submitted(const BusTransfer& transfer) override;
    void finished(const BusTransfer& transfer) override;
    void refused(const BusTransfer& transfer) override;
    void video_changed(const VideoStream&) override {}

private:
    void add(UsbmonEvent event, const BusTransfer& transfer);
    void add_request(const Transfer& request);

    PcapFile& file_;
    UsbmonPlace place_;
    std::map<uint8_t, int32_t> intervals_; ///< by endpoint
    uint64_t requests_ = 0;
};

} // namespace sim
