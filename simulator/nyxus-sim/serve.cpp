// SPDX-License-Identifier: Apache-2.0
#include "usbip/server.h"

#include "commands.h"
#include "exports.h"
#include "simulation.h"
#include "termination.h"

#include <cstdio>
#include <string>

namespace sim {

namespace {

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

} // namespace sim
