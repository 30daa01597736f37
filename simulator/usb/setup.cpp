// SPDX-License-Identifier: Apache-2.0
#include "usb/setup.h"

namespace sim {

namespace {

uint16_t little_endian(uint8_t low, uint8_t high)
{
    return static_cast<uint16_t>(low | (high << 8));
}

uint8_t low(uint16_t word)
{
    return static_cast<uint8_t>(word);
}

uint8_t high(uint16_t word)
{
    return static_cast<uint8_t>(word >> 8);
}

} // namespace

Setup Setup::from_wire(std::span<const uint8_t, kSetupBytes> bytes)
{
    return {bytes[0], bytes[1], little_endian(bytes[2], bytes[3]),
            little_endian(bytes[4], bytes[5]), little_endian(bytes[6], bytes[7])};
}

std::array<uint8_t, kSetupBytes> Setup::to_wire() const
{
    return {request_type, request,     low(value),  high(value),
            low(index),   high(index), low(length), high(length)};
}

} // namespace sim
