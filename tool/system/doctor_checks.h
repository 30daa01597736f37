// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "session/camera_list.h"
#include "terminal/exit_codes.h"

#include <string>
#include <vector>

namespace tool {

/// What one check of the doctor has found.
struct Finding {
    enum class State { kOk, kNote, kWarning, kProblem };

    std::string check; ///< "udev rule"
    State state = State::kOk;
    std::string what;
    std::string remedy = {};      ///< what to do; "" when nothing has to be done
    ExitCode code = kExitFailure; ///< what a problem means
};
const char* state_name(Finding::State state);

Finding check_libraries();
/// Whether this is the machine's own USB or a simulated one.
Finding check_bus();
Finding check_udev_rule();
/// What the kernel lends to USB transfers.
Finding check_usb_memory();
/// Each camera: may it be opened, who has it? `choice` as for --camera.
std::vector<Finding> check_cameras(const std::string& choice);

/// The programs that have it open, "nyxus (process 123)", or "another program" where this user may
/// not see which; "" for none.
std::string users_of(const CameraEntry& entry);

} // namespace tool
