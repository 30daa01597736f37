// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libuvc/libuvc.h>

namespace nyxus {

/// Says that a step of libuvc's has failed, as libuvc does.
void report_uvc_error(uvc_error_t error, const char* step);

} // namespace nyxus
