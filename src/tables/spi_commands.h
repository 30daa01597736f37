// SPDX-License-Identifier: Apache-2.0
// Opcodes of the SPI flash.
#pragma once

#include <cstdint>

// clang-format off
enum : uint8_t {
    kSpiWriteDisable      = 0x04,
    kSpiWriteEnable       = 0x06,
    kSpiStatusWriteEnable = 0x50,
    kSpiReadIdJedec       = 0x9F,
    kSpiReadId15          = 0x15,
    kSpiReadIdAb          = 0xAB,
    kSpiReadId90          = 0x90,
};
// clang-format on
