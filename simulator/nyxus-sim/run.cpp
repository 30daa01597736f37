// SPDX-License-Identifier: Apache-2.0
#include "bus/server.h"
#include "commands.h"
#include "launch.h"
#include "simulation.h"
#include "state_client.h"

#include <cstdlib>
#include <string>

namespace sim {

namespace {

constexpr int kMissedFaultCode = 124;

} // namespace

int run_program(const RunArguments& arguments)
{
    const SignalRelay relay;
    Simulation simulation(arguments.simulation);
    int code = 0;
    {
        const Server server(simulation.bed(), simulation.virtual_clock());
        const std::string preload = preload_list(simulation.bed().folder());
        setenv("LD_PRELOAD", preload.c_str(), 1);
        setenv(kSocketVariable, simulation.state_socket().c_str(), 1);
        setenv("NYXUS_SIM_SPEED", arguments.simulation.speed.c_str(), 1);
        code = relay.run(arguments.program);
    }
    const bool saved = simulation.finish();
    if (arguments.strict && simulation.missed_a_fault())
        return kMissedFaultCode; // whatever the program says: it was not tried as it was meant to
                                 // be
    return saved || code != 0 ? code : 1;
}

} // namespace sim
