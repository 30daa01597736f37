// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exchange.h"

namespace nyxus::engine {

/**
 * Reads any number of bytes inside the selected block. Requests and answers are queued, so that the
 * host controller sends them without waiting for the program in between; order and bytes on the
 * wire are those of exchanges one by one. That is done only for cameras that were opened for it,
 * after a kilobyte that both ways have read alike, and until it fails: then an event tells, and
 * from the exchange that failed on they go one by one, which tries again.
 */
Status read_inside_block(const Reading& reading, Width width, uint32_t address,
                         std::span<uint8_t> out);

} // namespace nyxus::engine
