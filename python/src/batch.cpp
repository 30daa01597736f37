// SPDX-License-Identifier: Apache-2.0
// Many cameras at once, each in a process of its own.
#include "camera.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <variant>

namespace nyxus::python {

namespace {

using engine::Backups;
using engine::BatchCamera;
using engine::BatchOptions;
using engine::BatchReport;
using engine::ChipImages;

/// Hears of the batch on its thread, and tells of it on the interpreter's.
class Listener : public engine::BatchListener {
public:
    Listener(Work& work, const py::object& on_event, size_t cameras)
        : reports(cameras), work_(work), on_event_(on_event)
    {
    }

    std::vector<BatchReport> reports;

    void started(size_t /*camera*/) override {}
    void tell(size_t camera, const engine::Event& event) override
    {
        if (!on_event_.is_none())
            work_.post([this, camera, event] { on_event_(camera, event); }, is_urgent(event));
    }
    void said(size_t /*camera*/, const std::string& /*line*/) override {}
    void ended(size_t camera, const BatchReport& report) override
    {
        reports[camera] = report;
        if (!on_event_.is_none())
            work_.post([this, camera, report] { on_event_(camera, report); }, true);
    }
    void tick() override {}

private:
    Work& work_;
    const py::object& on_event_;
};

std::string port_of(const std::variant<std::string, CameraInfo>& camera)
{
    const auto* info = std::get_if<CameraInfo>(&camera);
    return info != nullptr ? info->port_path : std::get<std::string>(camera);
}

std::vector<BatchReport> run_batch(
    const std::vector<std::variant<std::string, CameraInfo>>& cameras,
    const std::vector<ChipImages>& images, const BatchOptions& options,
    const std::optional<Backups>& backups, const py::object& on_event, const py::object& stop)
{
    std::vector<BatchCamera> batch;
    for (const auto& camera : cameras)
        batch.push_back({port_of(camera), &images});
    Work work(stop);
    Listener listener(work, on_event, batch.size());
    work.run([&] {
        engine::run_batch(batch, options, backups.value_or(Backups()), listener,
                          {work.soon.get_token(), work.at_once.get_token()});
    });
    if (work.interrupted) {
        py::error_already_set interrupted(*work.interrupted);
        interrupted.value().attr("reports") = py::cast(listener.reports);
        throw interrupted;
    }
    return std::move(listener.reports);
}

} // namespace

void add_batch(py::module_& module)
{
    const BatchOptions usual;
    py::class_<BatchOptions>(module, "BatchOptions")
        .def(py::init([](const engine::UpgradeOptions& upgrade, unsigned queue_depth,
                         uint32_t eeprom_bytes, bool restart, bool allow_downgrade,
                         unsigned plug_wait_s, unsigned silence_s, unsigned at_once,
                         std::string helper) {
                 return BatchOptions{.upgrade = upgrade,
                                     .queue_depth = queue_depth,
                                     .eeprom_bytes = eeprom_bytes,
                                     .restart = restart,
                                     .allow_downgrade = allow_downgrade,
                                     .plug_wait_s = plug_wait_s,
                                     .silence_s = silence_s,
                                     .at_once = at_once,
                                     .helper = std::move(helper)};
             }),
             py::kw_only(), py::arg_v("upgrade", usual.upgrade, "UpgradeOptions()"),
             py::arg("queue_depth") = usual.queue_depth, py::arg("eeprom_bytes") = 0,
             py::arg("restart") = false, py::arg("allow_downgrade") = false,
             py::arg("plug_wait_s") = 0, py::arg("silence_s") = usual.silence_s,
             py::arg("at_once") = 0, py::arg("helper") = "")
        .def_readonly("upgrade", &BatchOptions::upgrade)
        .def_readonly("queue_depth", &BatchOptions::queue_depth)
        .def_readonly("eeprom_bytes", &BatchOptions::eeprom_bytes)
        .def_readonly("restart", &BatchOptions::restart)
        .def_readonly("allow_downgrade", &BatchOptions::allow_downgrade)
        .def_readonly("plug_wait_s", &BatchOptions::plug_wait_s)
        .def_readonly("silence_s", &BatchOptions::silence_s)
        .def_readonly("at_once", &BatchOptions::at_once)
        .def_readonly("helper", &BatchOptions::helper);
    py::class_<BatchReport, engine::Report>(module, "BatchReport")
        .def_readonly("started", &BatchReport::started)
        .def_readonly("said", &BatchReport::said)
        .def_property_readonly("error", [](const py::object& self) {
            return error_of(self.cast<const BatchReport&>(), self);
        });
    module.def("run_batch", run_batch, py::arg("cameras"), py::arg("images"),
               py::arg_v("options", usual, "BatchOptions()"), py::arg("backups") = py::none(),
               py::arg("on_event") = py::none(), py::arg("stop") = py::none());
}

} // namespace nyxus::python
