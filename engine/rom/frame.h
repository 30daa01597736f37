// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exchange.h"

namespace nyxus::engine {

/// What one exchange sends, and where its data go. The answer has the length of the request.
struct Frame {
    uint32_t address;
    std::span<uint8_t> out;
    uint8_t selector;
    size_t header_bytes; ///< length and address; the answer of most cameras repeats them
    std::vector<uint8_t> request;
};

/// kUnreliableReads where the camera's control is too short for the answer.
Result<Frame> make_frame(const Reading& reading, Width width, uint32_t address,
                         std::span<uint8_t> out);

/// What a transfer with a vendor control says beside its data.
struct VendorSetup {
    uint8_t type;
    uint16_t value;
    uint16_t index;
};
VendorSetup vendor_setup(uint8_t request, uint8_t selector);

/// As the library does before each transfer: a reset or another user may have taken the claim away.
int claim_for_transfer(NyDevice& device);

/// Marks the object of a camera that is gone; returns what it is given.
int note_outcome(NyDevice& device, int status);

/// As long as the camera's control, of equal bytes.
std::vector<uint8_t> control_buffer(Camera& camera, uint8_t selector, uint8_t contents);

/// What has become of a request of this size: `moved` bytes, or libusb's code.
Status check_request(const std::string& doing, size_t size, int moved);
Status check_request(const Reading& reading, const Frame& frame, int moved);

/// The same of the answer. Its data go where they belong if it is one to this request.
Status take_answer(const Reading& reading, const Frame& frame, std::span<const uint8_t> answer,
                   int moved);

} // namespace nyxus::engine
