// SPDX-License-Identifier: Apache-2.0
#include "usbip/local_host.h"

#include "bus/protocol.h"
#include "files/descriptor.h"
#include "files/write_all.h"
#include "text/format.h"
#include "usbip/wire.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
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

namespace {

constexpr char kStatusFile[] = "/sys/devices/platform/vhci_hcd.0/status";
constexpr char kAttachFile[] = "/sys/devices/platform/vhci_hcd.0/attach";
constexpr unsigned kFreePort = 4;
constexpr int kAttempts = 2000;
constexpr auto kGlance = std::chrono::milliseconds(5);

// Called past the C library, where this process sees the simulated bus's /sys.
files::Descriptor open_really(const char* path, int mode)
{
    return files::Descriptor(
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, mode | O_CLOEXEC)));
}

// Lines such as "hs  0000 004 000 00000000 000000 0-0", below a heading.
std::optional<unsigned> free_port(std::optional<unsigned> wanted)
{
    const files::Descriptor file = open_really(kStatusFile, O_RDONLY);
    std::array<char, 4096> text{};
    const ssize_t got = read(file.get(), text.data(), text.size());
    std::istringstream lines(std::string(text.data(), got > 0 ? static_cast<size_t>(got) : 0));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string hub;
        unsigned port = 0;
        unsigned status = 0;
        if (fields >> hub >> port >> status && hub == "hs" && status == kFreePort &&
            wanted.value_or(port) == port)
            return port;
    }
    return std::nullopt;
}

int write_attachment(unsigned port, int socket, uint32_t device_id)
{
    const files::Descriptor file = open_really(kAttachFile, O_WRONLY);
    return files::write_all(file.get(),
                            text::format("%u %d %u %u", port, socket, device_id, kHighSpeed));
}

} // namespace

Vhci::Vhci()
{
    if (!open_really(kStatusFile, O_RDONLY)) {
        throw std::runtime_error(
            "this machine has no virtual USB host controller; load it as root "
            "with 'modprobe vhci_hcd'");
    }
    if (!open_really(kAttachFile, O_WRONLY)) {
        throw std::runtime_error(
            errno == EACCES || errno == EPERM
                ? "only root may attach cameras to this machine; run it as root, with sudo"
                : std::string("cannot attach cameras: ") + std::strerror(errno));
    }
}

unsigned Vhci::attach(int socket, uint32_t device_id, std::optional<unsigned> wanted) const
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (const std::optional<unsigned> port = free_port(wanted)) {
            const int error = write_attachment(*port, socket, device_id);
            if (error == 0)
                return *port;
            if (error != EBUSY) {
                throw std::runtime_error(std::string("the kernel refuses the camera: ") +
                                         std::strerror(error));
            }
        }
        std::this_thread::sleep_for(kGlance);
    }
    throw std::runtime_error(wanted ? "port " + std::to_string(*wanted) +
                                          " of the virtual USB host controller does not become free"
                                    : std::string("all high-speed ports of the virtual USB host "
                                                  "controller are taken; 'usbip port' lists them"));
}

} // namespace sim::usbip
