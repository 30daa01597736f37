// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command_line/arguments.h"
#include "session/camera.h"
#include "terminal/events.h"
#include "terminal/value.h"

#include <functional>

namespace tool {

/// Does a command's work, which takes its time. With --json it tells how far it is and, at any end,
/// how it ended: what the work has filled in, and why it failed.
ExitCode run_with_result(Console& console, const Arguments& arguments,
                         const std::function<ExitCode(Result&)>& work);

/// With --json: an end in the middle tells of this camera, too, as far as that is known now.
void promise_result(Console& console, const Result& result);

CameraLabel label_of(const Camera& camera);
Members json_of(const CameraLabel& camera);

} // namespace tool
