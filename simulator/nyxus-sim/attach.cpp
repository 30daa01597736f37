// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "exports.h"
#include "simulation.h"
#include "termination.h"
#include "usbip/local_host.h"

namespace sim {

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
