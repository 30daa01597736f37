// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bus/usbfs.h"
#include "usbip/wire.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sim::usbip {

/// A device that a peer may import.
struct Export {
    DeviceRecord record;
    std::shared_ptr<UsbfsNode> node;
};
using ExportList = std::function<std::vector<Export>()>;

/// The camera at `node` opened for a host of its own, which drives all of it. nullptr when somebody
/// else uses it, or it is gone.
std::unique_ptr<UsbfsFile> open_for_host(const std::shared_ptr<UsbfsNode>& node);

/// One USB/IP connection without its socket: the peer's bytes go in, answers come out. Whatever the
/// peer sends, memory is bounded; what makes no sense ends the session. One thread at a time.
class Session {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// The peer lists the devices, or imports one.
    explicit Session(ExportList exports);
    /// The peer has the device already.
    Session(const Export& device, std::unique_ptr<UsbfsFile> file);

    /// More input. Only while wants_input(), so that a peer that does not read its answers waits.
    void feed(std::span<const uint8_t> bytes);
    /// Puts finished transfers into the output. Isochronous ones take their time on the wire.
    void collect();
    /// When the next one of those is to be collected.
    std::optional<Time> next_due() const;

    bool wants_input() const { return !has_ended() && output().size() < kOutputLimit; }
    /// What the peer has to be sent; consumed() drops the first `bytes` of it.
    std::span<const uint8_t> output() const { return std::span(output_).subspan(sent_); }
    void consumed(size_t bytes);

    bool is_attached() const { return phase_ == Phase::kAttached; }
    /// The camera is off the bus. Further transfers are answered so; closing the connection tells
    /// the host for good.
    bool is_gone() const { return gone_; }
    /// After the output the connection is to be closed.
    bool has_ended() const { return phase_ == Phase::kEnded; }
    /// What was wrong with the peer's input; empty when it ended in order.
    const std::string& complaint() const { return complaint_; }
    /// "1-2" once a device is imported.
    const std::string& bus_id() const { return bus_id_; }
    /// Both are writable when it is time for collect(); -1 when there is nothing to wait for.
    int ready_fd() const { return file_ && has_room() ? file_->ready_fd() : -1; }
    int gone_fd() const { return file_ && !gone_ ? file_->gone_fd() : -1; }

private:
    enum class Phase { kOperation, kAttached, kEnded };
    struct Pending {
        uint32_t sequence = 0;
        bool is_in = false;
        uint32_t length = 0;
        std::vector<IsoPacket> packets;
    };
    /// The answer to an isochronous transfer that is still on the wire.
    struct Held {
        Time due;
        Bytes answer;
    };
    static constexpr size_t kOutputLimit = 4u << 20;

    bool has_room() const { return output().size() + held_bytes_ < kOutputLimit; }
    void advance();
    size_t operate(std::span<const uint8_t> input);
    void list_devices();
    void import_device(const std::string& bus_id);
    size_t transfer(std::span<const uint8_t> input);
    void submit(const Command& command, std::span<const uint8_t> payload);
    int pass_on(const Command& command, std::span<const uint8_t> data, Pending&& pending);
    void unlink(const Command& command);
    bool reap();
    void release_held(Time until);
    void answer(const Pending& pending, const Reply& finished);
    void hold(uint32_t packets, Bytes&& answer);
    void refuse(const Pending& pending, int status);
    void end(std::string complaint = {});

    ExportList exports_;
    Phase phase_ = Phase::kOperation;
    bool gone_ = false;
    std::string complaint_;
    std::string bus_id_;
    uint32_t device_ = 0;
    std::unique_ptr<UsbfsFile> file_;
    Bytes input_;
    Bytes output_;
    size_t sent_ = 0;
    std::deque<Held> held_;
    size_t held_bytes_ = 0;
    Time wire_free_; ///< of what is held
    uint64_t next_urb_ = 1;
    std::map<uint64_t, Pending> pending_; ///< by the name that the node knows the URB by
};

} // namespace sim::usbip
