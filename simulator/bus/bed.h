// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/sysfs.h"
#include "bus/usbfs.h"
#include "chip/clock.h"
#include "chip/model.h"
#include "faults/fault_engine.h"
#include "faults/fault_plan.h"
#include "usb/usb_camera.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace sim {

struct PlugOptions {
    unsigned bus = 1;
    std::string serial;             ///< printable ASCII; empty: one that differs per camera
    std::vector<uint8_t> rom = {};  ///< empty: the model's factory contents
    bool has_kernel_driver = false; ///< uvcvideo has the camera whenever it is plugged in
};

/// Access to an object under its owner's lock, held to the end of the full expression.
template <typename Object>
class Locked {
public:
    Locked(Object& object, std::recursive_mutex& mutex) : object_(object), lock_(mutex) {}
    Object* operator->() const { return &object_; }
    Object& operator*() const { return object_; }

private:
    Object& object_;
    std::unique_lock<std::recursive_mutex> lock_;
};

/// A camera on a bed, plugged in or not. Its owner is the bed. Thread-safe.
class PluggedCamera {
public:
    /// Its USB face: transfers, faults, video.
    Locked<UsbCamera> usb() { return {*camera_, camera_->mutex()}; }
    Locked<Controller> controller() { return {camera_->controller(), camera_->mutex()}; }
    const CameraModel& model() { return camera_->controller().model; }
    const std::string& serial() const { return camera_->serial(); }
    unsigned bus() const { return place_.bus; }
    unsigned port() const { return place().port; }
    /// Changes with every re-plug and restart.
    unsigned address() const { return place().address; }
    bool is_plugged() const;

    // What most tests want of usb().
    std::vector<Transfer> transfers() { return usb()->transfers(); }
    void clear_transfers() { usb()->clear_transfers(); }
    void set_tracing(bool on) { usb()->set_tracing(on); }
    void set_fault(FaultHook hook) { usb()->set_fault(std::move(hook)); }
    void set_frame_fault(FrameFaultHook hook) { usb()->stream().set_fault(std::move(hook)); }
    void set_pacing(Pacing pacing) { usb()->stream().set_pacing(pacing); }
    StreamState stream() { return usb()->stream().state(); }

    /// A control transfer without a host in between: bytes moved, or a negative errno. For
    /// transfers that the camera answers at once; what only a host could bear ends with -EIO.
    int control(const Setup& setup, std::span<uint8_t> data);
    /// Is told at once that the camera is there, if it is. It must outlive the bed, or be removed.
    void add_observer(UsbObserver& observer);

private:
    friend class TestBed;
    PluggedCamera(std::shared_ptr<UsbCamera> camera, const Place& place);
    Place place() const;

    std::shared_ptr<UsbCamera> camera_;
    mutable std::mutex place_mutex_;
    Place place_;
    std::shared_ptr<UsbfsNode> node_; ///< nullptr while unplugged
    bool is_plugged_ = false;         ///< guarded by the camera's mutex
    bool has_kernel_driver_ = false;
    bool listed_ = false;                 ///< sysfs still shows it
    std::shared_ptr<FaultEngine> faults_; ///< nullptr without a plan
};

/// The machine that cameras are plugged into: sysfs, device nodes and hot-plug events, seen by
/// this process and by those that run with its UMOCKDEV_DIR. One at a time per process; make it
/// before starting threads. Thread-safe. Throws std::runtime_error when the folder cannot be made.
class TestBed {
public:
    explicit TestBed(Clock& clock);
    ~TestBed();
    TestBed(const TestBed&) = delete;
    TestBed& operator=(const TestBed&) = delete;

    /// Where the bus is full, the next one takes the camera. Throws std::invalid_argument for an
    /// unusable bus or serial number, or when all are full.
    PluggedCamera& plug(const CameraModel& model, PlugOptions options = {});
    /// Takes the camera away; unannounced, only its users notice. Announcing it later is allowed.
    void unplug(PluggedCamera& camera, Announce announce = Announce::kYes);
    /// The same, while the ROM may be writing: what it is at stays half done.
    void power_cut(PluggedCamera& camera, Announce announce = Announce::kYes);
    /// A power cycle: the camera comes back with a new address and boots, in this port of its bus
    /// or in the one that it had. Throws std::invalid_argument when there is none such, or another
    /// camera is in it.
    void replug(PluggedCamera& camera, std::optional<unsigned> port = std::nullopt);
    /// Takes the camera away for good, and its port is free. The object stays until the bed goes.
    void retire(PluggedCamera& camera);
    /// From now on these things go wrong, instead of all that was planned before, by set_fault() of
    /// the camera or of its stream. Throws std::invalid_argument for a camera that is not on the
    /// bed.
    void set_faults(const FaultPlan& plan);
    /// These, too. Their times and numbers count from now.
    void add_faults(const FaultPlan& plan);
    FaultPlan faults();
    /// How often each of them has struck, over all cameras.
    std::vector<uint64_t> fault_strikes();
    /// From now on video comes as fast as the host takes it, or while it sleeps by sleep(), so that
    /// the bed's clock and the video agree.
    void make_video_fast();
    /// A host sleeps: time passes, and what is due meanwhile happens.
    void sleep(uint64_t duration_us);
    /// Waits until restarts and unplugs that are under way have happened.
    void settle();

    /// What the kernel lends to the transfers of all cameras together; 0: no limit. Shown where
    /// Linux shows it. Cameras that are plugged in already keep the limit they have.
    void set_usbfs_memory(unsigned mebibytes);

    const std::string& folder() const;

    /// Settles the process's bed, if there is one.
    static void settle_active();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace sim
