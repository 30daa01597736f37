// SPDX-License-Identifier: Apache-2.0
// The encoder.
#include "features.h"

#include <pybind11/stl.h>

#include <nyxus/extensions.h>

namespace nyxus::python {

namespace {

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

template <typename Function>
auto ask(Function function)
{
    return [function](const H264Part& self) {
        return self.call([&](H264& encoder) { return function(encoder); });
    };
}

} // namespace

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

} // namespace nyxus::python
