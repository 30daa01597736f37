// SPDX-License-Identifier: Apache-2.0
#include "bus/bed.h"

#include "bus/alarms.h"
#include "bus/event_lock.h"
#include "bus/registry.h"
#include "bus/temp_folder.h"
#include "bus/virtual_time.h"
#include "text/printable.h"
#include "usb/descriptors.h"

#include <sys/stat.h>
#include <umockdev.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>

namespace sim {

namespace {

// Long enough for the host to read the answer of the transfer that asked for the restart.
constexpr auto kRestartDelay = std::chrono::milliseconds(3);
constexpr unsigned kHighestBus = 64;

std::atomic<Bed*> active_bed{nullptr};

} // namespace

PluggedCamera::PluggedCamera(std::shared_ptr<UsbCamera> camera, const Place& place)
    : camera_(std::move(camera)), place_(place)
{
}

unsigned PluggedCamera::address() const
{
    const std::lock_guard lock(place_mutex_);
    return place_.address;
}

unsigned PluggedCamera::port() const
{
    const std::lock_guard lock(place_mutex_);
    return place_.port;
}

int PluggedCamera::control(const Setup& setup, std::span<uint8_t> data)
{
    const std::lock_guard lock(camera_->mutex());
    if (!is_plugged_)
        return -ENODEV;
    const Outcome outcome = camera_->control(setup, data);
    if (outcome.kind != Outcome::Kind::kFinished || outcome.restart)
        return -EIO;
    return outcome.status != 0 ? outcome.status : static_cast<int>(outcome.moved);
}

std::vector<Transfer> PluggedCamera::transfers()
{
    const std::lock_guard lock(camera_->mutex());
    return camera_->transfers();
}

void PluggedCamera::clear_transfers()
{
    const std::lock_guard lock(camera_->mutex());
    camera_->clear_transfers();
}

void PluggedCamera::set_tracing(bool on)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->set_tracing(on);
}

void PluggedCamera::set_fault(FaultHook hook)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->set_fault(std::move(hook));
}

StreamState PluggedCamera::stream()
{
    const std::lock_guard lock(camera_->mutex());
    return camera_->stream().state();
}

std::optional<StreamFormat> PluggedCamera::stream_format()
{
    const std::lock_guard lock(camera_->mutex());
    return camera_->stream().format();
}

VideoControls PluggedCamera::video_controls()
{
    const std::lock_guard lock(camera_->mutex());
    return camera_->video();
}

void PluggedCamera::set_frame_fault(FrameFaultHook hook)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->stream().set_fault(std::move(hook));
}

void PluggedCamera::set_pacing(Pacing pacing)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->stream().set_pacing(pacing);
}

void PluggedCamera::add_observer(UsbObserver& observer)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->observers().add(observer);
    if (is_plugged_)
        observer.plugged(*camera_, place_.bus, address());
}

void PluggedCamera::remove_observer(UsbObserver& observer)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->observers().remove(observer);
}

bool PluggedCamera::is_plugged() const
{
    const std::lock_guard lock(camera_->mutex());
    return is_plugged_;
}

void PluggedCamera::arrived()
{
    const std::lock_guard lock(camera_->mutex());
    is_plugged_ = true;
    camera_->observers().tell(&UsbObserver::plugged, *camera_, place_.bus, address());
}

void PluggedCamera::left(Departure reason)
{
    const std::lock_guard lock(camera_->mutex());
    is_plugged_ = false;
    camera_->observers().tell(&UsbObserver::left, reason);
}

struct Bed::State {
    struct Task {
        PluggedCamera* camera;
        BusEvent event;
        unsigned address; ///< that the camera had when it was asked for; kReplug: none
        std::chrono::steady_clock::time_point due;
    };

    explicit State(Clock& bed_clock);
    ~State();

    void add_root_hub(unsigned bus);
    Place free_place(unsigned bus);
    unsigned next_address(unsigned bus);
    void attach(PluggedCamera& camera);
    void detach(PluggedCamera& camera, Departure reason);
    void unlist(PluggedCamera& camera);
    bool is_taken(const PluggedCamera& newcomer, unsigned port) const;
    void come_back(PluggedCamera& camera, Departure reason, unsigned port);
    void add_entry(const std::string& entry);

    void set_faults(PluggedCamera& camera, unsigned position, const FaultPlan& plan);
    void strike_by_clock(PluggedCamera& camera, const std::weak_ptr<FaultEngine>& planned);
    void replug_after(PluggedCamera& camera, uint64_t delay_us);

    void request(PluggedCamera& camera, unsigned address, BusEvent event);
    void work();
    void perform(const Task& task);

    Clock& clock;
    Alarms alarms;
    UMockdevTestbed* testbed = nullptr;
    std::string folder;
    files::Descriptor folder_lock;

    std::shared_ptr<UsbfsMemory> memory = std::make_shared<UsbfsMemory>(0);
    std::mutex mutex; ///< the buses; never taken under a camera's mutex
    std::list<std::unique_ptr<PluggedCamera>> cameras;
    std::map<unsigned, unsigned> last_address;

    std::mutex task_mutex;
    std::condition_variable task_change;
    std::deque<Task> tasks; ///< the first one is under way
    bool stopping = false;
    std::thread worker;
};

Bed::State::State(Clock& bed_clock) : clock(bed_clock), alarms(bed_clock)
{
    const ShortTempFolder temp_folder;
    remove_abandoned_beds(temp_folder.path());
    {
        // The folder is named after the time of day: while that stands still, names would repeat.
        const SuspendedVirtualClock real_time;
        testbed = umockdev_testbed_new();
    }
    gchar* root = umockdev_testbed_get_root_dir(testbed);
    folder = root;
    g_free(root);
    folder_lock = lock_bed(folder);
    worker = std::thread([this] { work(); });
}

Bed::State::~State()
{
    alarms.stop();
    {
        const std::lock_guard lock(task_mutex);
        stopping = true;
    }
    task_change.notify_all();
    worker.join();
    for (const auto& camera : cameras) {
        detach(*camera, Departure::kUnplugged);
        unlist(*camera);
    }
    g_object_unref(testbed);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

void Bed::State::add_entry(const std::string& entry)
{
    GError* error = nullptr;
    const files::Descriptor lock =
        lock_events(folder); // umockdev aborts when a socket vanishes while it sends
    if (umockdev_testbed_add_from_string(testbed, entry.c_str(), &error) == 0) {
        const std::string reason = error != nullptr ? error->message : "unknown reason";
        g_clear_error(&error);
        throw std::runtime_error("cannot add a device to the simulated bus: " + reason);
    }
}

void Bed::State::add_root_hub(unsigned bus)
{
    if (last_address.try_emplace(bus, 1).second)
        add_entry(root_hub_entry(bus));
}

unsigned Bed::State::next_address(unsigned bus)
{
    unsigned& last = last_address[bus];
    do {
        last = last >= kHighestAddress ? 2 : last + 1;
    } while (find_node(bus, last));
    return last;
}

Place Bed::State::free_place(unsigned bus)
{
    for (unsigned port = 1; port <= kPortsPerBus; ++port) {
        const bool taken = std::any_of(cameras.begin(), cameras.end(), [&](const auto& camera) {
            return camera->place_.bus == bus && camera->place_.port == port;
        });
        if (!taken)
            return {bus, port, next_address(bus)};
    }
    throw std::invalid_argument("no free port on the simulated bus");
}

// The node is there before the event tells of the device, so that nobody meets a half-made one.
void Bed::State::attach(PluggedCamera& camera)
{
    const Place place = camera.place_;
    const std::filesystem::path node = folder + node_path(place);
    std::filesystem::create_directories(node.parent_path());
    const std::vector<uint8_t> contents = node_contents(*camera.camera_);
    std::ofstream(node, std::ios::binary)
        .write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
    chmod(node.c_str(), 0666);

    camera.node_ = std::make_shared<UsbfsNode>(
        camera.camera_, place.address,
        [this, &camera, address = place.address](BusEvent event) {
            request(camera, address, event);
        },
        alarms);
    camera.node_->set_memory(memory);
    if (camera.has_kernel_driver_)
        camera.node_->add_driver();
    register_node(place.bus, place.address, camera.node_);
    camera.arrived();
    camera.listed_ = true;
    add_entry(camera_entry(*camera.camera_, place));
}

void Bed::State::detach(PluggedCamera& camera, Departure reason)
{
    if (camera.node_) {
        camera.node_->set_gone();
        camera.node_.reset();
        camera.left(reason);
    }
}

void Bed::State::unlist(PluggedCamera& camera)
{
    if (!std::exchange(camera.listed_, false))
        return;
    for (unsigned number = 0; number < kInterfaceCount; ++number)
        umockdev_testbed_remove_device(testbed, interface_path(camera.place_, number).c_str());
    const std::string path = sysfs_path(camera.place_);
    {
        const files::Descriptor lock = lock_events(folder);
        umockdev_testbed_uevent(testbed, path.c_str(), "remove");
    }
    umockdev_testbed_remove_device(testbed, path.c_str());
    std::error_code ignored;
    std::filesystem::remove(folder + node_path(camera.place_), ignored);
    unregister_node(camera.place_.bus, camera.place_.address);
}

// A camera that went unannounced holds its port: sysfs still shows it there.
bool Bed::State::is_taken(const PluggedCamera& newcomer, unsigned port) const
{
    return std::ranges::any_of(cameras, [&](const auto& other) {
        return other.get() != &newcomer && other->listed_ &&
               other->place_.bus == newcomer.place_.bus && other->place_.port == port;
    });
}

void Bed::State::come_back(PluggedCamera& camera, Departure reason, unsigned port)
{
    detach(camera, reason);
    unlist(camera);
    {
        const std::lock_guard lock(camera.camera_->mutex());
        if (reason == Departure::kRestart) {
            camera.camera_->restart();
        } else {
            camera.camera_->power_cycle();
        }
    }
    {
        const unsigned address = next_address(camera.place_.bus);
        const std::lock_guard lock(camera.place_mutex_);
        camera.place_.port = port;
        camera.place_.address = address;
    }
    attach(camera);
}

// Called under the camera's mutex, by whichever thread made the transfer.
void Bed::State::request(PluggedCamera& camera, unsigned address, BusEvent event)
{
    const std::lock_guard lock(task_mutex);
    const bool known = std::any_of(tasks.begin(), tasks.end(), [&](const Task& task) {
        return task.camera == &camera && task.address == address && task.event == event;
    });
    if (known)
        return;
    const auto delay = event == BusEvent::kRestart ? kRestartDelay : std::chrono::milliseconds(0);
    tasks.push_back({&camera, event, address, std::chrono::steady_clock::now() + delay});
    task_change.notify_all();
}

void Bed::State::work()
{
    std::unique_lock lock(task_mutex);
    for (;;) {
        task_change.wait(lock, [this] { return stopping || !tasks.empty(); });
        if (stopping)
            return;
        const Task task = tasks.front();
        task_change.wait_until(lock, task.due, [this] { return stopping; });
        lock.unlock();
        perform(task);
        lock.lock();
        tasks.pop_front();
        task_change.notify_all();
    }
}

void Bed::State::perform(const Task& task)
{
    const std::lock_guard lock(mutex);
    PluggedCamera& camera = *task.camera;
    if (task.event == BusEvent::kReplug) {
        const unsigned port = camera.place_.port; // where another one may be by now, which keeps it
        if (!camera.node_ && port != 0 && !is_taken(camera, port))
            come_back(camera, Departure::kUnplugged, port);
        return;
    }
    if (!camera.node_ || camera.place_.address != task.address)
        return; // it has come back since
    if (task.event == BusEvent::kRestart) {
        if (!camera.node_->is_gone()) // it may have been unplugged before its time came
            come_back(camera, Departure::kRestart, camera.place_.port);
        return;
    }
    detach(camera, task.event == BusEvent::kUnplugAnnounced ? Departure::kUnplugged
                                                            : Departure::kUnpluggedSilently);
    if (task.event == BusEvent::kUnplugAnnounced)
        unlist(camera);
}

void Bed::State::set_faults(PluggedCamera& camera, unsigned position, const FaultPlan& plan)
{
    UsbCamera& usb = *camera.camera_;
    const std::lock_guard lock(usb.mutex());
    const auto engine = std::make_shared<FaultEngine>(
        plan, position, usb.serial(), clock,
        FaultEngine::Bench{
            .cut_power = [&usb] { usb.controller().power_cut(); },
            .replug_after = [this, &camera](uint64_t delay_us) { replug_after(camera, delay_us); },
            .tell =
                [&usb](const PlannedFault& fault) {
                    usb.observers().tell(&UsbObserver::fault_strikes, fault.text);
                },
        });
    usb.set_fault([engine](const Setup& setup, uint64_t) { return engine->on_transfer(setup); });
    usb.set_answer_fault([engine] { return engine->on_answer(); });
    usb.stream().set_fault([engine](uint64_t) { return engine->on_frame(); });
    usb.controller().set_rom_fault(
        [engine](const RomAccess& access) { return engine->on_rom_access(access); });
    camera.faults_ = engine;
    for (const uint64_t delay_us : engine->delays_us()) {
        alarms.set(delay_us, Alarms::Passes::kOnTheClock,
                   [this, &camera, planned = std::weak_ptr(engine)](uint64_t) {
                       strike_by_clock(camera, planned);
                   });
    }
}

void Bed::State::strike_by_clock(PluggedCamera& camera, const std::weak_ptr<FaultEngine>& planned)
{
    const std::lock_guard lock(mutex);
    Fault fault;
    {
        const std::lock_guard camera_lock(camera.camera_->mutex());
        const std::shared_ptr<FaultEngine> engine = planned.lock();
        if (!engine || engine != camera.faults_ || !camera.node_)
            return;
        fault = engine->on_clock();
        if (fault.kind == Fault::Kind::kNone)
            return;
        camera.node_->set_gone();
    }
    detach(camera, fault.kind == Fault::Kind::kUnplugAnnounced ? Departure::kUnplugged
                                                               : Departure::kUnpluggedSilently);
    if (fault.kind == Fault::Kind::kUnplugAnnounced)
        unlist(camera);
}

// Called under the camera's mutex. The transfer that was hit has told of the unplug before the
// mutex is free again.
void Bed::State::replug_after(PluggedCamera& camera, uint64_t delay_us)
{
    alarms.set(delay_us, Alarms::Passes::kWhileWaiting, [this, &camera](uint64_t) {
        const std::lock_guard lock(camera.camera_->mutex());
        request(camera, 0, BusEvent::kReplug);
    });
}

Bed::Bed(Clock& clock) : state_(std::make_unique<State>(clock))
{
    active_bed = this;
    set_usbfs_memory(0);
}

Bed::~Bed()
{
    active_bed = nullptr;
}

PluggedCamera& Bed::plug(const CameraModel& model, PlugOptions options)
{
    if (options.bus < 1 || options.bus > kHighestBus)
        throw std::invalid_argument("bus must be 1 to 64");
    if (!text::is_plain(options.serial) || options.serial.find('\\') != std::string::npos)
        throw std::invalid_argument("serial must be printable ASCII without backslash");
    const std::lock_guard lock(state_->mutex);
    if (options.serial.empty()) {
        const std::string number = std::to_string(state_->cameras.size() + 1);
        options.serial = "SIM" + std::string(5 - number.size(), '0') + number;
    }
    state_->add_root_hub(options.bus);
    auto camera = std::make_shared<UsbCamera>(model, state_->clock, options.serial, options.rom);
    auto& plugged = *state_->cameras.emplace_back(
        new PluggedCamera(std::move(camera), state_->free_place(options.bus)));
    plugged.has_kernel_driver_ = options.has_kernel_driver;
    state_->attach(plugged);
    return plugged;
}

void Bed::unplug(PluggedCamera& camera, Announce announce)
{
    const std::lock_guard lock(state_->mutex);
    state_->detach(
        camera, announce == Announce::kYes ? Departure::kUnplugged : Departure::kUnpluggedSilently);
    if (announce == Announce::kYes)
        state_->unlist(camera);
}

void Bed::power_cut(PluggedCamera& camera, Announce announce)
{
    const std::lock_guard lock(state_->mutex);
    state_->detach(
        camera, announce == Announce::kYes ? Departure::kUnplugged : Departure::kUnpluggedSilently);
    {
        const std::lock_guard camera_lock(camera.camera_->mutex());
        camera.camera_->controller().power_cut();
    }
    if (announce == Announce::kYes)
        state_->unlist(camera);
}

void Bed::retire(PluggedCamera& camera)
{
    const std::lock_guard lock(state_->mutex);
    state_->detach(camera, Departure::kUnplugged);
    state_->unlist(camera);
    camera.clear_transfers();
    const std::lock_guard place_lock(camera.place_mutex_);
    camera.place_.port = 0;
}

void Bed::set_faults(const FaultPlan& plan)
{
    const std::lock_guard lock(state_->mutex);
    for (const PlannedFault& fault : plan) {
        const Trigger& when = fault.when;
        const bool is_there =
            when.position <= state_->cameras.size() &&
            (when.serial.empty() || std::ranges::any_of(state_->cameras, [&](const auto& camera) {
                 return camera->serial() == when.serial;
             }));
        if (!is_there)
            throw std::invalid_argument(fault.text + " is about a camera that is not plugged in");
    }
    unsigned position = 0;
    for (const auto& camera : state_->cameras)
        state_->set_faults(*camera, ++position, plan);
}

std::vector<uint64_t> Bed::fault_strikes()
{
    const std::lock_guard lock(state_->mutex);
    std::vector<uint64_t> sums;
    for (const auto& camera : state_->cameras) {
        const std::lock_guard camera_lock(camera->camera_->mutex());
        const auto strikes = camera->faults_ ? camera->faults_->strikes() : std::vector<uint64_t>();
        sums.resize(std::max(sums.size(), strikes.size()));
        std::ranges::transform(strikes, sums, sums.begin(), std::plus<>());
    }
    return sums;
}

void Bed::replug(PluggedCamera& camera, std::optional<unsigned> port)
{
    const std::lock_guard lock(state_->mutex);
    const unsigned wanted = port.value_or(camera.place_.port);
    if (wanted < 1 || wanted > kPortsPerBus)
        throw std::invalid_argument("the bus has ports 1 to " + std::to_string(kPortsPerBus));
    if (state_->is_taken(camera, wanted))
        throw std::invalid_argument("another camera is in port " + std::to_string(wanted));
    state_->come_back(camera, Departure::kUnplugged, wanted);
}

void Bed::settle()
{
    state_->alarms.run_due();
    std::unique_lock lock(state_->task_mutex);
    state_->task_change.wait(lock, [this] { return state_->tasks.empty(); });
}

void Bed::set_usbfs_memory(unsigned mebibytes)
{
    constexpr uint64_t kMebibyte = 1u << 20;
    const std::lock_guard lock(state_->mutex);
    state_->memory = std::make_shared<UsbfsMemory>(mebibytes * kMebibyte);
    const std::filesystem::path parameters = state_->folder + "/sys/module/usbcore/parameters";
    std::filesystem::create_directories(parameters);
    std::ofstream(parameters / "usbfs_memory_mb") << mebibytes << "\n";
}

const std::string& Bed::folder() const
{
    return state_->folder;
}

void Bed::settle_active()
{
    if (Bed* bed = active_bed)
        bed->settle();
}

} // namespace sim
