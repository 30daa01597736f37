// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "text/format.h"
#include "text/printable.h"

namespace tool {

using text::format;
using text::in_quotes;
using text::padded;
using text::printable;
using text::printable_field;

} // namespace tool
