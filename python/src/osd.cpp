// SPDX-License-Identifier: Apache-2.0
// The on-screen display.
#include "features.h"

#include <pybind11/stl.h>

#include <array>
#include <ctime>

namespace nyxus::python {

namespace {

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

} // namespace

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

} // namespace nyxus::python
