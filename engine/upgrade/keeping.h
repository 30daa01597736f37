// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/plan.hpp>

namespace nyxus::engine {

/// Sorts what the ROM holds into what the plan keeps, replaces and loses.
void sort_contents(const Camera& camera, const Images& images, const UpgradeOptions& options,
                   Bytes before, Plan& plan);

/// The runs of pages of 256 bytes that are not blank, as parts of `data` with their offsets; none
/// goes beyond a block of 64 KiB. Writing the others again would change nothing.
std::vector<std::pair<uint32_t, Bytes>> pages_in_use(uint32_t address, Bytes data);

} // namespace nyxus::engine
