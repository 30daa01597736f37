// SPDX-License-Identifier: Apache-2.0
#include "spi_controller.h"

#include <algorithm>

namespace sim {
namespace {

constexpr uint16_t kAnswerLengthReg = 0x0046;
constexpr uint16_t kControlReg = 0x0049;
constexpr uint16_t kCommandLengthReg = 0x004A;
constexpr uint16_t kBusSelectReg = 0x004B;
constexpr uint16_t kSequenceBuffer = 0x0100;

constexpr uint8_t kStartWithAnswer = 0x37;
constexpr uint8_t kStartWithoutAnswer = 0x35;
constexpr uint8_t kRelease = 0x00;
constexpr uint8_t kBusySetBit = 0x01;
constexpr uint8_t kSpiBus = 0x01;
constexpr uint32_t kCommandUs = 200;

} // namespace

SpiController::SpiController(std::span<uint8_t, 0x10000> xdata, SpiFlash* flash, Clock& clock)
    : xdata_(xdata), flash_(flash), clock_(clock)
{
}

void SpiController::settle()
{
    if (!running_ || clock_.now_us() < done_at_us_)
        return;
    running_ = false;
    std::copy_n(answer_.begin(), answer_length_, xdata_.begin() + kSequenceBuffer);
    xdata_[kControlReg] &= static_cast<uint8_t>(~kBusySetBit);
}

void SpiController::written(uint16_t address)
{
    if (address != kControlReg)
        return;
    switch (xdata_[kControlReg]) {
        case kStartWithAnswer:
            start(true);
            break;
        case kStartWithoutAnswer:
            start(false);
            break;
        case kRelease:
            running_ = false;
            break;
        default: // a set-up value; bit 0 is only ever set by a start
            break;
    }
}

void SpiController::start(bool with_answer)
{
    const auto command =
        std::span<const uint8_t>(xdata_).subspan(kSequenceBuffer, xdata_[kCommandLengthReg]);
    answer_length_ = with_answer ? xdata_[kAnswerLengthReg] : uint8_t{0};
    const auto answer = std::span(answer_).first(answer_length_);
    std::ranges::fill(answer, uint8_t{0xFF});
    if (flash_ != nullptr && xdata_[kBusSelectReg] == kSpiBus)
        flash_->transfer(command, answer);
    running_ = true;
    done_at_us_ = clock_.now_us() + kCommandUs;
}

} // namespace sim
