// SPDX-License-Identifier: Apache-2.0
#include "bus/registry.h"
#include "bus/sysfs.h"
#include "commands.h"
#include "simulation.h"
#include "usb/descriptors.h"
#include "usbip/local_host.h"
#include "usbip/server.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

namespace sim {

namespace {

/// SIGINT, SIGTERM and SIGHUP as a wish to end in order. Make it before any thread starts.
class Termination {
public:
    Termination();
    ~Termination();
    Termination(const Termination&) = delete;
    Termination& operator=(const Termination&) = delete;

    /// Until one of them comes, or `is_over`, asked a few times per second, says so.
    void wait(const std::function<bool()>& is_over) const;

private:
    sigset_t awaited_{};
    sigset_t original_{};
};

Termination::Termination()
{
    sigemptyset(&awaited_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&awaited_, signal);
    pthread_sigmask(SIG_BLOCK, &awaited_, &original_);
}

Termination::~Termination()
{
    pthread_sigmask(SIG_SETMASK, &original_, nullptr);
}

void Termination::wait(const std::function<bool()>& is_over) const
{
    constexpr timespec kPause{0, 200'000'000};
    while (!is_over() && sigtimedwait(&awaited_, nullptr, &kPause) < 0) {
    }
}

usbip::DeviceRecord record_of(PluggedCamera& camera, unsigned address)
{
    constexpr std::ptrdiff_t kClass = 5;
    const CameraModel& model = camera.model();
    usbip::DeviceRecord record;
    record.path = sysfs_path({camera.bus(), camera.port(), address});
    record.bus_id = std::to_string(camera.bus()) + "-" + std::to_string(camera.port());
    record.bus = camera.bus();
    record.address = address;
    std::ranges::copy(device_descriptor(model), record.descriptor.begin());
    record.configuration = 1;
    for (unsigned number = 0; number < kInterfaceCount; ++number) {
        const std::vector<uint8_t> interface = interface_descriptor(model, number);
        std::copy_n(interface.begin() + kClass, 3, record.interfaces.emplace_back().begin());
    }
    return record;
}

usbip::ExportList exports_of(const Simulation& simulation)
{
    return [&simulation] {
        std::vector<usbip::Export> devices;
        for (PluggedCamera* camera : simulation.cameras()) {
            const unsigned address = camera->address();
            if (std::shared_ptr<UsbfsNode> node = find_node(camera->bus(), address))
                devices.push_back({record_of(*camera, address), std::move(node)});
        }
        return devices;
    };
}

void print_invitation(const usbip::Address& address, const Simulation& simulation)
{
    constexpr uint16_t kUsualPort = 3240;
    const std::string port =
        address.port == kUsualPort ? "" : "--tcp-port " + std::to_string(address.port) + " ";
    const bool is_everywhere = address.host == "0.0.0.0" || address.host == "::";
    const char* host = is_everywhere ? "THIS-MACHINE" : address.host.c_str();
    std::printf("Listening on %s. To plug a camera in, as root:\n  modprobe vhci_hcd\n",
                address.text().c_str());
    for (PluggedCamera* camera : simulation.cameras()) {
        const std::string model(camera->model().name);
        std::printf("  usbip %sattach -r %s -b %u-%u    # %s, serial %s\n", port.c_str(), host,
                    camera->bus(), camera->port(), model.c_str(), camera->serial().c_str());
    }
    std::fflush(stdout);
}

} // namespace

int serve(const ServeArguments& arguments)
{
    usbip::Address address = usbip::parse_address(arguments.listen);
    const Termination termination;
    Simulation simulation(arguments.simulation);
    {
        const usbip::Server server(address, exports_of(simulation), simulation.virtual_clock());
        address.port = server.port();
        if (!address.is_loopback()) {
            std::fprintf(stderr,
                         "nyxus-sim: warning: %s can be reached from other machines, and everybody "
                         "there can use the cameras; USB/IP has neither passwords nor encryption\n",
                         address.text().c_str());
        }
        print_invitation(address, simulation);
        termination.wait([] { return false; });
    }
    return simulation.finish() ? 0 : 1;
}

int attach(const SimulationArguments& arguments)
{
    const usbip::Vhci checked; // before the cameras are made
    const Termination termination;
    Simulation simulation(arguments);
    {
        const usbip::LocalHost host(exports_of(simulation), simulation.virtual_clock());
        termination.wait([&host] { return host.attached() == 0; });
    }
    return simulation.finish() ? 0 : 1;
}

} // namespace sim
