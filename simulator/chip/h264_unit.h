// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace sim {

/// The encoder's extension unit (unit 12), laid out as the UVC H.264 payload has it. It holds what
/// the host sets until the encoder is reset.
class H264Unit {
public:
    /// `tolerates_swapped`: some firmware also answers a host that mixes up length and request.
    explicit H264Unit(bool tolerates_swapped);

    void power_up();
    /// Bytes moved, or kStall.
    int request(uint8_t selector, uint8_t code, std::span<uint8_t> data);

    struct Setting {
        std::string_view name;
        std::span<const uint8_t> value;
    };
    /// What can be read, as it is now.
    std::vector<Setting> settings() const;
    /// As the UVC H.264 payload names it; empty when there is no such control.
    static std::string_view control_name(uint8_t selector);

    static constexpr size_t kLongestSetting = 10;
    static constexpr size_t kControls = 6;

private:
    int standard_request(size_t control, uint8_t code, std::span<uint8_t> data);
    int set_current(size_t control, std::span<const uint8_t> data);
    int swapped_request(size_t control, std::span<uint8_t> data) const;
    std::span<const uint8_t> setting(size_t control) const;

    const bool tolerates_swapped_;
    std::array<std::array<uint8_t, kLongestSetting>, kControls> settings_{};
};

} // namespace sim
