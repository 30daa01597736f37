// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/status.hpp>

namespace nyxus::engine {

/// All of the helper program, which has no other caller: it works on one camera for the leader.
NYXUS_ENGINE_API int worker_main(int argc, char** argv);

} // namespace nyxus::engine
