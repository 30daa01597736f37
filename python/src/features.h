// SPDX-License-Identifier: Apache-2.0
// What the parts of a camera share: display, encoder, fingerprint reader.
#pragma once

#include "camera.h"

namespace nyxus::python {

/// A part of a camera.
struct Part {
    SharedCamera camera;
};

/// Functions of the C interface, on a camera of Python.
template <typename Function>
void call_c(OpenCamera& camera, Function&& function)
{
    camera.call([&](engine::Camera& used) { return Status::of(function(used.device())); });
}

template <typename Byte = uint8_t>
Byte byte(int64_t value, const char* what)
{
    return in_range<Byte>(value, 0, 0xFF, what);
}

void add_osd(py::module_& module, CameraClass& camera);
void add_h264(py::module_& module, CameraClass& camera);
void add_fingerprint(py::module_& module, CameraClass& camera);

} // namespace nyxus::python
