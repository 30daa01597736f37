// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

/// Line that closes the results of a probe step.
static constexpr char kSeparator[] = "=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-=-\n";
