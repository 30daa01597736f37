// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/flash.h>

namespace nyxus {

/// spi_flash_table lies in read-only memory, however many rows its count says.
bool is_in_flash_catalogue(const NyFlashInfo* record);

} // namespace nyxus
