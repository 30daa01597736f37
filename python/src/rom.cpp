// SPDX-License-Identifier: Apache-2.0
// The external ROM: reading, plans, changes, backups.
#include "camera.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

namespace nyxus::python {

namespace {

using engine::Backups;
using engine::Caller;
using engine::Images;
using engine::Report;
using engine::UpgradeOptions;

/// A plan without the bytes, which belong to images and ROM.
struct PlannedStep {
    engine::Action action;
    uint32_t address;
    uint32_t size;
};
struct PlannedPart {
    std::string name;
    uint32_t address;
    uint32_t size;
    std::string why;
    std::string text;
};
struct Planned {
    std::vector<PlannedStep> steps;
    std::vector<PlannedPart> kept;
    std::vector<PlannedPart> replaced;
    std::vector<PlannedPart> lost;
    std::vector<PlannedPart> unreachable;
    engine::Cost cost;
    bool up_to_date = false;
};

std::vector<PlannedPart> without_bytes(const std::vector<engine::Part>& parts)
{
    std::vector<PlannedPart> planned;
    for (const engine::Part& part : parts)
        planned.push_back({part.name, part.address, part.size, part.why, to_text(part)});
    return planned;
}

/// Images are taken as copies: another thread may change the caller's meanwhile.
class Rom {
public:
    explicit Rom(SharedCamera camera) : camera_(std::move(camera)) {}

    const CameraFacts& facts() const { return camera_->facts(); }

    uint32_t readable_bytes() const
    {
        return camera_->ask([](engine::Camera& camera) { return engine::readable_bytes(camera); });
    }

    py::bytes read(int64_t address, int64_t size, bool twice, const py::object& on_event,
                   const py::object& stop) const
    {
        const auto from = in_range<uint32_t>(address, 0, UINT32_MAX, "the address");
        const auto bytes = in_range<uint32_t>(size, 0, UINT32_MAX, "the size");
        return to_bytes(
            camera_->finish(on_event, stop, [=](engine::Camera& camera, const Caller& caller) {
                return twice ? engine::read_rom_twice(camera, from, bytes, caller)
                             : engine::read_rom(camera, from, bytes, caller);
            }));
    }

    engine::Difference compare(Images images, const py::object& on_event,
                               const py::object& stop) const
    {
        const Bytes expected = images.firmware.bytes();
        const std::vector<uint8_t> found =
            camera_->finish(on_event, stop, [=](engine::Camera& camera, const Caller& caller) {
                return engine::read_back(camera, 0, expected, caller);
            });
        return engine::find_difference(found, expected);
    }

    Planned plan(Images images, const UpgradeOptions& options, const py::object& on_event,
                 const py::object& stop) const
    {
        return camera_->finish(
            on_event, stop,
            [&](engine::Camera& camera, const Caller& caller) -> engine::Result<Planned> {
                if (engine::Status usable = check(camera, images); !usable)
                    return usable;
                auto before =
                    engine::read_rom(camera, 0, engine::bytes_before(camera, options), caller);
                if (!before)
                    return before.status();
                return planned(camera, images, options, *before);
            });
    }

    py::object upgrade(Images images, const UpgradeOptions& options,
                       const std::optional<Backups>& backups, const py::object& on_event,
                       const py::object& stop) const
    {
        return change(on_event, stop, [&](engine::Camera& camera, const Caller& caller) {
            return engine::upgrade(camera, images, options, backups.value_or(Backups()), caller);
        });
    }

    py::object recover(const std::filesystem::path& file, bool although_healthy,
                       const UpgradeOptions& wanted, const std::optional<Backups>& backups,
                       const py::object& on_event, const py::object& stop) const
    {
        UpgradeOptions options = wanted;
        options.always = true;
        options.operation = "recover";
        const Backups kept = backups.value_or(Backups());
        return change(on_event, stop, [&](engine::Camera& camera, const Caller& caller) {
            const auto found = engine::find_recovery(camera, kept, file.string(), although_healthy);
            if (!found)
                return Report{found.status()};
            return engine::upgrade(camera, found->images, options, kept, caller);
        });
    }

    py::object write(int64_t address, const py::buffer& data, const UpgradeOptions& wanted,
                     const std::optional<Backups>& backups, const py::object& on_event,
                     const py::object& stop) const
    {
        UpgradeOptions options = wanted;
        options.keep = engine::Keep::kWhole;
        options.operation = "write";
        const std::vector<uint8_t> bytes = bytes_of(data);
        const auto from = in_range<uint32_t>(address, 0, engine::kRomBlock, "the address");
        return change(on_event, stop, [&](engine::Camera& camera, const Caller& caller) {
            const auto images = patched(camera, from, bytes, caller);
            if (!images)
                return Report{images.status()};
            return engine::upgrade(camera, *images, options, backups.value_or(Backups()), caller);
        });
    }

    py::object erase(bool backup, const std::optional<Backups>& backups, const py::object& on_event,
                     const py::object& stop) const
    {
        return change(on_event, stop, [&](engine::Camera& camera, const Caller& caller) {
            if (engine::Status erasable = engine::check_erasable(camera); !erasable)
                return Report{std::move(erasable)};
            return engine::erase(camera, backups.value_or(Backups()), caller, backup);
        });
    }

    py::bytes read_reserved() const
    {
        return to_bytes(
            camera_->call([](engine::Camera& camera) { return camera.rom().read_reserved(); }));
    }

    engine::RomHistory history(const std::optional<Backups>& backups) const
    {
        return camera_->ask(
            [&](engine::Camera& camera) { return backups.value_or(Backups()).history(camera); });
    }

    void check_images(const Images& images) const
    {
        camera_->call([&](engine::Camera& camera) { return check(camera, images); });
    }

    Images choose_images(const std::vector<engine::ChipImages>& all, bool allow_downgrade) const
    {
        return camera_
            ->call([&](engine::Camera& camera) {
                return engine::choose_images(all, camera, allow_downgrade);
            })
            ->images;
    }

    void check_reports(const Images& images) const
    {
        camera_->call(
            [&](engine::Camera& camera) { return engine::check_reports(camera, images); });
    }

    std::vector<engine::Backup> candidates(const Backups& backups) const
    {
        return camera_->ask([&](engine::Camera& camera) { return backups.candidates(camera); });
    }

    engine::Backup latest(const Backups& backups) const
    {
        return camera_->call([&](engine::Camera& camera) { return backups.latest(camera); });
    }

private:
    engine::Status check(engine::Camera& camera, const Images& images) const
    {
        engine::Status known = camera.require_rom(camera_->eeprom_bytes());
        return known ? engine::check_images(camera, images) : known;
    }

    static Planned planned(engine::Camera& camera, const Images& images,
                           const UpgradeOptions& options, Bytes before)
    {
        const engine::Plan plan = engine::plan_upgrade(camera, images, options, before);
        Planned result{.steps = {},
                       .kept = without_bytes(plan.kept),
                       .replaced = without_bytes(plan.replaced),
                       .lost = without_bytes(plan.lost),
                       .unreachable = without_bytes(plan.unreachable),
                       .cost = {},
                       .up_to_date = !options.always && is_up_to_date(plan, before)};
        for (const engine::Step& step : plan.steps) {
            result.steps.push_back({step.action, step.address, step.size});
            result.cost += engine::cost_of(camera, step);
        }
        return result;
    }

    /// What the ROM holds, but for these bytes.
    static engine::Result<Images> patched(engine::Camera& camera, uint32_t address, Bytes bytes,
                                          const Caller& caller)
    {
        auto rom = engine::read_rom_twice(camera, 0, engine::replaced_bytes(camera), caller);
        if (!rom)
            return rom.status();
        if (address > rom->size() || bytes.size() > rom->size() - address) {
            return engine::Status(engine::Reason::kWrongImage,
                                  "the bytes reach beyond the end of the ROM; nothing was written");
        }
        std::ranges::copy(bytes, rom->begin() + address);
        auto firmware = engine::Firmware::exactly(*std::move(rom));
        if (!firmware)
            return firmware.status();
        return Images{.firmware = *std::move(firmware), .patched = true};
    }

    template <typename Function>
    py::object change(const py::object& on_event, const py::object& stop, Function&& function) const
    {
        Work work(stop);
        const Report report =
            camera_->run(work, on_event, [&](engine::Camera& camera, const Caller& caller) {
                engine::Status known = camera.require_rom(camera_->eeprom_bytes());
                return known ? function(camera, caller) : Report{std::move(known)};
            });
        return value_of(report, work);
    }

    SharedCamera camera_;
};

void add_plan(py::module_& module)
{
    py::class_<UpgradeOptions>(module, "UpgradeOptions")
        .def(py::init([](bool always, bool backup, bool verify, unsigned wait_s, engine::Keep keep,
                         bool discard_mfi, bool discard_reserved) {
                 return UpgradeOptions{.always = always,
                                       .backup = backup,
                                       .verify = verify,
                                       .wait_s = wait_s,
                                       .keep = keep,
                                       .discard = {discard_mfi, discard_reserved}};
             }),
             py::kw_only(), py::arg("always") = false, py::arg("backup") = true,
             py::arg("verify") = true, py::arg("wait_s") = 5,
             py::arg("keep") = engine::Keep::kFirst64K, py::arg("discard_mfi") = false,
             py::arg("discard_reserved") = false)
        .def_readonly("always", &UpgradeOptions::always)
        .def_readonly("backup", &UpgradeOptions::backup)
        .def_readonly("verify", &UpgradeOptions::verify)
        .def_readonly("wait_s", &UpgradeOptions::wait_s)
        .def_readonly("keep", &UpgradeOptions::keep)
        .def_property_readonly("discard_mfi", [](const UpgradeOptions& o) { return o.discard.mfi; })
        .def_property_readonly("discard_reserved",
                               [](const UpgradeOptions& o) { return o.discard.reserved; });
    py::class_<PlannedStep>(module, "Step")
        .def_readonly("action", &PlannedStep::action)
        .def_readonly("address", &PlannedStep::address)
        .def_readonly("size", &PlannedStep::size);
    py::class_<PlannedPart>(module, "Part")
        .def_readonly("name", &PlannedPart::name)
        .def_readonly("address", &PlannedPart::address)
        .def_readonly("size", &PlannedPart::size)
        .def_readonly("why", &PlannedPart::why)
        .def("__str__", [](const PlannedPart& self) { return self.text; });
    py::class_<Planned>(module, "Plan")
        .def_readonly("steps", &Planned::steps)
        .def_readonly("kept", &Planned::kept)
        .def_readonly("replaced", &Planned::replaced)
        .def_readonly("lost", &Planned::lost)
        .def_readonly("unreachable", &Planned::unreachable)
        .def_readonly("up_to_date", &Planned::up_to_date)
        .def_property_readonly("transfers", [](const Planned& self) { return self.cost.transfers; })
        .def_property_readonly("pauses_s", [](const Planned& self) { return self.cost.pauses_s; });
    py::class_<engine::Difference>(module, "Difference")
        .def_readonly("count", &engine::Difference::count)
        .def_readonly("first_offsets", &engine::Difference::first_offsets);
}

void add_report(py::module_& module)
{
    py::class_<Report>(module, "Report")
        .def_readonly("rom", &Report::rom)
        .def_readonly("up_to_date", &Report::up_to_date)
        .def_readonly("stopped", &Report::stopped)
        .def_readonly("left_unlocked", &Report::left_unlocked)
        .def_readonly("backup", &Report::backup)
        .def_readonly("bytes", &Report::bytes)
        .def_readonly("version_before", &Report::version_before)
        .def_readonly("version_after", &Report::version_after)
        .def_readonly("kept", &Report::kept)
        .def("__repr__", [](const Report& self) {
            return std::string("<nyxus.Report rom=") + to_text(self.rom) +
                   (self.up_to_date ? " up_to_date" : "") + (self.stopped ? " stopped" : "") + ">";
        });
}

} // namespace

py::object value_of(const Report& report, const Work& work)
{
    py::object result = py::cast(report);
    if (work.interrupted) {
        py::error_already_set interrupted(*work.interrupted);
        interrupted.value().attr("report") = result;
        throw interrupted;
    }
    if (const py::object error = error_of(report, result); !error.is_none())
        raise(error);
    return result;
}

void add_backups(py::module_& module)
{
    using engine::Backup;
    using engine::RomHistory;
    py::class_<Backup>(module, "Backup")
        .def_readonly("name", &Backup::name)
        .def_readonly("file", &Backup::file)
        .def_readonly("sequence", &Backup::sequence)
        .def_readonly("time", &Backup::time)
        .def_readonly("chip", &Backup::chip)
        .def_readonly("serial", &Backup::serial)
        .def_readonly("port", &Backup::port)
        .def_readonly("running", &Backup::running)
        .def_readonly("bytes", &Backup::bytes)
        .def_readonly("sha256", &Backup::sha256)
        .def_readonly("started", &Backup::started)
        .def_readonly("how", &Backup::how);
    py::class_<RomHistory>(module, "RomHistory")
        .def_readonly("rom", &RomHistory::rom)
        .def_readonly("since", &RomHistory::since)
        .def_readonly("operation", &RomHistory::operation)
        .def_readonly("backup", &RomHistory::backup)
        .def_readonly("certain", &RomHistory::certain)
        .def_property_readonly("needs_care", &RomHistory::needs_care)
        .def("__str__", &RomHistory::sentence);
    py::class_<Backups>(module, "Backups")
        .def(py::init<>())
        .def(py::init<std::filesystem::path>(), py::arg("folder"))
        .def_property_readonly("state_folder", &Backups::state_folder)
        .def("list", [](const Backups& self) { return blocking([&] { return self.list(); }); })
        .def(
            "list",
            [](const Backups& self, const CameraInfo& camera) {
                return blocking([&] { return self.list(camera); });
            },
            py::arg("camera"))
        .def(
            "find",
            [](const Backups& self, const std::string& name) {
                return blocking([&] { return self.find(name); });
            },
            py::arg("name"))
        .def(
            "latest",
            [](const Backups& self, const SharedCamera& camera) {
                return Rom(camera).latest(self);
            },
            py::arg("camera"))
        .def(
            "candidates",
            [](const Backups& self, const SharedCamera& camera) {
                return Rom(camera).candidates(self);
            },
            py::arg("camera"))
        .def(
            "read",
            [](const Backups& self, const Backup& backup) {
                return to_bytes(blocking([&] { return self.read(backup); }));
            },
            py::arg("backup"))
        .def(
            "prune",
            [](const Backups& self, unsigned keep, bool only_tell) {
                return blocking([&] { return self.prune(keep, only_tell); });
            },
            py::arg("keep"), py::arg("only_tell") = false)
        .def(
            "history",
            [](const Backups& self, const CameraInfo& camera) { return self.history(camera); },
            py::arg("camera"));
}

void add_rom(py::module_& module, CameraClass& camera)
{
    add_plan(module);
    add_report(module);
    const auto none = [](const char* name) { return py::arg_v(name, py::none(), "None"); };
    const auto options = [] { return py::arg_v("options", UpgradeOptions{}, "UpgradeOptions()"); };
    py::class_<Rom>(module, "Rom")
        .def_property_readonly("size", [](const Rom& self) { return self.facts().rom_size; })
        .def_property_readonly("has_spi_flash",
                               [](const Rom& self) { return self.facts().has_spi_flash; })
        .def_property_readonly("readable_bytes", &Rom::readable_bytes)
        .def("read", &Rom::read, py::arg("address"), py::arg("size"), py::arg("twice") = false,
             none("on_event"), none("stop"))
        .def(
            "dump",
            [](const Rom& self, const py::object& on_event, const py::object& stop) {
                return self.read(0, self.facts().rom_size, false, on_event, stop);
            },
            none("on_event"), none("stop"))
        .def("compare", &Rom::compare, py::arg("images"), none("on_event"), none("stop"))
        .def("check_images", &Rom::check_images, py::arg("images"))
        .def("choose_images", &Rom::choose_images, py::arg("all"),
             py::arg("allow_downgrade") = false)
        .def("check_reports", &Rom::check_reports, py::arg("images"))
        .def("plan", &Rom::plan, py::arg("images"), options(), none("on_event"), none("stop"))
        .def("upgrade", &Rom::upgrade, py::arg("images"), options(), none("backups"),
             none("on_event"), none("stop"))
        .def("recover", &Rom::recover, py::arg("file") = "", py::arg("although_healthy") = false,
             options(), none("backups"), none("on_event"), none("stop"))
        .def("write", &Rom::write, py::arg("address"), py::arg("data"), options(), none("backups"),
             none("on_event"), none("stop"))
        .def("erase", &Rom::erase, py::arg("backup") = true, none("backups"), none("on_event"),
             none("stop"))
        .def("read_reserved", &Rom::read_reserved)
        .def("history", &Rom::history, none("backups"));
    camera.def_property_readonly("rom", [](const SharedCamera& self) { return Rom(self); });
}

} // namespace nyxus::python
