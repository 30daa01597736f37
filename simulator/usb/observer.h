// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usb/setup.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

class UsbCamera;
class VideoStream;

/// Numbered as Linux numbers them.
enum class TransferType : uint8_t { kIsochronous = 0, kInterrupt = 1, kControl = 2, kBulk = 3 };

struct IsoPacket {
    uint32_t room = 0;
    uint32_t moved = 0;
    int status = 0;
};

/// A transfer as it passes the host controller, on its way to the camera or back.
struct BusTransfer {
    uint64_t id = 0; ///< the same on its way back; no other transfer of the camera has it
    TransferType type = TransferType::kControl;
    uint8_t endpoint = 0; ///< with the direction bit, which the default pipe takes from the setup
    Setup setup = {};     ///< of a control transfer
    uint32_t room = 0;    ///< bytes that the host sends or has room for
    int status = 0;       ///< on its way back: 0 or a negative errno
    uint32_t moved = 0;   ///< on its way back
    std::span<const uint8_t> data = {};      ///< OUT: on its way there; IN: on its way back
    std::span<const IsoPacket> packets = {}; ///< their data stands back to back

    bool is_in() const { return (endpoint & 0x80) != 0; }
};

/// Why a camera is no longer on the bus.
enum class Departure { kUnplugged, kUnpluggedSilently, kRestart };

/// Is told what happens to one camera. Called under the camera's lock, by whichever thread works
/// for it, so it must be quick and must not call the bed.
class UsbObserver {
public:
    virtual ~UsbObserver() = default;

    virtual void plugged(const UsbCamera& camera, unsigned bus, unsigned address) = 0;
    virtual void left(Departure reason) = 0;
    virtual void submitted(const BusTransfer& transfer) = 0;
    virtual void finished(const BusTransfer& transfer) = 0;
    /// The host controller takes no such transfer; its `status` says why.
    virtual void refused(const BusTransfer& transfer) = 0;
    /// The stream has begun, ended, sent a frame to its last byte, or dropped one.
    virtual void video_changed(const VideoStream& stream) = 0;
    /// A planned fault strikes what the camera is asked; the outcome comes after it.
    virtual void fault_strikes(const std::string& /*fault*/) {}
};

/// Who observes a camera. The observers belong to others and outlive their place in here.
class Observers {
public:
    bool empty() const { return observers_.empty(); }
    void add(UsbObserver& observer) { observers_.push_back(&observer); }
    void remove(UsbObserver& observer) { std::erase(observers_, &observer); }

    template <typename Method, typename... Arguments>
    void tell(Method method, const Arguments&... arguments) const
    {
        for (UsbObserver* observer : observers_)
            (observer->*method)(arguments...);
    }
    /// A request that the host's kernel makes by itself, to its end.
    void tell_request(uint64_t id, const Setup& setup, int status) const;

private:
    std::vector<UsbObserver*> observers_;
};

} // namespace sim
