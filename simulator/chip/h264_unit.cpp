// SPDX-License-Identifier: Apache-2.0
#include "h264_unit.h"

#include "uvc_request.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint8_t kEncoderReset = 0x0B;

struct H264Control {
    uint8_t selector;
    uint8_t length;
    uint8_t info;
    std::string_view name;
    std::array<uint8_t, H264Unit::kLongestSetting> defaults;
};

// clang-format off
constexpr H264Control kTable[] = {
//   selector       length  info            name                     layer, then
    {0x03,           3,     kInfoGetAndSet, "RATE_CONTROL_MODE",    {0, 0, 1}},                      // constant bit rate
    {0x0A,           2,     kInfoGet,       "VERSION",              {0x00, 0x01}},                   // version 1.00
    {0x0E,          10,     kInfoGetAndSet, "BITRATE_LAYERS",       {0, 0, 0x00, 0x09, 0x3D, 0x00,   // 4,000,000 peak
                                                                           0x80, 0x84, 0x1E, 0x00}}, // 2,000,000 mean
    {0x0F,           5,     kInfoGetAndSet, "QP_STEPS_LAYERS",      {0, 0, 0x07, 20, 40}},           // I, P, B: 20 to 40
    {0x09,           4,     kInfoGetAndSet, "PICTURE_TYPE_CONTROL", {0, 0, 0, 0}},                   // as the encoder likes
    {kEncoderReset,  2,     kInfoSet,       "ENCODER_RESET",        {0, 0}},
};
// clang-format on
static_assert(std::size(kTable) == H264Unit::kControls);

// The room that a host gives which puts the request where the length belongs.
constexpr size_t kSwappedGet = kGetCur;
constexpr size_t kSwappedSet = kSetCur;

} // namespace

std::string_view H264Unit::control_name(uint8_t selector)
{
    const auto* const found = std::ranges::find(kTable, selector, &H264Control::selector);
    return found == std::end(kTable) ? std::string_view() : found->name;
}

std::vector<H264Unit::Setting> H264Unit::settings() const
{
    std::vector<Setting> all;
    for (size_t i = 0; i < kControls; ++i) {
        if ((kTable[i].info & kInfoGet) != 0)
            all.push_back({kTable[i].name, setting(i)});
    }
    return all;
}

H264Unit::H264Unit(bool tolerates_swapped) : tolerates_swapped_(tolerates_swapped)
{
    power_up();
}

void H264Unit::power_up()
{
    std::ranges::transform(kTable, settings_.begin(), &H264Control::defaults);
}

int H264Unit::request(uint8_t selector, uint8_t code, std::span<uint8_t> data)
{
    const auto found = std::ranges::find(kTable, selector, &H264Control::selector);
    if (found == std::end(kTable))
        return kStall;
    const auto control = static_cast<size_t>(found - std::begin(kTable));
    if (tolerates_swapped_ && code == found->length)
        return swapped_request(control, data);
    return standard_request(control, code, data);
}

int H264Unit::standard_request(size_t control, uint8_t code, std::span<uint8_t> data)
{
    const H264Control& row = kTable[control];
    const bool readable = (row.info & kInfoGet) != 0;
    switch (code) {
        case kSetCur:
            return set_current(control, data);
        case kGetCur:
            return readable ? put_answer(setting(control), data) : kStall;
        case kGetDef:
            return readable ? put_answer(std::span(row.defaults).first(row.length), data) : kStall;
        case kGetLen:
            return put_answer(std::array<uint8_t, 2>{row.length, 0}, data);
        case kGetInfo:
            return put_answer(std::array{row.info}, data);
        default:
            return kStall;
    }
}

int H264Unit::set_current(size_t control, std::span<const uint8_t> data)
{
    const H264Control& row = kTable[control];
    if ((row.info & kInfoSet) == 0 || data.size() != row.length)
        return kStall;
    if (row.selector == kEncoderReset) {
        power_up();
    } else {
        std::ranges::copy(data, settings_[control].begin());
    }
    return static_cast<int>(data.size());
}

/// The swapped order always fetches, so nothing can be set by it.
int H264Unit::swapped_request(size_t control, std::span<uint8_t> data) const
{
    if (data.size() != kSwappedGet && data.size() != kSwappedSet)
        return kStall;
    return put_answer(setting(control), data);
}

std::span<const uint8_t> H264Unit::setting(size_t control) const
{
    return std::span(settings_[control]).first(kTable[control].length);
}

} // namespace sim
