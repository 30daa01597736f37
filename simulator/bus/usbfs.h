// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/alarms.h"
#include "bus/frame_pump.h"
#include "bus/protocol.h"
#include "bus/ready_signal.h"
#include "bus/usbfs_memory.h"
#include "usb/descriptors.h"
#include "usb/usb_camera.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace sim {

enum class Announce { kYes, kNo };

/// What the bus has to do about a camera.
enum class BusEvent { kRestart, kUnplugSilent, kUnplugAnnounced, kReplug };

class UsbfsFile;

/// The device node of one camera for as long as it keeps its address: who has it open, who holds
/// which interface, and which URBs are under way. A re-plugged camera gets a new node.
class UsbfsNode : public std::enable_shared_from_this<UsbfsNode> {
public:
    using EventHook = std::function<void(BusEvent)>;

    /// `alarms`: for answers that come late; they outlive the last transfer.
    UsbfsNode(std::shared_ptr<UsbCamera> camera, unsigned address, EventHook on_event,
              Alarms& alarms);

    /// A new opener. Thread-safe, as is everything below.
    std::unique_ptr<UsbfsFile> open();
    /// From which its transfers take their buffers; without a limit before the call.
    void set_memory(std::shared_ptr<UsbfsMemory> memory);
    /// The kernel's video driver has the camera, until a program takes it away.
    void add_driver();
    /// Frames come as fast as the host takes them, or while it sleeps; each takes its time on the
    /// camera's clock, which is not the machine's.
    void make_video_fast() { video_is_fast_ = true; }
    /// When the next of these is due, on that clock.
    std::optional<uint64_t> fast_frame_due_us();
    /// It comes while the host sleeps, which has taken those before, or has had its time to.
    void bring_fast_frame();
    /// The camera is off the bus: pending URBs end with ESHUTDOWN, everything else is ENODEV.
    void set_gone();
    bool is_gone();

private:
    friend class UsbfsFile;
    bool has_room_for_frame() const;
    std::optional<FramePump::Time> frame_due();
    bool has_taken_all() const;
    void carry_frame();
    void await_late_answer(uint64_t due_us);
    bool bind_driver(uint32_t interface);
    bool unbind_driver(uint32_t interface);

    std::shared_ptr<UsbCamera> camera_;
    unsigned address_;
    EventHook on_event_;
    std::shared_ptr<UsbfsMemory> memory_ = std::make_shared<UsbfsMemory>(0);
    Alarms& alarms_;
    bool gone_ = false;
    ReadySignal gone_signal_;
    std::atomic<bool> video_is_fast_ = false;
    std::optional<uint64_t> next_frame_us_; ///< fast video
    FramePump::Time host_slept_;            ///< the same
    bool host_is_slow_ = false;             ///< the same
    std::array<UsbfsFile*, kInterfaceCount> owners_{};
    bool has_driver_ = false;
    std::array<bool, kInterfaceCount> driver_has_{};
    std::vector<UsbfsFile*> files_;
    FramePump pump_; ///< last: its thread uses all of the above
};

/// One opened node. Destroying it drops its claims and its URBs, as close() does.
class UsbfsFile final : public Channel {
public:
    explicit UsbfsFile(std::shared_ptr<UsbfsNode> node);
    ~UsbfsFile() override;
    UsbfsFile(const UsbfsFile&) = delete;
    UsbfsFile& operator=(const UsbfsFile&) = delete;

    Reply call(Request&& request) override;
    bool is_gone() const { return node_->is_gone(); }
    int ready_fd() const override { return ready_.fd(); }
    /// Borrowed; writable once the camera is off the bus.
    int gone_fd() const { return node_->gone_signal_.fd(); }

private:
    friend class UsbfsNode;

    struct Urb {
        uint64_t id = 0;
        uint64_t address = 0;
        uint8_t type = 0;
        uint8_t endpoint = 0;
        uint32_t buffer_bytes = 0;
        UsbfsMemory::Loan loan;
        int status = 0;
        uint32_t actual_bytes = 0;
        uint64_t late_until_us = 0;         ///< pending: when its answer arrives, 0: never
        bool restart = false;               ///< once it is over
        std::vector<uint8_t> data;          ///< control: setup and data; IN otherwise: the answer
        std::vector<uint32_t> packet_bytes; ///< isochronous: room per packet
        std::vector<IsoResult> packets;
    };

    Reply dispatch(Request&& request);
    int claim(uint32_t interface);
    int take_from_driver(uint32_t interface, uint32_t flags);
    int release(uint32_t interface);
    int set_interface(uint32_t interface, uint32_t setting);
    int set_configuration(uint32_t value);
    int driver_request(uint32_t interface, uint32_t code);
    Reply driver_name(uint32_t interface) const;
    int check_endpoint(uint32_t endpoint);
    int clear_halt(uint32_t endpoint);
    Reply submit_and_complete(Request&& request);
    int submit(Request&& request);
    int submit_control(Urb&& urb);
    int submit_to_endpoint(Urb&& urb, const Request& request);
    int submit_video(Urb&& urb, std::span<const uint32_t> packet_bytes);
    std::list<Urb>::iterator first_video_urb();
    bool has_room_for_frame() const;
    void meet_first_frame(uint32_t queued_bytes);
    void move_video();
    void fill_transfer(Urb& urb);
    void fill_packets(Urb& urb);
    void stall_video();
    int discard(uint64_t address);
    Reply reap();
    void tell(void (UsbObserver::*event)(const BusTransfer&), const Urb& urb) const;
    void tell_request(const Setup& setup, int status) const;
    void finish(Urb&& urb);
    void finish_late(uint64_t now_us);
    void cancel(std::list<Urb>::iterator urb, int status);
    void cancel_all(int status);
    void cancel_interface(uint32_t interface);
    void update_ready()
    {
        if (!comes_along_)
            ready_.set(!finished_.empty());
    }

    std::shared_ptr<UsbfsNode> node_;
    UsbCamera& camera_;
    ReadySignal ready_;
    bool comes_along_ = false; ///< the completion of what is being submitted, if it ends at once
    std::list<Urb> pending_;
    std::deque<Urb> finished_;
    size_t finished_bytes_ = 0; ///< that wait in them
};

} // namespace sim
