// SPDX-License-Identifier: Apache-2.0
// An open camera, which several threads of Python may hold: one of them at a time uses it.
#pragma once

#include "work.h"

#include <atomic>
#include <thread>

namespace nyxus::python {

/// What is known of a camera without asking it: for any thread, also while another one works.
struct CameraFacts {
    CameraInfo info;
    std::string chip;
    std::string family;
    std::string internal_version;
    std::string setfile_version;
    std::string name;
    std::string version;
    std::string running;
    std::string firmware_sentence;
    uint16_t firmware_version = 0;
    bool runs_external_firmware = false;
    bool has_spi_flash = false;
    uint32_t rom_size = 0;
    RomState rom_state = RomState::kUnknown;
    std::optional<Flash> flash;
    uint16_t sensor_application = 0;
    std::optional<uint16_t> xu_version;
    bool has_memory_extension = false;
};

/// Members are for threads that hold the interpreter's lock, unless said otherwise.
class OpenCamera {
public:
    /// A ROM that nobody has identified is taken for an EEPROM of this size, unless that is 0.
    OpenCamera(engine::Camera camera, uint32_t eeprom_bytes);
    ~OpenCamera();
    OpenCamera(const OpenCamera&) = delete;
    OpenCamera& operator=(const OpenCamera&) = delete;

    const CameraFacts& facts() const { return facts_; }
    uint32_t eeprom_bytes() const { return eeprom_bytes_; }
    void close();
    bool is_closed() const { return is_closed_; }

    /// A short call: function(engine::Camera&), without the interpreter's lock; its value, or an
    /// exception for its failure.
    template <typename Function>
    auto call(Function&& function)
    {
        const Turn turn(*this);
        return value_of(without_lock(function));
    }

    /// The same for what returns a value that is no Result.
    template <typename Function>
    auto ask(Function&& function)
    {
        const Turn turn(*this);
        return without_lock(function);
    }

    /// Work that takes its time: function(engine::Camera&, const engine::Caller&). What has
    /// interrupted it is in `work`.
    template <typename Function>
    auto run(Work& work, const py::object& on_event, Function&& function)
    {
        const Turn turn(*this);
        auto result = python::run(work, on_event, [&](const engine::Caller& caller) {
            return function(*camera_, caller);
        });
        look();
        return result;
    }

    /// The same, where nothing is to be told of an interrupt but that there was one.
    template <typename Function>
    auto finish(const py::object& on_event, const py::object& stop, Function&& function)
    {
        Work work(stop);
        auto result = run(work, on_event, function);
        if (work.interrupted)
            throw py::error_already_set(*work.interrupted);
        return value_of(std::move(result));
    }

    /// Restarts it; it is this object's again when it is back, and closed when it is not.
    void restart(unsigned wait_s, const engine::Backups& backups, const py::object& on_event,
                 const py::object& stop);

    /// Frees a stream of its, now or before whatever is done next: nobody waits for it any more.
    void leave(NyStream* stream);

private:
    /// This thread's turn. Waits for others, without the interpreter's lock, and is open to
    /// signals meanwhile. ValueError for a camera that is closed.
    class Turn {
    public:
        explicit Turn(OpenCamera& camera, bool also_closed = false);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        OpenCamera& camera_;
    };

    template <typename Function>
    auto without_lock(Function& function)
    {
        const WithoutLock unlocked;
        return function(*camera_);
    }

    void look();
    void free_left_streams();

    std::optional<engine::Camera> camera_;
    uint32_t eeprom_bytes_;
    CameraFacts facts_;
    bool is_closed_ = false;
    std::timed_mutex mutex_;
    std::atomic<std::thread::id> owner_;
    std::vector<NyStream*> left_;
};

using SharedCamera = std::shared_ptr<OpenCamera>;
using CameraClass = py::class_<OpenCamera, SharedCamera>;

CameraClass add_cameras(py::module_& module);
void add_features(py::module_& module, CameraClass& camera);
void add_images(py::module_& module);
void add_backups(py::module_& module);
void add_rom(py::module_& module, CameraClass& camera);
void add_batch(py::module_& module);
void add_video(py::module_& module, CameraClass& camera);

/// What Python knows of how a change of the ROM ended, or the exception for it.
py::object value_of(const engine::Report& report, const Work& work);

} // namespace nyxus::python
