// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "support/input.h"
#include "usb/setup.h"

namespace fuzz {

/// How a scripted camera answers one transfer: a byte, and what follows it.
enum class Reply : uint8_t {
    kOfModel, ///< as the model does that has never been written to
    kBytes,   ///< followed by a count and so many bytes
    kFill,    ///< followed by a byte that fills the whole answer
    kWord,    ///< followed by two bytes
    kShort,   ///< followed by a count: the model's answer, cut
    kStall,
    kIoError,
    kTimeout,
    kGone, ///< the host says that there is no such device
};
inline constexpr unsigned kReplyKinds = 9;

/// A camera that takes its answers from the fuzzer and believes nothing: what a host writes arrives
/// and has no effect, so that one input does the same every time. The camera is gone once it has
/// answered kMostTransfers; that ends every wait for it.
class CameraScript {
public:
    /// `input` outlives the script.
    explicit CameraScript(Input& input) : input_(input) {}

    sim::Fault answer(const sim::Setup& setup);

    static constexpr unsigned kMostTransfers = 250;

private:
    sim::Fault reply(const sim::Setup& setup);

    Input& input_;
    unsigned transfers_ = 0;
};

/// The script's bytes for an answer.
void put_reply(std::vector<uint8_t>& script, const sim::Transfer& transfer);

} // namespace fuzz
