// SPDX-License-Identifier: Apache-2.0
// Fingerprint readers.
#include "features.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <nyxus/fingerprint.h>

namespace nyxus::python {

namespace {

struct FingerprintPart : Part {};

template <auto kFunction>
void order(const FingerprintPart& self)
{
    call_c(*self.camera, kFunction);
}

template <auto kFunction>
void switch_it(const FingerprintPart& self, bool on)
{
    call_c(*self.camera, [on](NyDevice* device) { return kFunction(device, on ? 1 : 0); });
}

template <auto kFunction>
uint8_t question(const FingerprintPart& self)
{
    uint8_t answer = 0;
    call_c(*self.camera, [&](NyDevice* device) { return kFunction(device, &answer); });
    return answer;
}

} // namespace

void add_fingerprint(py::module_& module, CameraClass& camera)
{
    py::class_<FingerprintPart>(module, "Fingerprint")
        .def("reset", order<SG_SetSensorResetInit>)
        .def("reset_pin", order<SG_SetSensorResetPin>)
        .def("stream", order<SG_StreamModeEnable>)
        .def("snapshot", order<SG_SnapshotModeEnable>)
        .def("trigger", order<SG_SnapshotModeTrigger>)
        .def("set_power", switch_it<SG_SetAutoPower>, py::arg("on"))
        .def("set_led", switch_it<SG_LedControl>, py::arg("on"))
        .def_property_readonly("touch", question<SG_TouchStatus>)
        .def_property_readonly("speed", question<SG_UsbSpeed>)
        .def(
            "read",
            [](const FingerprintPart& self, int64_t address, int64_t size) {
                const auto from = in_range<uint16_t>(address, 0, 0xFFFF, "the address");
                std::vector<uint8_t> bytes(in_range<uint16_t>(size, 0, 0xFFFF, "the size"));
                const auto length = static_cast<uint16_t>(bytes.size());
                call_c(*self.camera, [&](NyDevice* device) {
                    return SG_EepromRead(device, from, length, bytes.data());
                });
                return to_bytes(bytes);
            },
            py::arg("address"), py::arg("size"))
        .def(
            "write",
            [](const FingerprintPart& self, int64_t address, const py::buffer& data, bool backup,
               const std::optional<engine::Backups>& backups, const py::object& on_event,
               const py::object& stop) {
                const auto from = in_range<uint16_t>(address, 0, 0xFFFF, "the address");
                const std::vector<uint8_t> bytes = bytes_of(data);
                const auto write = [&](engine::Camera& used, const engine::Caller& caller) {
                    return engine::write_window(
                        used, from, bytes, backups.value_or(engine::Backups()), caller, backup);
                };
                Work work(stop);
                return value_of(self.camera->run(work, on_event, write), work);
            },
            py::arg("address"), py::arg("data"), py::arg("backup") = true,
            py::arg_v("backups", py::none(), "None"), py::arg_v("on_event", py::none(), "None"),
            py::arg_v("stop", py::none(), "None"));
    camera.def_property_readonly("fingerprint",
                                 [](const SharedCamera& self) { return FingerprintPart{self}; });
}

} // namespace nyxus::python
