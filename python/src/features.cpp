// SPDX-License-Identifier: Apache-2.0
// Settings of a camera: pictures, registers, pins, display, encoder, standard controls.
#include "camera.h"

#include <pybind11/stl.h>

#include <nyxus/extensions.h>
#include <nyxus/fingerprint.h>
#include <nyxus/registers.h>
#include <nyxus/xu.h>

#include <array>

namespace nyxus::python {

namespace {

/// A part of a camera.
struct Part {
    SharedCamera camera;
};
struct OsdPart : Part {
    template <typename Function>
    auto call(Function&& function) const
    {
        return camera->call([&](engine::Camera& used) {
            Osd osd = used.osd();
            return function(osd);
        });
    }
};
struct H264Part : Part {
    template <typename Function>
    auto call(Function&& function) const
    {
        return camera->call([&](engine::Camera& used) {
            H264 h264 = used.h264();
            return function(h264);
        });
    }
};
struct FingerprintPart : Part {};

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

// The on-screen display.

using Color = std::array<int64_t, 3>;

/// datetime.datetime; the camera's clock shows anything.
py::object python_time(const OsdDatetime& record)
{
    constexpr int kFirstYear = 2000;
    const uint8_t* data = record.data;
    return py::module_::import("datetime")
        .attr("datetime")(kFirstYear + data[0], data[1], data[2], data[3], data[4], data[5]);
}

std::tm tm_of(const py::object& time)
{
    constexpr int kTmEpoch = 1900;
    const auto field = [&](const char* name) { return time.attr(name).cast<int>(); };
    std::tm tm{};
    tm.tm_year = field("year") - kTmEpoch;
    tm.tm_mon = field("month") - 1;
    tm.tm_mday = field("day");
    tm.tm_hour = field("hour");
    tm.tm_min = field("minute");
    tm.tm_sec = field("second");
    return tm;
}

bool is_ascii(const std::string& text)
{
    return std::ranges::all_of(text, [](unsigned char c) { return c < 0x80; });
}

void add_osd(py::module_& module, CameraClass& camera)
{
    py::class_<OsdRectangle>(module, "OsdRectangle")
        .def_readonly("index", &OsdRectangle::index)
        .def_readonly("column", &OsdRectangle::column)
        .def_readonly("row", &OsdRectangle::row)
        .def_readonly("width", &OsdRectangle::width)
        .def_readonly("height", &OsdRectangle::height)
        .def_readonly("shown", &OsdRectangle::shown);
    py::class_<OsdPart>(module, "Osd")
        .def_property(
            "enabled",
            [](const OsdPart& self) { return self.call([](Osd& osd) { return osd.enabled(); }); },
            [](const OsdPart& self, bool on) {
                self.call([&](Osd& osd) { return osd.enable(on); });
            })
        .def("reset", [](const OsdPart& self) { self.call([](Osd& osd) { return osd.reset(); }); })
        .def(
            "text",
            [](const OsdPart& self, int64_t line) {
                const auto index = in_range<uint8_t>(line, 0, 7, "the line");
                const std::string text = self.call([&](Osd& osd) { return osd.text(index); });
                return py::bytes(text).attr("decode")("ascii", "replace");
            },
            py::arg("line"))
        .def(
            "set_text",
            [](const OsdPart& self, int64_t line, const std::string& text) {
                const auto index = in_range<uint8_t>(line, 0, 7, "the line");
                if (!is_ascii(text))
                    raise_out_of_range("the display has ASCII characters only");
                self.call([&](Osd& osd) { return osd.set_text(index, text); });
            },
            py::arg("line"), py::arg("text"))
        .def_property(
            "time",
            [](const OsdPart& self) {
                return python_time(self.call([](Osd& osd) { return osd.datetime(); }));
            },
            [](const OsdPart& self, const py::object& time) {
                const std::tm wanted = tm_of(time);
                self.call([&](Osd& osd) { return osd.set_time(wanted); });
            })
        .def_property(
            "datetime",
            [](const OsdPart& self) {
                return to_bytes(self.call([](Osd& osd) { return osd.datetime(); }).data);
            },
            [](const OsdPart& self, const py::buffer& data) {
                const std::vector<uint8_t> bytes = bytes_of(data);
                OsdDatetime record{};
                if (bytes.size() != std::size(record.data))
                    raise_out_of_range("a date-time record has 8 bytes");
                std::ranges::copy(bytes, record.data);
                self.call([&](Osd& osd) { return osd.set_datetime(record); });
            })
        .def_property_readonly("shows_time",
                               [](const OsdPart& self) {
                                   return self.call([](Osd& osd) { return osd.shows_time(); });
                               })
        .def_property_readonly("transparent",
                               [](const OsdPart& self) {
                                   return self.call([](Osd& osd) { return osd.transparent(); });
                               })
        .def(
            "show_time",
            [](const OsdPart& self, bool on) {
                self.call([&](Osd& osd) { return osd.show_time(on); });
            },
            py::arg("on") = true)
        .def(
            "set_transparent",
            [](const OsdPart& self, bool on) {
                self.call([&](Osd& osd) { return osd.set_transparent(on); });
            },
            py::arg("on") = true)
        .def_property_readonly(
            "window",
            [](const OsdPart& self) { return self.call([](Osd& osd) { return osd.window(); }); })
        .def_property_readonly(
            "colors",
            [](const OsdPart& self) {
                const OsdColors colors = self.call([](Osd& osd) { return osd.colors(); });
                const auto tuple = [](const OsdYCbCr& color) {
                    return py::make_tuple(color.y, color.cb, color.cr);
                };
                return py::make_tuple(tuple(colors.text), tuple(colors.background),
                                      tuple(colors.windows));
            })
        .def(
            "set_window",
            [](const OsdPart& self, int64_t index, int64_t column, int64_t row, int64_t width,
               int64_t height, bool shown) {
                const OsdRectangle window = {in_range<uint8_t>(index, 0, 3, "the window"),
                                             byte(column, "the column"),
                                             byte(row, "the row"),
                                             byte(width, "the width"),
                                             byte(height, "the height"),
                                             shown};
                self.call([&](Osd& osd) { return osd.set_window(window); });
            },
            py::arg("index"), py::arg("column"), py::arg("row"), py::arg("width"),
            py::arg("height"), py::arg("shown") = true)
        .def(
            "set_colors",
            [](const OsdPart& self, const Color& text, const Color& background,
               const Color& windows) {
                const auto color = [](const Color& parts) {
                    const auto part = [&](size_t at) {
                        return byte(parts[at], "a part of a colour");
                    };
                    return OsdYCbCr{part(0), part(1), part(2)};
                };
                const OsdColors wanted = {color(text), color(background), color(windows)};
                self.call([&](Osd& osd) { return osd.set_colors(wanted); });
            },
            py::arg("text"), py::arg("background"), py::arg("windows"));
    camera.def_property_readonly("osd", [](const SharedCamera& self) { return OsdPart{self}; });
}

// The encoder.

template <typename Function>
auto ask(Function function)
{
    return [function](const H264Part& self) {
        return self.call([&](H264& encoder) { return function(encoder); });
    };
}

void add_h264(py::module_& module, CameraClass& camera)
{
    constexpr int64_t kMost32 = UINT32_MAX;
    const auto layer_of = [](int64_t layer) {
        return in_range<uint16_t>(layer, 0, 0xFFFF, "the layer");
    };
    const auto layer_arg = py::arg("layer") = 0;
    py::class_<Bitrate>(module, "Bitrate")
        .def(py::init([](int64_t peak, int64_t average) {
                 return Bitrate{in_range<uint32_t>(peak, 0, kMost32, "the peak"),
                                in_range<uint32_t>(average, 0, kMost32, "the average")};
             }),
             py::arg("peak"), py::arg("average"))
        .def_readonly("peak", &Bitrate::peak)
        .def_readonly("average", &Bitrate::average);
    py::class_<QpRange>(module, "QpRange")
        .def(py::init([](int64_t frame_types, int64_t least, int64_t most) {
                 return QpRange{byte(frame_types, "frame_types"), byte(least, "the least QP"),
                                byte(most, "the most QP")};
             }),
             py::arg("frame_types"), py::arg("least"), py::arg("most"))
        .def_readonly("frame_types", &QpRange::frame_types)
        .def_readonly("least", &QpRange::least)
        .def_readonly("most", &QpRange::most);
    module.def(
        "set_h264_standard_order", [](bool on) { nyxus_h264_standard_order = on ? 1 : 0; },
        py::arg("on") = true);

    py::class_<H264Part>(module, "H264")
        .def_property_readonly("rate_control", ask([](H264& e) { return e.rate_control(); }))
        .def(
            "set_rate_control",
            [=](const H264Part& self, RateControl mode, int64_t layer) {
                const uint16_t which = layer_of(layer);
                self.call([&](H264& e) { return e.set_rate_control(mode, which); });
            },
            py::arg("mode"), layer_arg)
        .def_property_readonly("bitrate", ask([](H264& e) { return e.bitrate(); }))
        .def(
            "set_bitrate",
            [=](const H264Part& self, const Bitrate& rate, int64_t layer) {
                const uint16_t which = layer_of(layer);
                self.call([&](H264& e) { return e.set_bitrate(rate, which); });
            },
            py::arg("rate"), layer_arg)
        .def_property_readonly("qp_range", ask([](H264& e) { return e.qp_range(); }))
        .def(
            "set_qp_range",
            [=](const H264Part& self, const QpRange& range, int64_t layer) {
                const uint16_t which = layer_of(layer);
                self.call([&](H264& e) { return e.set_qp_range(range, which); });
            },
            py::arg("range"), layer_arg)
        .def_property("iframe_period", ask([](H264& e) { return e.iframe_period(); }),
                      [](const H264Part& self, int64_t frames) {
                          const auto period = in_range<uint16_t>(frames, 0, 0xFFFF, "the period");
                          self.call([&](H264& e) { return e.set_iframe_period(period); });
                      })
        .def_property("format", ask([](H264& e) { return e.format(); }),
                      [](const H264Part& self, int64_t value) {
                          const auto format = in_range<uint8_t>(value, 0, 1, "the format");
                          self.call([&](H264& e) { return e.set_format(format); });
                      })
        .def(
            "request_frame",
            [=](const H264Part& self, FrameType type, int64_t layer) {
                const uint16_t which = layer_of(layer);
                self.call([&](H264& e) { return e.request_frame(type, which); });
            },
            py::arg("type"), layer_arg)
        .def(
            "reset",
            [=](const H264Part& self, int64_t layer) {
                const uint16_t which = layer_of(layer);
                self.call([&](H264& e) { return e.reset(which); });
            },
            layer_arg)
        .def_property_readonly("version", ask([](H264& e) { return e.version(); }));
    camera.def_property_readonly("h264", [](const SharedCamera& self) { return H264Part{self}; });
}

// Fingerprint readers.

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
