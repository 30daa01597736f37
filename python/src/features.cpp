// SPDX-License-Identifier: Apache-2.0
// Settings of a camera: pictures, registers, pins, raw requests, standard controls.
#include "features.h"

#include <pybind11/stl.h>

#include <nyxus/extensions.h>
#include <nyxus/registers.h>
#include <nyxus/xu.h>

#include <array>

namespace nyxus::python {

namespace {

// Memories.

/// read_NAME(address, size) and write_NAME(address, data).
template <typename Address>
void add_memory(CameraClass& camera, const std::string& name,
                Status (nyxus::Camera::*read)(Address, Span<uint8_t>),
                Status (nyxus::Camera::*write)(Address, Bytes), int64_t last_address,
                int64_t most_bytes)
{
    camera.def(("read_" + name).c_str(),
               [=](OpenCamera& self, int64_t address, int64_t size) {
                   const auto from = in_range<Address>(address, 0, last_address, "the address");
                   std::vector<uint8_t> bytes(in_range<size_t>(size, 0, most_bytes, "the size"));
                   self.call([&](engine::Camera& used) { return (used.*read)(from, bytes); });
                   return to_bytes(bytes);
               },
               py::arg("address"), py::arg("size"));
    camera.def(("write_" + name).c_str(),
               [=](OpenCamera& self, int64_t address, const py::buffer& data) {
                   const auto from = in_range<Address>(address, 0, last_address, "the address");
                   const std::vector<uint8_t> bytes = bytes_of(data);
                   (void)in_range<size_t>(static_cast<int64_t>(bytes.size()), 0, most_bytes,
                                          "the size");
                   self.call([&](engine::Camera& used) { return (used.*write)(from, bytes); });
               },
               py::arg("address"), py::arg("data"));
}

// The extension unit.

std::vector<XuControl> xu_controls(OpenCamera& camera)
{
    return camera.ask([](engine::Camera& used) { return used.xu_controls(); });
}

py::bytes get_xu(OpenCamera& camera, int64_t selector)
{
    const auto which = byte(selector, "the selector");
    return to_bytes(camera.call([&](engine::Camera& used) { return used.get_xu(which); }));
}

void set_xu(OpenCamera& camera, int64_t selector, const py::buffer& data)
{
    const auto which = byte(selector, "the selector");
    const std::vector<uint8_t> bytes = bytes_of(data);
    camera.call([&](engine::Camera& used) { return used.set_xu(which, bytes); });
}

void add_xu(py::module_& module, CameraClass& camera)
{
    py::class_<XuControl>(module, "XuControl")
        .def_readonly("selector", &XuControl::selector)
        .def_readonly("name", &XuControl::name)
        .def_readonly("size", &XuControl::size);
    camera.def("xu_controls", xu_controls)
        .def("get_xu", get_xu, py::arg("selector"))
        .def("set_xu", set_xu, py::arg("selector"), py::arg("data"));
}

// Standard controls.

struct Control {
    std::string name;
    int64_t minimum;
    int64_t maximum;
    int64_t step;
    int64_t default_value;
    int64_t value;
};

Control control_of(const NyControl& control)
{
    return {control.name, control.minimum,       control.maximum,
            control.step, control.default_value, control.value};
}

uint32_t control_id(const std::string& name)
{
    for (uint32_t id = 0; id < NYXUS_CONTROL_COUNT; ++id) {
        if (name == nyxus_control_name(id))
            return id;
    }
    raise_out_of_range("there is no standard control '" + name + "'");
}

std::vector<Control> list_controls(OpenCamera& camera)
{
    const std::vector<NyControl> found =
        camera.call([](engine::Camera& used) { return nyxus::list_controls(used); });
    std::vector<Control> controls;
    std::ranges::transform(found, std::back_inserter(controls), control_of);
    return controls;
}

void add_controls(py::module_& module, CameraClass& camera)
{
    py::class_<Control>(module, "Control")
        .def_readonly("name", &Control::name)
        .def_readonly("minimum", &Control::minimum)
        .def_readonly("maximum", &Control::maximum)
        .def_readonly("step", &Control::step)
        .def_readonly("default_value", &Control::default_value)
        .def_readonly("value", &Control::value)
        .def("__repr__", [](const Control& self) {
            return "<nyxus.Control " + self.name + "=" + std::to_string(self.value) + ">";
        });
    camera.def("list_controls", list_controls)
        .def(
            "get_control",
            [](OpenCamera& self, const std::string& name) {
                const uint32_t id = control_id(name);
                return control_of(
                    self.call([&](engine::Camera& used) { return get_control(used, id); }));
            },
            py::arg("name"))
        .def(
            "set_control",
            [](OpenCamera& self, const std::string& name, int64_t value) {
                const uint32_t id = control_id(name);
                self.call([&](engine::Camera& used) { return set_control(used, id, value); });
            },
            py::arg("name"), py::arg("value"));
}

// Values of the camera itself.

/// Of each pin; not driven: nothing.
using Pins = std::array<std::optional<bool>, 16>;

Result<Pins> read_pins(engine::Camera& camera)
{
    const auto states = camera.gpio();
    if (!states)
        return states.status();
    Pins pins;
    for (size_t pin = 0; pin < pins.size(); ++pin) {
        const PinState state = (*states)[pin];
        if (state != PinState::kNotDriven)
            pins[pin] = state == PinState::kHigh;
    }
    return pins;
}

void add_settings(CameraClass& camera)
{
    const auto flag = [&](const char* name, Result<bool> (nyxus::Camera::*get)(),
                          Status (nyxus::Camera::*set)(bool)) {
        camera.def_property(
            name,
            [get](OpenCamera& self) {
                return self.call([&](engine::Camera& used) { return (used.*get)(); });
            },
            [set](OpenCamera& self, bool on) {
                self.call([&](engine::Camera& used) { return (used.*set)(on); });
            });
    };
    const auto number = [&](const char* name, Result<uint8_t> (nyxus::Camera::*get)(),
                            Status (nyxus::Camera::*set)(uint8_t)) {
        camera.def_property(
            name,
            [get](OpenCamera& self) {
                return self.call([&](engine::Camera& used) { return (used.*get)(); });
            },
            [set, name](OpenCamera& self, int64_t value) {
                const auto wanted = byte(value, name);
                self.call([&](engine::Camera& used) { return (used.*set)(wanted); });
            });
    };
    flag("flip", &nyxus::Camera::flip, &nyxus::Camera::set_flip);
    flag("mirror", &nyxus::Camera::mirror, &nyxus::Camera::set_mirror);
    number("mjpeg_gain", &nyxus::Camera::mjpeg_gain, &nyxus::Camera::set_mjpeg_gain);
    number("i2c_config", &nyxus::Camera::i2c_config, &nyxus::Camera::set_i2c_config);
    camera
        .def(
            "set_gpio",
            [](OpenCamera& self, int64_t pin, bool high) {
                const auto index = in_range<uint8_t>(pin, 0, 15, "the pin");
                self.call([&](engine::Camera& used) { return used.set_gpio(index, high); });
            },
            py::arg("pin"), py::arg("high"))
        .def("gpio", [](OpenCamera& self) { return self.call(read_pins); })
        .def(
            "led",
            [](OpenCamera& self, int64_t index) {
                const auto which = byte(index, "the LED");
                return self.call([&](engine::Camera& used) { return used.led(which); });
            },
            py::arg("index"))
        .def(
            "set_led",
            [](OpenCamera& self, int64_t index, int64_t state) {
                const auto which = byte(index, "the LED");
                const auto wanted = byte(state, "the state");
                self.call([&](engine::Camera& used) { return used.set_led(which, wanted); });
            },
            py::arg("index"), py::arg("state"))
        .def_property(
            "motion_setting",
            [](OpenCamera& self) {
                return to_bytes(
                    self.call([](engine::Camera& used) { return used.motion_setting(); }));
            },
            [](OpenCamera& self, const py::buffer& data) {
                const std::vector<uint8_t> bytes = bytes_of(data);
                std::array<uint8_t, 4> setting{};
                if (bytes.size() != setting.size())
                    raise_out_of_range("a motion setting has 4 bytes");
                std::ranges::copy(bytes, setting.begin());
                self.call([&](engine::Camera& used) { return used.set_motion_setting(setting); });
            })
        .def("poll_motion", [](OpenCamera& self) {
            return self.call([](engine::Camera& used) { return used.poll_motion(); });
        });
}

} // namespace

void add_features(py::module_& module, CameraClass& camera)
{
    using nyxus::Camera;
    add_settings(camera);
    add_memory<uint16_t>(camera, "registers", &Camera::read_registers, &Camera::write_registers,
                         0xFFFF, 0xFFFF);
    add_memory<uint16_t>(camera, "sensor", &Camera::read_sensor, &Camera::write_sensor, 0xFFFF,
                         0xFFFF);
    add_memory<uint8_t>(camera, "mcu", &Camera::read_mcu, &Camera::write_mcu, 0xFF, 0xFF);
    add_memory<uint16_t>(camera, "i2c", &Camera::read_i2c, &Camera::write_i2c, 0x1FF, 8);
    add_xu(module, camera);
    add_controls(module, camera);
    add_osd(module, camera);
    add_h264(module, camera);
    add_fingerprint(module, camera);
}

} // namespace nyxus::python
