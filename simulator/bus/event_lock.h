// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <string>

namespace sim {

/// While the lock lives, nobody else opens or names an event socket of that bed, in whatever
/// process. Without the bed's folder it locks nothing.
files::Descriptor lock_events(const std::string& bed);

} // namespace sim
