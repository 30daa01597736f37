// SPDX-License-Identifier: Apache-2.0
#include "usbip/vhci.h"

#include "bus/protocol.h"
#include "files/descriptor.h"
#include "files/write_all.h"
#include "text/format.h"
#include "usbip/wire.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace sim::usbip {

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
