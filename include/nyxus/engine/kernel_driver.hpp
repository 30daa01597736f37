// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The kernel's video driver lends its cameras to the program while they are open, and has them
 * again when they are closed. This is for programs that end otherwise.
 */
#ifndef NYXUS_ENGINE_KERNEL_DRIVER_HPP
#define NYXUS_ENGINE_KERNEL_DRIVER_HPP

#include <nyxus/engine/status.hpp>

#include <vector>

namespace nyxus::engine {

/// Lets go of all cameras that are open in this process, whatever its other threads do with them:
/// the process ends now, and whoever opens or closes a camera from then on waits for that. Blocks
/// for up to a second, for a camera that is just being opened. Thread-safe.
NYXUS_ENGINE_API void give_cameras_back();

/// Cameras that a killed program has left without the kernel's driver get it back; a line for each,
/// to be shown. A file in the state folder tells of them: "lent/PORT". Opens those cameras only.
/// Blocks for the file system. Thread-safe.
NYXUS_ENGINE_API std::vector<std::string> put_left_cameras_back();

} // namespace nyxus::engine

#endif
