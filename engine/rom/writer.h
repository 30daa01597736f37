// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/camera.hpp>

namespace nyxus::engine {

/// Unlocks or locks the ROM, as a phase. kProtected for a flash whose status does not follow.
Status enable_writing(Camera& camera, bool enable, const Caller& caller);

/// Erases the flash of an unlocked ROM, as a phase.
Status erase_flash(Camera& camera, const Caller& caller);

/// Writes inside a block of an unlocked ROM with the transfers of XuExtRomWrite(), and tells
/// `wrote` of every 480 bytes. Before and afterwards block 0 is selected.
Status write_rom(Camera& camera, uint32_t address, Bytes bytes,
                 const std::function<void(uint32_t)>& wrote);

} // namespace nyxus::engine
