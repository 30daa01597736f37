// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/nyxus.h>

#include <string_view>

namespace bench {

/// What is done to the ROM with the loaded image, by the library's function for it.
struct RomOperation {
    std::string_view name;
    int32_t (*run)(NyDevice*);
};

inline int32_t upgrade(NyDevice* device)
{
    return MP_FwUpgrade(device, nullptr);
}

inline int32_t dump(NyDevice* device)
{
    return MP_FwDump(device, "rom.bin", 32768);
}

/// In their order: what an upgrade wrote is read back.
inline constexpr RomOperation rom_operations[] = {
    {"upgrade", upgrade},
    {"dump", dump},
    {"compare", MP_FwCompare},
};

/// EEPROMs are busy for 5 ms after a write.
inline void set_up_library()
{
    const NyConfig config = {0, 1, 5, 0};
    LIB_NyxusSetConfig(&config);
}

} // namespace bench
