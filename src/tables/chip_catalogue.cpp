// SPDX-License-Identifier: Apache-2.0
#include <nyxus/chip.h>

#include <cstddef>
#include <iterator>

// clang-format off
const NyBackend backend_list[] = {
//   id  family              signature  name               bond
    { 0, IC_FAMILY_NONE,      "N/A",    "N/A",             0},
    { 3, IC_FAMILY_LARCH,     "LE",     "ZR5100 -series",  0},
    { 5, IC_FAMILY_LARCH,     "LD",     "NY6200",          0},
    { 6, IC_FAMILY_LARCH,     "LS",     "NY6210",          0},
    { 7, IC_FAMILY_LARCH,     "LP",     "NY6300",          0},
    { 8, IC_FAMILY_FI,        "FI",     "ZR5200 -series",  0},
    {11, IC_FAMILY_FI2,       "F2",     "ZR5200U",         0},
    {12, IC_FAMILY_WILLOW,    "WI",     "ZR5300 -series",  0},
    {14, IC_FAMILY_HAWTHORN,  "HA",     "ZR5400",          0},
    {15, IC_FAMILY_ROWAN,     "RO1",    "NY6400",          0},
    {16, IC_FAMILY_ROWAN,     "RO2",    "NY6410",          0},
    {17, IC_FAMILY_CEDAR,     "CD",     "NY6500",          0},
    {18, IC_FAMILY_CEDAR,     "CB",     "NY7701",          0},
    {18, IC_FAMILY_CEDAR,     "CB",     "NY7700",          1},
    {18, IC_FAMILY_CEDAR,     "CB",     "NY7780",          2},
    {18, IC_FAMILY_CEDAR,     "CB",     "NY7080",          3},
};
// clang-format on
int32_t backend_list_count = std::size(backend_list);

const char* const IC_FAMILY_STR[8] = {"N/A",    "LARCH",    "FI",    "FI2",
                                      "WILLOW", "HAWTHORN", "ROWAN", "CEDAR"};

static_assert(std::size(backend_list) == 16 && sizeof(NyBackend) == 48);
static_assert(offsetof(NyBackend, signature) == 8 && offsetof(NyBackend, bBondIdex) == 44);
static_assert(sizeof(NyFirmwareStatus) == 4);
