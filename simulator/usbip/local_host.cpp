// SPDX-License-Identifier: Apache-2.0
#include "usbip/local_host.h"

#include "files/descriptor.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim::usbip {

namespace {

constexpr auto kPause = std::chrono::milliseconds(5);

} // namespace

LocalHost::LocalHost(ExportList exports, VirtualClock* clock)
    : exports_(std::move(exports)), time_(clock)
{
    const std::vector<Export> devices = exports_();
    attached_ = devices.size();
    for (const Export& device : devices) {
        Port& port = ports_.emplace_back();
        port.bus_id = device.record.bus_id;
        port.thread = std::thread([this, &port] { keep_plugged(port); });
    }
}

LocalHost::~LocalHost()
{
    stopping_ = true;
    {
        const std::lock_guard lock(mutex_);
        for (const Port& port : ports_)
            shutdown(port.socket, SHUT_RDWR);
    }
    for (Port& port : ports_)
        port.thread.join();
}

// A camera that restarts is away for a moment and comes back with a new address.
std::vector<Export> LocalHost::wait_for(const std::string& bus_id) const
{
    while (!stopping_) {
        std::vector<Export> devices = exports_();
        std::erase_if(devices,
                      [&](const Export& device) { return device.record.bus_id != bus_id; });
        if (!devices.empty())
            return devices;
        std::this_thread::sleep_for(kPause);
    }
    return {};
}

void LocalHost::keep_plugged(Port& port)
{
    try {
        for (bool restarted = true; restarted;) {
            const std::vector<Export> device = wait_for(port.bus_id);
            restarted = !device.empty() && plug_once(port, device.front());
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nyxus-sim: %s: %s\n", port.bus_id.c_str(), error.what());
    }
    --attached_;
}

// True when it is to be plugged in again.
bool LocalHost::plug_once(Port& port, const Export& device)
{
    std::unique_ptr<UsbfsFile> file = open_for_host(device.node);
    if (!file) {
        std::this_thread::sleep_for(kPause);
        return true; // it is on its way off the bus
    }
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error(std::string("cannot make a socket: ") + std::strerror(errno));
    files::Descriptor ours(ends[0]);
    files::Descriptor the_kernels(ends[1]);
    {
        const std::lock_guard lock(mutex_);
        port.socket = ours.get();
        if (stopping_)
            shutdown(port.socket, SHUT_RDWR);
    }
    Session session(device, std::move(file));
    std::string failure;
    try {
        port.number = vhci_.attach(the_kernels.get(), device.record.id(), port.number);
        std::printf("%s is plugged in at port %u.\n", port.bus_id.c_str(), *port.number);
        std::fflush(stdout);
    } catch (const std::runtime_error& error) {
        failure = error.what();
    }
    the_kernels.reset();
    if (failure.empty()) {
        converse(ours.get(), session, time_);
        failure = session.complaint();
    }
    {
        const std::lock_guard lock(mutex_);
        port.socket = -1;
        ours.reset();
    }
    if (!failure.empty())
        throw std::runtime_error(failure);
    if (!session.is_gone() && !stopping_) {
        std::printf("%s was detached.\n", port.bus_id.c_str());
        std::fflush(stdout);
    }
    return session.is_gone();
}

} // namespace sim::usbip
