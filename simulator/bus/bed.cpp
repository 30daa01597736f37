// SPDX-License-Identifier: Apache-2.0
#include "bus/bed.h"

#include "bus/alarms.h"
#include "bus/device_tree.h"
#include "bus/registry.h"
#include "text/printable.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <list>
#include <map>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

// Long enough for the host to read the answer of the transfer that asked for the restart.
constexpr uint64_t kRestartDelay_us = 3'000;
constexpr unsigned kHighestBus = 64;

std::atomic<TestBed*> active_bed{nullptr};

} // namespace

PluggedCamera::PluggedCamera(std::shared_ptr<UsbCamera> camera, const Place& place)
    : camera_(std::move(camera)), place_(place)
{
}

Place PluggedCamera::place() const
{
    const std::lock_guard lock(place_mutex_);
    return place_;
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

void PluggedCamera::add_observer(UsbObserver& observer)
{
    const std::lock_guard lock(camera_->mutex());
    camera_->observers().add(observer);
    if (is_plugged_)
        observer.plugged(*camera_, place_.bus, address());
}

bool PluggedCamera::is_plugged() const
{
    const std::lock_guard lock(camera_->mutex());
    return is_plugged_;
}

struct TestBed::State {
    explicit State(Clock& bed_clock) : clock(bed_clock), alarms(bed_clock) {}
    ~State();

    void add_root_hub(unsigned bus);
    Place free_place(unsigned first_bus);
    unsigned next_address(unsigned bus);
    void attach(PluggedCamera& camera);
    void detach(PluggedCamera& camera, Departure reason);
    void unlist(PluggedCamera& camera);
    void take_away(PluggedCamera& camera, Announce announce);
    bool is_taken(const PluggedCamera& newcomer, unsigned port) const;
    void come_back(PluggedCamera& camera, Departure reason, unsigned port);

    void clear_faults(PluggedCamera& camera);
    void add_faults(PluggedCamera& camera, unsigned position, const FaultPlan& more);
    std::shared_ptr<FaultEngine> engine_of(PluggedCamera& camera, unsigned position);
    void strike_by_clock(PluggedCamera& camera, const std::weak_ptr<FaultEngine>& planned);
    void replug_after(PluggedCamera& camera, uint64_t delay_us);

    void request(PluggedCamera& camera, unsigned address, BusEvent event);
    void perform(PluggedCamera& camera, unsigned address, BusEvent event);

    Clock& clock;
    Alarms alarms;
    DeviceTree tree;

    std::shared_ptr<UsbfsMemory> memory = std::make_shared<UsbfsMemory>(0);
    std::mutex mutex; ///< the buses; never taken under a camera's mutex
    std::list<std::unique_ptr<PluggedCamera>> cameras;
    std::map<unsigned, unsigned> last_address;
    std::map<unsigned, std::shared_ptr<RootHub>> hubs; ///< by bus
    FaultPlan plan;
    bool video_is_fast = false;
};

TestBed::State::~State()
{
    alarms.stop();
    for (const auto& camera : cameras) {
        detach(*camera, Departure::kUnplugged);
        unlist(*camera);
    }
    unregister_hubs();
}

void TestBed::State::add_root_hub(unsigned bus)
{
    if (!last_address.try_emplace(bus, kHubAddress).second)
        return;
    register_hub(hubs[bus] = std::make_shared<RootHub>(bus));
    tree.add({bus, 0, kHubAddress}, root_hub_entry(bus), kHubDescriptors);
}

unsigned TestBed::State::next_address(unsigned bus)
{
    unsigned& last = last_address[bus];
    do {
        last = last >= kHighestAddress ? 2 : last + 1;
    } while (find_node(bus, last));
    return last;
}

Place TestBed::State::free_place(unsigned first_bus)
{
    for (unsigned bus = first_bus; bus <= kHighestBus; ++bus) {
        for (unsigned port = 1; port <= kPortsPerBus; ++port) {
            const bool taken = std::ranges::any_of(cameras, [&](const auto& camera) {
                return camera->place_.bus == bus && camera->place_.port == port;
            });
            if (!taken) {
                add_root_hub(bus);
                return {bus, port, next_address(bus)};
            }
        }
    }
    throw std::invalid_argument("no free port on the simulated buses");
}

void TestBed::State::attach(PluggedCamera& camera)
{
    const Place place = camera.place_;
    camera.node_ = std::make_shared<UsbfsNode>(
        camera.camera_, place.address,
        [this, &camera, address = place.address](BusEvent event) {
            request(camera, address, event);
        },
        alarms);
    camera.node_->set_memory(memory);
    if (video_is_fast)
        camera.node_->make_video_fast();
    if (camera.has_kernel_driver_)
        camera.node_->add_driver();
    register_node(place.bus, place.address, camera.node_);
    hubs[place.bus]->set_connected(place.port, true);
    {
        const std::lock_guard lock(camera.camera_->mutex());
        camera.is_plugged_ = true;
        camera.camera_->observers().tell(&UsbObserver::plugged, *camera.camera_, place.bus,
                                         place.address);
    }
    camera.listed_ = true;
    tree.add(place, camera_entry(*camera.camera_, place), node_contents(*camera.camera_));
}

void TestBed::State::detach(PluggedCamera& camera, Departure reason)
{
    if (!camera.node_)
        return;
    camera.node_->set_gone();
    camera.node_.reset();
    const std::lock_guard lock(camera.camera_->mutex());
    camera.is_plugged_ = false;
    camera.camera_->observers().tell(&UsbObserver::left, reason);
}

void TestBed::State::unlist(PluggedCamera& camera)
{
    if (!std::exchange(camera.listed_, false))
        return;
    hubs[camera.place_.bus]->set_connected(camera.place_.port, false);
    tree.remove(camera.place_);
    unregister_node(camera.place_.bus, camera.place_.address);
}

void TestBed::State::take_away(PluggedCamera& camera, Announce announce)
{
    const bool is_told = announce == Announce::kYes;
    detach(camera, is_told ? Departure::kUnplugged : Departure::kUnpluggedSilently);
    if (is_told)
        unlist(camera);
}

// A camera that went unannounced holds its port: sysfs still shows it there.
bool TestBed::State::is_taken(const PluggedCamera& newcomer, unsigned port) const
{
    return std::ranges::any_of(cameras, [&](const auto& other) {
        return other.get() != &newcomer && other->listed_ &&
               other->place_.bus == newcomer.place_.bus && other->place_.port == port;
    });
}

void TestBed::State::come_back(PluggedCamera& camera, Departure reason, unsigned port)
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
void TestBed::State::request(PluggedCamera& camera, unsigned address, BusEvent event)
{
    alarms.set(event == BusEvent::kRestart ? kRestartDelay_us : 0, Alarms::Passes::kAtOnce,
               [this, &camera, address, event](uint64_t) { perform(camera, address, event); });
}

// `address`: that the camera had when it was asked for.
void TestBed::State::perform(PluggedCamera& camera, unsigned address, BusEvent event)
{
    const std::lock_guard lock(mutex);
    if (event == BusEvent::kReplug) {
        const unsigned port = camera.place_.port; // where another one may be by now, which keeps it
        if (!camera.node_ && port != 0 && !is_taken(camera, port))
            come_back(camera, Departure::kUnplugged, port);
        return;
    }
    if (!camera.node_ || camera.place_.address != address)
        return; // it has come back since
    if (event != BusEvent::kRestart) {
        take_away(camera, event == BusEvent::kUnplugAnnounced ? Announce::kYes : Announce::kNo);
    } else if (!camera.node_->is_gone()) { // it may have been unplugged before its time came
        come_back(camera, Departure::kRestart, camera.place_.port);
    }
}

void TestBed::State::clear_faults(PluggedCamera& camera)
{
    UsbCamera& usb = *camera.camera_;
    const std::lock_guard lock(usb.mutex());
    usb.set_fault({});
    usb.set_answer_fault({});
    usb.stream().set_fault({});
    usb.controller().set_rom_fault({});
    camera.faults_.reset();
}

// Under the camera's mutex.
std::shared_ptr<FaultEngine> TestBed::State::engine_of(PluggedCamera& camera, unsigned position)
{
    if (camera.faults_)
        return camera.faults_;
    UsbCamera& usb = *camera.camera_;
    const auto engine = std::make_shared<FaultEngine>(
        position, usb.serial(), clock,
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
    return camera.faults_ = engine;
}

void TestBed::State::add_faults(PluggedCamera& camera, unsigned position, const FaultPlan& more)
{
    const std::lock_guard lock(camera.camera_->mutex());
    const std::shared_ptr<FaultEngine> engine = engine_of(camera, position);
    for (const uint64_t delay_us : engine->add(more)) {
        alarms.set(delay_us, Alarms::Passes::kOnTheClock,
                   [this, &camera, planned = std::weak_ptr(engine)](uint64_t) {
                       strike_by_clock(camera, planned);
                   });
    }
}

void TestBed::State::strike_by_clock(PluggedCamera& camera,
                                     const std::weak_ptr<FaultEngine>& planned)
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
    take_away(camera, fault.kind == Fault::Kind::kUnplugAnnounced ? Announce::kYes : Announce::kNo);
}

// Called under the camera's mutex. The transfer that was hit has told of the unplug before the
// mutex is free again.
void TestBed::State::replug_after(PluggedCamera& camera, uint64_t delay_us)
{
    alarms.set(delay_us, Alarms::Passes::kWhileWaiting, [this, &camera](uint64_t) {
        const std::lock_guard lock(camera.camera_->mutex());
        request(camera, 0, BusEvent::kReplug);
    });
}

TestBed::TestBed(Clock& clock) : state_(std::make_unique<State>(clock))
{
    active_bed = this;
    set_usbfs_memory(0);
}

TestBed::~TestBed()
{
    active_bed = nullptr;
}

PluggedCamera& TestBed::plug(const CameraModel& model, PlugOptions options)
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
    auto camera = std::make_shared<UsbCamera>(model, state_->clock, options.serial, options.rom);
    auto& plugged = *state_->cameras.emplace_back(
        new PluggedCamera(std::move(camera), state_->free_place(options.bus)));
    plugged.has_kernel_driver_ = options.has_kernel_driver;
    state_->attach(plugged);
    return plugged;
}

void TestBed::unplug(PluggedCamera& camera, Announce announce)
{
    const std::lock_guard lock(state_->mutex);
    state_->take_away(camera, announce);
}

void TestBed::power_cut(PluggedCamera& camera, Announce announce)
{
    const std::lock_guard lock(state_->mutex);
    {
        const std::lock_guard camera_lock(camera.camera_->mutex());
        if (camera.node_)
            camera.node_->set_gone();
        camera.camera_->controller().power_cut();
    }
    state_->take_away(camera, announce);
}

void TestBed::retire(PluggedCamera& camera)
{
    const std::lock_guard lock(state_->mutex);
    state_->detach(camera, Departure::kUnplugged);
    state_->unlist(camera);
    camera.clear_transfers();
    camera.controller()->let_go_of_rom();
    const std::lock_guard place_lock(camera.place_mutex_);
    camera.place_.port = 0;
}

void TestBed::set_faults(const FaultPlan& plan)
{
    {
        const std::lock_guard lock(state_->mutex);
        for (const auto& camera : state_->cameras)
            state_->clear_faults(*camera);
        state_->plan.clear();
    }
    add_faults(plan);
}

void TestBed::add_faults(const FaultPlan& plan)
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
        state_->add_faults(*camera, ++position, plan);
    state_->plan.insert(state_->plan.end(), plan.begin(), plan.end());
}

FaultPlan TestBed::faults()
{
    const std::lock_guard lock(state_->mutex);
    return state_->plan;
}

std::vector<uint64_t> TestBed::fault_strikes()
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

void TestBed::replug(PluggedCamera& camera, std::optional<unsigned> port)
{
    const std::lock_guard lock(state_->mutex);
    const unsigned wanted = port.value_or(camera.place_.port);
    if (wanted < 1 || wanted > kPortsPerBus)
        throw std::invalid_argument("the bus has ports 1 to " + std::to_string(kPortsPerBus));
    if (state_->is_taken(camera, wanted))
        throw std::invalid_argument("another camera is in port " + std::to_string(wanted));
    state_->come_back(camera, Departure::kUnplugged, wanted);
}

void TestBed::make_video_fast()
{
    const std::lock_guard lock(state_->mutex);
    state_->video_is_fast = true;
    for (const auto& camera : state_->cameras) {
        if (camera->node_)
            camera->node_->make_video_fast();
    }
}

void TestBed::sleep(uint64_t duration_us)
{
    Clock& clock = state_->clock;
    const uint64_t end_us = clock.now_us() + duration_us;
    for (;;) {
        std::shared_ptr<UsbfsNode> next;
        uint64_t next_us = end_us;
        {
            const std::lock_guard lock(state_->mutex);
            for (const auto& camera : state_->cameras) {
                const auto due_us =
                    camera->node_ ? camera->node_->fast_frame_due_us() : std::nullopt;
                if (due_us && *due_us <= next_us) {
                    next = camera->node_;
                    next_us = *due_us;
                }
            }
        }
        if (!next)
            break;
        next->bring_fast_frame();
        settle();
    }
    const uint64_t now_us = clock.now_us();
    clock.advance_us(end_us > now_us ? end_us - now_us : 0);
    settle();
}

void TestBed::settle()
{
    state_->alarms.settle();
}

void TestBed::set_usbfs_memory(unsigned mebibytes)
{
    constexpr uint64_t kMebibyte = 1u << 20;
    const std::lock_guard lock(state_->mutex);
    state_->memory = std::make_shared<UsbfsMemory>(mebibytes * kMebibyte);
    state_->tree.show_usbfs_memory(mebibytes);
}

const std::string& TestBed::folder() const
{
    return state_->tree.folder();
}

void TestBed::settle_active()
{
    if (TestBed* bed = active_bed)
        bed->settle();
}

} // namespace sim
