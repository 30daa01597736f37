// SPDX-License-Identifier: Apache-2.0
#include "camera.h"

#include <pybind11/stl.h>

#include <nyxus/flash.h>
#include <nyxus/trace.h>

#include <limits>
#include <variant>

namespace nyxus::python {

namespace {

/// To be closed while the interpreter ends.
std::vector<std::weak_ptr<OpenCamera>>& open_cameras()
{
    static std::vector<std::weak_ptr<OpenCamera>> cameras;
    return cameras;
}

SharedCamera remember(SharedCamera camera)
{
    std::erase_if(open_cameras(), [](const auto& known) { return known.expired(); });
    open_cameras().push_back(camera);
    return camera;
}

void close_all()
{
    for (const auto& known : std::vector(open_cameras())) {
        try {
            if (const SharedCamera camera = known.lock())
                camera->close();
        } catch (py::error_already_set& error) {
            error.discard_as_unraisable("closing a camera");
        }
    }
    WithoutLock::leave();
}

/// A camera that is called this, or is this.
CameraInfo find(const std::variant<std::string, CameraInfo>& camera)
{
    if (const auto* info = std::get_if<CameraInfo>(&camera))
        return *info;
    return blocking([&] { return find_camera(std::get<std::string>(camera)); });
}

/// The camera, with its ROM taken for what the caller says if nobody else knows.
engine::Result<engine::Camera> with_rom(engine::Camera camera, uint32_t eeprom_bytes)
{
    if (eeprom_bytes > 0) {
        if (engine::Status known = camera.require_rom(eeprom_bytes); !known)
            return known;
    }
    return camera;
}

SharedCamera open(const std::variant<std::string, CameraInfo>& camera, engine::Use use,
                  int64_t eeprom_bytes)
{
    const CameraInfo info = find(camera);
    const auto size = in_range<uint32_t>(eeprom_bytes, 0, 0x8000, "eeprom_bytes");
    auto opened = [&]() -> engine::Result<engine::Camera> {
        const WithoutLock unlocked;
        auto result = engine::Camera::open(info, use);
        return result ? with_rom(*std::move(result), size) : std::move(result);
    }();
    return remember(std::make_shared<OpenCamera>(value_of(std::move(opened)), size));
}

std::vector<CameraInfo> wait_for_cameras(const std::string& name, unsigned wait_s,
                                         const py::object& on_event, const py::object& stop)
{
    Work work(stop);
    auto found = run(work, on_event, [&](const engine::Caller& caller) {
        return engine::wait_for_cameras(name, wait_s, caller);
    });
    if (work.interrupted)
        throw py::error_already_set(*work.interrupted);
    return value_of(std::move(found));
}

/// Ends by its own stop(), too.
class Watch {
public:
    explicit Watch(std::shared_ptr<Stop> stop)
        : stop_(stop ? std::move(stop) : std::make_shared<Stop>())
    {
    }

    /// Nothing when it is stopped.
    std::optional<CameraEvent> wait(double timeout_s)
    {
        constexpr uint32_t kGlance_ms = 100;
        const auto end = deadline_after(timeout_s);
        for (bool is_over = false;; is_over = Clock::now() >= end) {
            if (stop_->requested())
                return std::nullopt;
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();
            auto event = [&] {
                const WithoutLock unlocked;
                return watch_.next(is_over ? 0 : kGlance_ms);
            }();
            if (event)
                return *std::move(event);
            if (event.status().reason() != Reason::kTimedOut || is_over)
                raise(error_of(event.status()));
        }
    }

    CameraEvent next(double timeout_s)
    {
        if (auto event = wait(timeout_s))
            return *std::move(event);
        raise(error_of(Status(Reason::kStopped, "stopped")));
    }

    CameraEvent iterate()
    {
        if (auto event = wait(std::numeric_limits<double>::infinity()))
            return *std::move(event);
        throw py::stop_iteration();
    }

    void stop() { stop_->request(); }

private:
    std::shared_ptr<Stop> stop_;
    CameraWatch watch_;
};

auto key(const CameraInfo& info)
{
    return std::tie(info.bus, info.address, info.port_path, info.serial);
}

void add_camera_info(py::module_& module)
{
    py::class_<CameraInfo>(module, "CameraInfo")
        .def_readonly("bus", &CameraInfo::bus)
        .def_readonly("address", &CameraInfo::address)
        .def_readonly("port_path", &CameraInfo::port_path)
        .def_property_readonly(
            "serial",
            [](const CameraInfo& info) {
                return py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
                    info.serial.data(), static_cast<Py_ssize_t>(info.serial.size()), "replace"));
            })
        .def_property_readonly(
            "product",
            [](const CameraInfo& info) {
                return py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
                    info.product.data(), static_cast<Py_ssize_t>(info.product.size()), "replace"));
            })
        .def_property_readonly("bus_address", &CameraInfo::bus_address)
        .def("matches", &CameraInfo::matches, py::arg("name"))
        .def("__eq__", [](const CameraInfo& a, const CameraInfo& b) { return key(a) == key(b); })
        .def("__eq__", [](const CameraInfo&, const py::object&) { return false; })
        .def("__hash__",
             [](const CameraInfo& info) {
                 return py::hash(py::make_tuple(info.bus, info.address, info.port_path));
             })
        .def("__repr__", [](const CameraInfo& info) {
            return "<nyxus.CameraInfo " + info.bus_address() + " port=" + info.port_path +
                   " serial=" + info.serial + ">";
        });
}

} // namespace

OpenCamera::OpenCamera(engine::Camera camera, uint32_t eeprom_bytes)
    : camera_(std::move(camera)), eeprom_bytes_(eeprom_bytes)
{
    look();
}

OpenCamera::~OpenCamera()
{
    free_left_streams();
}

void OpenCamera::close()
{
    if (is_closed_)
        return;
    const Turn turn(*this, true);
    is_closed_ = true;
    const WithoutLock unlocked;
    camera_.reset();
}

void OpenCamera::restart(unsigned wait_s, const engine::Backups& backups,
                         const py::object& on_event, const py::object& stop)
{
    Work work(stop);
    auto back = run(work, on_event, [&](engine::Camera& camera, const engine::Caller& caller) {
        auto restarted = engine::restart(std::move(camera), wait_s, backups, caller);
        return restarted ? with_rom(*std::move(restarted), eeprom_bytes_) : std::move(restarted);
    });
    if (back) {
        *camera_ = *std::move(back);
        is_closed_ = false;
        look();
    }
    if (work.interrupted)
        throw py::error_already_set(*work.interrupted);
    if (!back)
        raise(error_of(back.status()));
}

void OpenCamera::leave(NyStream* stream)
{
    left_.push_back(stream);
    if (!mutex_.try_lock())
        return;
    free_left_streams();
    mutex_.unlock();
}

void OpenCamera::free_left_streams()
{
    for (NyStream* stream : std::exchange(left_, {}))
        nyxus_stream_free(stream);
}

/// Learns anew what is known. One that was lost, and has not come back, is closed.
void OpenCamera::look()
{
    is_closed_ = camera_->device() == nullptr;
    if (is_closed_)
        return;
    const engine::Camera& camera = *camera_;
    facts_ = {camera.info(),
              camera.chip(),
              camera.family(),
              camera.internal_version(),
              camera.setfile_version(),
              camera.name(),
              camera.version(),
              camera.running(),
              camera.firmware_sentence(),
              camera.firmware_version(),
              camera.runs_external_firmware(),
              camera.has_spi_flash(),
              camera.rom_size(),
              camera.rom_state(),
              camera.flash(),
              camera.device()->wExtSensorApId,
              camera.xu_version(),
              camera.device()->xFeatureEM != 0};
}

OpenCamera::Turn::Turn(OpenCamera& camera, bool also_closed) : camera_(camera)
{
    constexpr std::chrono::milliseconds kSignals{50};
    if (camera.owner_ == std::this_thread::get_id())
        raise_busy("the camera is being worked on: a callback of its events cannot use it");
    while (!camera.mutex_.try_lock()) {
        {
            const WithoutLock unlocked;
            if (camera.mutex_.try_lock_for(kSignals))
                break;
        }
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
    }
    if (camera.is_closed_ && !also_closed) {
        camera.mutex_.unlock();
        throw py::value_error("the camera has been closed");
    }
    camera.owner_ = std::this_thread::get_id();
    camera.free_left_streams();
}

OpenCamera::Turn::~Turn()
{
    camera_.owner_ = std::thread::id();
    camera_.mutex_.unlock();
}

CameraClass add_cameras(py::module_& module)
{
    add_camera_info(module);
    py::class_<Flash>(module, "Flash")
        .def_readonly("name", &Flash::name)
        .def_property_readonly("id", [](const Flash& self) { return to_bytes(self.id); })
        .def_readonly("part_bytes", &Flash::part_bytes);
    module.def("version", &nyxus::version);
    module.def("set_trace", NyTraceVerbose_level, py::arg("level"));
    module.def("list_cameras", [] { return blocking(list_cameras); });
    module.def(
        "find_camera", [](const std::string& name) { return find(name); }, py::arg("name") = "");
    module.def("wait_for_cameras", wait_for_cameras, py::arg("name") = "", py::arg("wait_s") = 60,
               py::arg("on_event") = py::none(), py::arg("stop") = py::none());

    py::class_<CameraEvent>(module, "CameraEvent")
        .def_readonly("here", &CameraEvent::here)
        .def_readonly("camera", &CameraEvent::camera)
        .def("__repr__", [](const CameraEvent& self) {
            return std::string("<nyxus.CameraEvent ") + (self.here ? "here " : "gone ") +
                   self.camera.bus_address() + ">";
        });
    py::class_<Watch>(module, "CameraWatch")
        .def(py::init<std::shared_ptr<Stop>>(), py::arg("stop") = py::none())
        .def("next", &Watch::next, py::arg("timeout_s"))
        .def("__iter__", [](const py::object& self) { return self; })
        .def("__next__", &Watch::iterate)
        .def("stop", &Watch::stop);

    CameraClass camera(module, "Camera");
    const auto fact = [&camera](const char* name, auto member) {
        camera.def_property_readonly(
            name, [member](const OpenCamera& self) { return self.facts().*member; });
    };
    fact("info", &CameraFacts::info);
    fact("chip", &CameraFacts::chip);
    fact("family", &CameraFacts::family);
    fact("internal_version", &CameraFacts::internal_version);
    fact("setfile_version", &CameraFacts::setfile_version);
    fact("name", &CameraFacts::name);
    fact("version", &CameraFacts::version);
    fact("running", &CameraFacts::running);
    fact("firmware_sentence", &CameraFacts::firmware_sentence);
    fact("firmware_version", &CameraFacts::firmware_version);
    fact("runs_external_firmware", &CameraFacts::runs_external_firmware);
    fact("rom_state", &CameraFacts::rom_state);
    fact("flash", &CameraFacts::flash);
    fact("sensor_application", &CameraFacts::sensor_application);
    fact("xu_version", &CameraFacts::xu_version);
    fact("has_memory_extension", &CameraFacts::has_memory_extension);
    camera.def_property_readonly("closed", &OpenCamera::is_closed)
        .def("close", &OpenCamera::close)
        .def("__enter__", [](const py::object& self) { return self; })
        .def("__exit__", [](OpenCamera& self, const py::args&) { self.close(); })
        .def("__repr__",
             [](const OpenCamera& self) {
                 return "<nyxus.Camera " + self.facts().name +
                        (self.is_closed() ? ", closed>" : ">");
             })
        .def(
            "restart",
            [](OpenCamera& self, unsigned wait_s, const std::optional<engine::Backups>& backups,
               const py::object& on_event, const py::object& stop) {
                self.restart(wait_s, backups.value_or(engine::Backups()), on_event, stop);
            },
            py::arg("wait_s") = 30, py::arg("backups") = py::none(),
            py::arg("on_event") = py::none(), py::arg("stop") = py::none())
        .def(
            "check_started",
            [](OpenCamera& self, const std::optional<engine::Backups>& backups) {
                self.call([&](engine::Camera& used) {
                    return engine::check_started(used, backups.value_or(engine::Backups()));
                });
            },
            py::arg("backups") = py::none());
    module.def("open", open, py::arg("camera") = "", py::arg("use") = engine::Use::kAnything,
               py::arg("eeprom_bytes") = 0);
    py::module_::import("atexit").attr("register")(py::cpp_function(close_all));
    return camera;
}

} // namespace nyxus::python
