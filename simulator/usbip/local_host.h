// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usbip/connection.h"
#include "usbip/session.h"
#include "usbip/vhci.h"

#include <atomic>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace sim::usbip {

/// Keeps devices plugged into this machine's kernel, also across their restarts.
class LocalHost {
public:
    /// The devices are those of `exports` now. Throws std::runtime_error.
    LocalHost(ExportList exports, VirtualClock* clock);
    /// Unplugs them.
    ~LocalHost();
    LocalHost(const LocalHost&) = delete;
    LocalHost& operator=(const LocalHost&) = delete;

    /// How many have not been detached by the machine.
    size_t attached() const { return attached_; }

private:
    struct Port {
        std::string bus_id;
        int socket = -1;                ///< our end while it is plugged in
        std::optional<unsigned> number; ///< once it has been plugged in; it stays there
        std::thread thread;
    };

    void keep_plugged(Port& port);
    bool plug_once(Port& port, const Export& device);
    std::vector<Export> wait_for(const std::string& bus_id) const;

    Vhci vhci_;
    ExportList exports_;
    FastForward time_;
    std::mutex mutex_; ///< the sockets of the ports
    std::atomic<bool> stopping_{false};
    std::atomic<size_t> attached_{0};
    std::list<Port> ports_;
};

} // namespace sim::usbip
