// SPDX-License-Identifier: Apache-2.0
#include "rom_watcher.h"

namespace tool {

void RomWatcher::on_line(std::string_view line)
{
    if (line.starts_with("<INFO> External ROM erasing")) {
        phase_ = Phase::kErasing;
        display_.begin("erasing", 0);
    } else if (line.starts_with("<INFO> External ROM erased")) {
        phase_ = Phase::kErased;
        display_.end();
    } else if (line.starts_with("<INFO> External ROM programming")) {
        phase_ = Phase::kProgramming;
        display_.begin("programming", total_bytes_);
    }
}

const char* phase_text(RomWatcher::Phase phase)
{
    switch (phase) {
        case RomWatcher::Phase::kPreparing:
            return "unlocking the ROM";
        case RomWatcher::Phase::kErasing:
            return "erasing the ROM";
        case RomWatcher::Phase::kErased:
            return "locking the ROM again";
        case RomWatcher::Phase::kProgramming:
            break;
    }
    return "programming the ROM";
}

} // namespace tool
