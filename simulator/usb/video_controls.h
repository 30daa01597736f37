// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/uvc_request.h"
#include "usb/descriptors.h"
#include "usb/setup.h"
#include "usb/video_stream.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace sim {

/// Result of a request that the camera answers with STALL.
inline constexpr int kControlStall = -1;

inline constexpr uint8_t kBrightnessSelector = 0x02; ///< of the processing unit

/// The controls every video camera has: brightness, and the negotiation of a stream.
class VideoControls {
public:
    explicit VideoControls(const CameraModel& model);

    /// SET: `data` is what the host sent; GET: the room for the answer. Bytes moved, or
    /// kControlStall.
    int processing_unit(const Setup& setup, std::span<uint8_t> data);
    int video_interface(const Setup& setup, std::span<uint8_t> data);
    /// Whether the request was the one that settles what is streamed.
    static bool is_commit(const Setup& setup);
    StreamFormat committed() const;
    /// What a probe or commit record asks for; nothing when it names no size.
    static std::optional<StreamFormat> format_in(std::span<const uint8_t> record);

private:
    static constexpr size_t kProbeBytes = 26;
    using Probe = std::array<uint8_t, kProbeBytes>;

    Probe negotiate(std::span<const uint8_t> wanted) const;
    Probe with_interval(uint32_t interval_100ns) const;
    uint32_t payload_bytes(uint32_t wanted, const FrameSize& size, uint32_t interval_100ns) const;

    bool isochronous_;
    uint16_t brightness_ = 128;
    Probe probe_;
    Probe commit_;
};

} // namespace sim
