// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "arguments.h"
#include "camera.h"
#include "events.h"
#include "json_text.h"

#include <functional>

namespace tool {

/// Does a command's work, which takes its time. With --json it tells how far it is and, at any end,
/// how it ended: what the work has filled in, and why it failed.
ExitCode run_with_result(Console& console, const Arguments& arguments,
                         const std::function<ExitCode(Result&)>& work);

CameraLabel label_of(const Camera& camera);
Values json_of(const CameraLabel& camera);

} // namespace tool
