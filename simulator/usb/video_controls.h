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
#include <vector>

namespace sim {

/// Result of a request that the camera answers with STALL.
inline constexpr int kControlStall = -1;

/// The standard controls of a video camera: of its picture, and the negotiation of a stream.
class VideoControls {
public:
    explicit VideoControls(const CameraModel& model); ///< which it looks at from now on

    /// SET: `data` is what the host sent; GET: the room for the answer. Bytes moved, or
    /// kControlStall.
    int picture_control(const Setup& setup, std::span<uint8_t> data);
    int video_interface(const Setup& setup, std::span<uint8_t> data);
    /// Whether the request was the one that settles what is streamed.
    static bool is_commit(const Setup& setup);
    StreamFormat committed() const;
    /// What a probe or commit record asks for; nothing when it names no size.
    static std::optional<StreamFormat> format_in(const CameraModel& model,
                                                 std::span<const uint8_t> record);
    /// Nothing for what is no control of the picture.
    static std::optional<PictureControl> find(const Setup& setup);
    /// As the host has set it; nothing for a control that the camera does not have.
    std::optional<int32_t> value(PictureControl control) const;
    PictureSettings picture_settings() const;

private:
    static constexpr size_t kProbeBytes = 26;
    using Probe = std::array<uint8_t, kProbeBytes>;

    Probe negotiate(std::span<const uint8_t> wanted) const;
    Probe with_interval(uint32_t interval_100ns) const;
    uint32_t payload_bytes(uint32_t wanted, const StreamFormat& format) const;
    double deviation(PictureControl control) const;
    double ratio(PictureControl control) const;
    /// Those of a record that the camera has.
    std::vector<PictureControl> parts_of(const Setup& setup) const;
    int set_controls(std::span<const PictureControl> parts, std::span<const uint8_t> data);
    int tell_controls(std::span<const PictureControl> parts, uint8_t request,
                      std::span<uint8_t> room) const;
    /// An automatic is at work, and the host cannot set it.
    bool is_held_back(PictureControl control) const;

    const CameraModel* model_;
    std::array<int32_t, kPictureControls> values_{};
    Probe probe_;
    Probe commit_;
};

} // namespace sim
