// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulation.h"
#include "usbip/session.h"

namespace sim {

/// The cameras that are on the bus whenever it is asked. The simulation has to outlive it.
usbip::ExportList exports_of(const Simulation& simulation);

} // namespace sim
