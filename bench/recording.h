// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// One control transfer, and how long the host slept before it.
struct Step {
    uint32_t pause_us = 0;
    uint8_t type = 0;
    uint8_t request = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;
    std::vector<uint8_t> data; ///< what the host sent
};

/// What an operation did on the wire.
struct Recording {
    std::vector<Step> steps;
    /// What passed on the camera's clock, where computing takes no time: the transfers on the wire,
    /// and the sleeps that ROM and protocol ask for.
    double required_s = 0;
};

/// How often a replay claims interface 0.
enum class Claim { kOnce, kBeforeEachTransfer };

/// The same transfers and sleeps by bare libusb. Throws when one fails.
void replay(libusb_device_handle* handle, const Recording& recording, Claim claim = Claim::kOnce);

/// As text, for programs that have no simulated camera of their own. Both throw on failure.
void save(const Recording& recording, const std::string& path);
Recording load(const std::string& path);

} // namespace bench
