// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The standard controls of the picture, such as brightness and zoom.
 */
#ifndef NYXUS_CPP_CONTROLS_HPP
#define NYXUS_CPP_CONTROLS_HPP

#include <nyxus/streaming.h>
#include <nyxus/cpp/camera.hpp>

namespace nyxus {

/// Those that the camera has, with their ranges and values. Blocks for up to 5 transfers each.
inline Result<std::vector<NyControl>> list_controls(Camera& camera)
{
    std::vector<NyControl> controls(NYXUS_CONTROL_COUNT);
    const int32_t count =
        nyxus_list_controls(camera.device(), controls.data(), NYXUS_CONTROL_COUNT);
    if (count < 0)
        return Status::of(count);
    controls.resize(static_cast<size_t>(count));
    return controls;
}

/// One of them (NYXUS_CONTROL_*).
inline Result<NyControl> get_control(Camera& camera, uint32_t id)
{
    NyControl control = {};
    const int32_t rv = nyxus_get_control(camera.device(), id, &control);
    return Result<NyControl>::of(rv, control);
}

/// Sets one; a value beyond the control's range is refused.
inline Status set_control(Camera& camera, uint32_t id, int64_t value)
{
    return Status::of(nyxus_set_control(camera.device(), id, value));
}

} // namespace nyxus

#endif
