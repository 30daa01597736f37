// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The H.264 encoder. The calls block for up to three transfers.
 *
 * The C interface sends queries in the order of the first firmware until it is told otherwise,
 * process-wide: nyxus_h264_standard_order. Set it to 1 for cameras that follow the UVC H.264
 * payload layout; others reject the standard order, and these the other one (USB: a stalled
 * request).
 */
#ifndef NYXUS_CPP_H264_HPP
#define NYXUS_CPP_H264_HPP

#include <nyxus/h264.h>
#include <nyxus/cpp/camera.hpp>

namespace nyxus {

enum class RateControl : uint8_t { kConstantBitrate = 1, kVariableBitrate = 2, kConstantQp = 3 };

enum class FrameType : uint8_t { kI = 0, kIdr = 1, kIdrWithHeaders = 2 };

/// Bit/s.
struct Bitrate {
    uint32_t peak;
    uint32_t average;
};

/// Bounds of the quantisation parameter, 0 to 51.
struct QpRange {
    uint8_t frame_types; ///< sum of 1 = I, 2 = P, 4 = B frames
    uint8_t least;
    uint8_t most;
};

/// The encoder of a camera, which it must not outlive. Layers are those of the H.264 payload.
class H264 {
public:
    explicit H264(Camera& camera) : camera_(camera.device()) {}

    Result<RateControl> rate_control()
    {
        std::array<uint8_t, 3> payload{};
        const int32_t status = H264GetRateCtrlMode(camera_, payload.data());
        return Result<RateControl>::of(status, static_cast<RateControl>(payload[2]));
    }
    Status set_rate_control(RateControl mode, uint16_t layer = 0)
    {
        const auto payload = with_layer<3>(layer, {static_cast<uint8_t>(mode)});
        return Status::of(H264SetRateCtrlMode(camera_, payload.data()));
    }

    Result<Bitrate> bitrate()
    {
        H264BitrateLayers layers{};
        const int32_t status = H264GetBitrate(camera_, &layers);
        return Result<Bitrate>::of(status, {layers.dwPeakBitrate, layers.dwAverageBitrate});
    }
    Status set_bitrate(const Bitrate& rate, uint16_t layer = 0)
    {
        const H264BitrateLayers layers = {layer, rate.peak, rate.average};
        return Status::of(H264SetBitrate(camera_, &layers));
    }

    Result<QpRange> qp_range()
    {
        std::array<uint8_t, 5> payload{};
        const int32_t status = H264GetQpSteps(camera_, payload.data());
        return Result<QpRange>::of(status, {payload[2], payload[3], payload[4]});
    }
    Status set_qp_range(const QpRange& range, uint16_t layer = 0)
    {
        const auto payload = with_layer<5>(layer, {range.frame_types, range.least, range.most});
        return Status::of(H264SetQpSteps(camera_, payload.data()));
    }

    /// Frames from one I-frame to the next.
    Result<uint16_t> iframe_period()
    {
        uint16_t period = 0;
        const int32_t status = H264GetIFramePeriod(camera_, &period);
        return Result<uint16_t>::of(status, period);
    }
    Status set_iframe_period(uint16_t frames)
    {
        return Status::of(H264SetIFramePeriod(camera_, &frames));
    }

    /// Stream format, 0 or 1.
    Result<uint8_t> format()
    {
        uint8_t value = 0;
        const int32_t status = H264GetFormat(camera_, &value);
        return Result<uint8_t>::of(status, value);
    }
    Status set_format(uint8_t format) { return Status::of(H264SetFormat(camera_, format)); }

    /// Asks for a frame of a type as the next one.
    Status request_frame(FrameType type, uint16_t layer = 0)
    {
        const auto payload = with_layer<4>(layer, {static_cast<uint8_t>(type)});
        return Status::of(H264SetNextFrameType(camera_, payload.data()));
    }
    Status reset(uint16_t layer = 0)
    {
        return Status::of(H264Reset(camera_, with_layer<2>(layer, {}).data()));
    }
    /// Version of the payload layout, binary-coded decimal: 0x0100 is 1.00.
    Result<uint16_t> version()
    {
        std::array<uint8_t, 2> bytes{};
        const int32_t status = H264GetVersion(camera_, bytes.data());
        return Result<uint16_t>::of(status, static_cast<uint16_t>(bytes[0] | bytes[1] << 8));
    }

private:
    /// A payload begins with its layer, little-endian.
    template <size_t Size>
    static std::array<uint8_t, Size> with_layer(uint16_t layer,
                                                const std::array<uint8_t, Size - 2>& rest)
    {
        std::array<uint8_t, Size> payload{};
        payload[0] = static_cast<uint8_t>(layer);
        payload[1] = static_cast<uint8_t>(layer >> 8);
        std::copy(rest.begin(), rest.end(), payload.begin() + 2);
        return payload;
    }

    NyDevice* camera_;
};

inline H264 Camera::h264()
{
    return H264(*this);
}

} // namespace nyxus

#endif
