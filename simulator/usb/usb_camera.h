// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/controller.h"
#include "usb/observer.h"
#include "usb/setup.h"
#include "usb/video_controls.h"
#include "usb/video_stream.h"

#include <array>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace sim {

/// What became of a control transfer that reached the camera's port.
struct Outcome {
    enum class Kind {
        kFinished,     ///< `status` and `moved` are final
        kPending,      ///< no answer will come
        kLate,         ///< as kFinished, but not before `due_us`
        kRefused,      ///< the host takes no such transfer; `status` is the negative errno
        kUnplugSilent, ///< the camera went away under it
        kUnplugAnnounced,
    };
    Kind kind = Kind::kFinished;
    int status = 0;
    uint32_t moved = 0;
    uint64_t due_us = 0;  ///< on the camera's clock
    bool restart = false; ///< the firmware will drop off the bus once this answer has arrived
};

/// The USB face of one camera: default control pipe, descriptors, trace and faults. The mutex
/// guards the camera and everything on the bus that belongs to it; take it around every call.
class UsbCamera {
public:
    UsbCamera(const CameraModel& model, Clock& clock, std::string serial,
              std::span<const uint8_t> rom = {});

    std::recursive_mutex& mutex() { return mutex_; }
    Clock& clock() { return clock_; }
    Controller& controller() { return controller_; }
    const Controller& controller() const { return controller_; }
    /// The one that it was plugged in with, by which it goes here for good.
    const std::string& serial() const { return serial_; }
    /// What its firmware says since it has started: that of the MFi image, if there is one.
    const std::string& usb_serial() const { return usb_serial_; }
    const std::string& product() const { return controller_.model.usb_product; }

    /// One control transfer. `data` has wLength bytes: the host's, or the room for the answer.
    Outcome control(const Setup& setup, std::span<uint8_t> data);
    /// 1, or 0 for none: whatever was set up is over. False for another one.
    bool configure(unsigned number);
    bool has_setting(unsigned number, unsigned setting);
    /// False for a setting that the interface does not have.
    bool set_interface(unsigned number, unsigned setting);
    uint8_t video_setting() const { return video_setting_; }
    /// By the host. A halt of the video endpoint that ends is the end of a stream, too.
    void set_halted(uint16_t endpoint, bool halted);
    bool is_halted(uint16_t endpoint) const;
    VideoStream& stream() { return stream_; }
    const VideoControls& video() const { return video_; }
    /// The firmware boots anew and waits for a host.
    void restart();
    /// The same after the power was away, with what the ROM was at left half done.
    void power_cycle();

    Observers& observers() { return observers_; }
    uint64_t next_transfer_id() { return ++transfer_id_; }
    /// What GET_DESCRIPTOR answers, without a transfer. Bytes moved, or kControlStall.
    int get_descriptor(const Setup& setup, std::span<uint8_t> data) const;

    void set_fault(FaultHook hook);
    void set_answer_fault(AnswerFaultHook hook);
    /// The oldest transfers are dropped at kTraceTransfers.
    void set_tracing(bool on) { tracing_ = on; }
    std::vector<Transfer> transfers() const { return {trace_.begin(), trace_.end()}; }
    void clear_transfers() { trace_.clear(); }
    void record(const Setup& setup, std::span<const uint8_t> moved, int status);

    static constexpr size_t kTraceTransfers = 262144;

private:
    void await_host();
    void learn_serial();
    void pass_wire(Outcome& outcome);
    Outcome apply_fault(const Setup& setup, std::span<uint8_t> data, const Fault& fault);
    static Outcome fail(const Fault& fault, std::span<uint8_t> data);
    static void spoil_answer(const Fault& fault, std::span<uint8_t> data, Outcome& outcome);
    Outcome answer(const Setup& setup, std::span<uint8_t> data);
    int standard_request(const Setup& setup, std::span<uint8_t> data);
    int set_feature(const Setup& setup);
    int class_request(const Setup& setup, std::span<uint8_t> data);
    int control_request(const Setup& setup, std::span<uint8_t> data);
    uint8_t error_code(const Setup& setup);

    std::recursive_mutex mutex_;
    Clock& clock_;
    Controller controller_;
    VideoControls video_;
    VideoStream stream_;
    uint8_t video_setting_ = 0;
    std::array<bool, 2> halted_{}; ///< the status endpoint, the video endpoint: by the host
    uint8_t error_code_ = 0;       ///< of the latest request to a control
    std::string serial_;
    std::string usb_serial_;
    uint8_t configuration_ = 1;
    FaultHook fault_;
    AnswerFaultHook answer_fault_;
    uint64_t ordinal_ = 0;
    uint64_t wire_free_us_ = 0; ///< on a clock that runs: when the last answer has arrived
    bool tracing_ = true;
    std::deque<Transfer> trace_;
    Observers observers_;
    uint64_t transfer_id_ = 0;
};

} // namespace sim
