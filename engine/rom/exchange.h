// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/rom.hpp>
#include <span>

namespace nyxus::engine {

/// What one exchange with the ROM moves at most.
enum class Width { k8 = 8, k32 = 32, k512 = 512 };

/// Who reads, for whom, and as what.
struct Reading {
    Camera& camera;
    const Caller& caller;
    Phase phase;
};

inline Width narrow_width(const Camera& camera)
{
    return camera.exchange_bytes() == static_cast<unsigned>(Width::k32) ? Width::k32 : Width::k8;
}

/**
 * Reads at most a width inside the selected block. The library's reads let a refused request pass,
 * and short answers; here the request is sent and the answer fetched, and both are looked at: what
 * became of the transfer, its length, and the address in the answer where the camera repeats it. A
 * failure is told and tried again a few times, unless the camera is gone; what has failed leaves
 * `out` as it was.
 */
Status exchange(const Reading& reading, Width width, uint32_t address, std::span<uint8_t> out);

/// Selects the block of 64 KiB that an address lies in, on cameras that have blocks; tries again as
/// well.
Status select_block(const Reading& reading, uint32_t address);

/// Tells that something is read once more, and why.
void tell_read_again(const Reading& reading, const Status& why);

/// "reading failed at 0x1000".
std::string reading_failed(Phase phase, uint32_t address);

} // namespace nyxus::engine
