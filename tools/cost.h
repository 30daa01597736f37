// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera.h"

#include <cstddef>
#include <cstdint>

// What an operation will cost, counted from how the library talks to the camera.
namespace tool {

/// Control transfers, and the pauses between them.
struct Cost {
    uint32_t transfers = 0;
    double pauses_s = 0;

    Cost& operator+=(const Cost& other);
    friend Cost operator+(Cost a, const Cost& b) { return a += b; }
};

/// A part of a register block moves in pieces of 8 bytes: written by one transfer, read by two.
Cost register_write(size_t bytes);
Cost register_read(size_t bytes);
/// Reading, changing and writing a register.
Cost register_change();

/// Setting a pin. Pin 0 has to be made a pin before.
Cost pin_change(unsigned pin);

/// Reading a part of the external ROM as read_rom() does.
Cost whole_read(Camera& camera, size_t bytes);

/// Parts of the library's operations on the external ROM.
Cost rom_read(const Camera& camera, size_t bytes);
Cost rom_write(const Camera& camera, size_t bytes);
Cost rom_unlock(const Camera& camera);
Cost rom_lock(const Camera& camera);
/// Asking what ROM there is.
Cost rom_query(const Camera& camera);
/// Without the time that the flash takes.
Cost rom_erase(const Camera& camera);

} // namespace tool
