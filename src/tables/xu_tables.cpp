// SPDX-License-Identifier: Apache-2.0
#include <nyxus/xu.h>

#include <cstddef>
#include <iterator>

// The probe corrects the lengths in place. A length of 0 is always learnt from the camera.

// clang-format off

uvc_xu_ctrl uvc_xu_table_ver_none[] = {
//   name                        selector                  length
    {"ZRV_XU_EXT_ROM",            ZRV_XU_EXT_ROM,             0,  11},
    {"ZRV_XU_FLIP",               ZRV_XU_FLIP,                0,   1},
    {"ZRV_XU_MIRROR",             ZRV_XU_MIRROR,              0,   1},
    {"ZRV_XU_REG",                ZRV_XU_REG,                 0,  11},
    {"ZRV_XU_SENSOR",             ZRV_XU_SENSOR,              0,  11},
    {"ZRV_XU_MCU",                ZRV_XU_MCU,                 0,  11},
    {"ZRV_XU_INT_ROM",            ZRV_XU_INT_ROM,             0,  11},
    {"ZRV_XU_HW_VER",             ZRV_XU_HW_VER,              0,   1},
    {"ZRV_XU_EXT_ROM_TYPE",       ZRV_XU_EXT_ROM_TYPE,        0,   1},
    {"ZRV_XU_SETFILE_VER",        ZRV_XU_SETFILE_VER,         0,  11},
    {"ZRV_XU_WRITE_PROTECT",      ZRV_XU_WRITE_PROTECT,       0,   1},
    {"ZRV_XU_EXT_ROM_CHKSUM",     ZRV_XU_EXT_ROM_CHKSUM,      0,  11},
    {"ZRV_XU_SPI_STATUS",         ZRV_XU_SPI_STATUS,          0,  11},
    {"ZRV_XU_FLASH_BLOCK",        ZRV_XU_FLASH_BLOCK,         0,   2},
    {"ZRV_XU_Read_EXT_ROM_512",   ZRV_XU_Read_EXT_ROM_512,    0, 516},
};
int32_t uvc_xu_table_ver_none_count = std::size(uvc_xu_table_ver_none);

uvc_xu_ctrl uvc_xu_table_ver_0002[] = {
//   name                        selector                  length
    {"ZRV_XU_FLASH_BLOCK",        ZRV_XU_FLASH_BLOCK,         0,   2},
    {"ZRV_XU_EXT_ROM",            ZRV_XU_EXT_ROM,             0,  35},
    {"ZRV_XU_FLIP",               ZRV_XU_FLIP,                0,   1},
    {"ZRV_XU_MIRROR",             ZRV_XU_MIRROR,              0,   1},
    {"ZRV_XU_REG",                ZRV_XU_REG,                 0,  11},
    {"ZRV_XU_SENSOR",             ZRV_XU_SENSOR,              0,  35},
    {"ZRV_XU_MCU",                ZRV_XU_MCU,                 0,  11},
    {"ZRV_XU_INT_ROM",            ZRV_XU_INT_ROM,             0,  11},
    {"ZRV_XU_HW_VER",             ZRV_XU_HW_VER,              0,   1},
    {"ZRV_XU_EXT_ROM_TYPE",       ZRV_XU_EXT_ROM_TYPE,        0,   1},
    {"ZRV_XU_SETFILE_VER",        ZRV_XU_SETFILE_VER,         0,  11},
    {"ZRV_XU_INT_FW_VER",         ZRV_XU_INT_FW_VER,          0,  11},
    {"ZRV_XU_WRITE_PROTECT",      ZRV_XU_WRITE_PROTECT,       0,   1},
    {"ZRV_XU_ONE_WIRE",           ZRV_XU_ONE_WIRE,            0,  64},
    {"ZRV_XU_EXT_ROM_CHKSUM",     ZRV_XU_EXT_ROM_CHKSUM,      0,  11},
    {"ZRV_XU_SPI_STATUS",         ZRV_XU_SPI_STATUS,          0,  11},
    {"ZRV_XU_OSD",                ZRV_XU_OSD,                 0,  18},
    {"ZRV_XU_JPG_GAIN",           ZRV_XU_JPG_GAIN,            0,  11},
    {"ZRV_XU_VERSION",            ZRV_XU_VERSION,             0,  11},
};
int32_t uvc_xu_table_ver_0002_count = std::size(uvc_xu_table_ver_0002);

uvc_xu_ctrl uvc_xu_table_ver_0003[] = {
//   name                        selector                  length
    {"ZRV_XU_FLASH_BLOCK",        ZRV_XU_FLASH_BLOCK,         0,   0},
    {"ZRV_XU_EXT_ROM",            ZRV_XU_EXT_ROM,             0,   0},
    {"ZRV_XU_FLIP",               ZRV_XU_FLIP,                0,   0},
    {"ZRV_XU_MIRROR",             ZRV_XU_MIRROR,              0,   0},
    {"ZRV_XU_REG",                ZRV_XU_REG,                 0,   0},
    {"ZRV_XU_SENSOR",             ZRV_XU_SENSOR,              0,  35},
    {"ZRV_XU_MCU",                ZRV_XU_MCU,                 0,   0},
    {"ZRV_XU_INT_ROM",            ZRV_XU_INT_ROM,             0,  11},
    {"ZRV_XU_HW_VER",             ZRV_XU_HW_VER,              0,   1},
    {"ZRV_XU_EXT_ROM_TYPE",       ZRV_XU_EXT_ROM_TYPE,        0,   1},
    {"ZRV_XU_SETFILE_VER",        ZRV_XU_SETFILE_VER,         0,  11},
    {"ZRV_XU_INT_FW_VER",         ZRV_XU_INT_FW_VER,          0,  11},
    {"ZRV_XU_WRITE_PROTECT",      ZRV_XU_WRITE_PROTECT,       0,   1},
    {"ZRV_XU_SPI_STATUS",         ZRV_XU_SPI_STATUS,          0,   0},
    {"ZRV_XU_DEV_STATUS",         ZRV_XU_DEV_STATUS,          0,   0},
    {"ZRV_XU_FLASH_INFO",         ZRV_XU_FLASH_INFO,          0,  11},
    {"ZRV_XU_FLASH_RD_ID",        ZRV_XU_FLASH_RD_ID,         0,  11},
};
int32_t uvc_xu_table_ver_0003_count = std::size(uvc_xu_table_ver_0003);

uvc_xu_ctrl uvc_xu_table_ver_0100[] = {
//   name                        selector                  length
    {"ZRV_XU_EXT_ROM",            ZRV_XU_EXT_ROM,             0,  35},
    {"ZRV_XU_FLIP",               ZRV_XU_FLIP,                0,   1},
    {"ZRV_XU_MIRROR",             ZRV_XU_MIRROR,              0,   1},
    {"ZRV_XU_REG",                ZRV_XU_REG,                 0,  11},
    {"ZRV_XU_SENSOR",             ZRV_XU_SENSOR,              0,  35},
    {"ZRV_XU_MCU",                ZRV_XU_MCU,                 0,  11},
    {"ZRV_XU_INT_ROM",            ZRV_XU_INT_ROM,             0,  11},
    {"ZRV_XU_HW_VER",             ZRV_XU_HW_VER,              0,   1},
    {"ZRV_XU_EXT_ROM_TYPE",       ZRV_XU_EXT_ROM_TYPE,        0,   1},
    {"ZRV_XU_SETFILE_VER",        ZRV_XU_SETFILE_VER,         0,  11},
    {"ZRV_XU_WRITE_PROTECT",      ZRV_XU_WRITE_PROTECT,       0,   1},
    {"ZRV_XU_ONE_WIRE",           ZRV_XU_ONE_WIRE,            0,  64},
    {"ZRV_XU_EXT_ROM_CHKSUM",     ZRV_XU_EXT_ROM_CHKSUM,      0,  11},
    {"ZRV_XU_SPI_STATUS",         ZRV_XU_SPI_STATUS,          0,  11},
    {"ZRV_XU_OSD",                ZRV_XU_OSD,                 0,  18},
    {"ZRV_XU_VERSION",            ZRV_XU_VERSION,             0,  11},
};
int32_t uvc_xu_table_ver_0100_count = std::size(uvc_xu_table_ver_0100);

uvc_xu_ctrl uvc_xu_table_ver_0101[] = {
//   name                        selector                  length
    {"ZRV_XU_EXT_ROM",            ZRV_XU_EXT_ROM,             0,  35},
    {"ZRV_XU_FLIP",               ZRV_XU_FLIP,                0,   1},
    {"ZRV_XU_MIRROR",             ZRV_XU_MIRROR,              0,   1},
    {"ZRV_XU_REG",                ZRV_XU_REG,                 0,  11},
    {"ZRV_XU_SENSOR",             ZRV_XU_SENSOR,              0,  11},
    {"ZRV_XU_MCU",                ZRV_XU_MCU,                 0,  11},
    {"ZRV_XU_INT_ROM",            ZRV_XU_INT_ROM,             0,  11},
    {"ZRV_XU_HW_VER",             ZRV_XU_HW_VER,              0,   1},
    {"ZRV_XU_EXT_ROM_TYPE",       ZRV_XU_EXT_ROM_TYPE,        0,   1},
    {"ZRV_XU_SETFILE_VER",        ZRV_XU_SETFILE_VER,         0,  11},
    {"ZRV_XU_WRITE_PROTECT",      ZRV_XU_WRITE_PROTECT,       0,   1},
    {"ZRV_XU_EXT_ROM_CHKSUM",     ZRV_XU_EXT_ROM_CHKSUM,      0,  11},
    {"ZRV_XU_SPI_STATUS",         ZRV_XU_SPI_STATUS,          0,  11},
    {"ZRV_XU_VERSION",            ZRV_XU_VERSION,             0,  11},
    {"ZRV_XU_Read_EXT_ROM_512",   ZRV_XU_Read_EXT_ROM_512,    0, 516},
};
int32_t uvc_xu_table_ver_0101_count = std::size(uvc_xu_table_ver_0101);

NyXuTable xu_table_list[] = {
//   version  table                  rows
    {0xFFFF,  uvc_xu_table_ver_none, std::size(uvc_xu_table_ver_none)},   // no version record
    {0x0100,  uvc_xu_table_ver_0100, std::size(uvc_xu_table_ver_0100)},
    {0x0101,  uvc_xu_table_ver_0101, std::size(uvc_xu_table_ver_0101)},
    {0x0002,  uvc_xu_table_ver_0002, std::size(uvc_xu_table_ver_0002)},
    {0x0003,  uvc_xu_table_ver_0003, std::size(uvc_xu_table_ver_0003)},
};
int32_t xu_table_list_count = std::size(xu_table_list);

// Read through fixed calls, whatever table the camera has.
uvc_xu_ctrl uvc_xu_ctrl_ver_info[] = {
    {"ZRV_XU_INT_FW_VER",         ZRV_XU_INT_FW_VER,          0,  11},
    {"ZRV_XU_VERSION",            ZRV_XU_VERSION,             0,  11},
};
// clang-format on

static_assert(sizeof(uvc_xu_ctrl) == 36 && offsetof(uvc_xu_ctrl, selector) == 32 &&
              offsetof(uvc_xu_ctrl, length) == 34);
static_assert(sizeof(NyXuVersion) == 11 && offsetof(NyXuVersion, wExMemVer) == 6);
static_assert(std::size(uvc_xu_table_ver_none) == 15 && std::size(uvc_xu_table_ver_0002) == 19 &&
              std::size(uvc_xu_table_ver_0003) == 17 && std::size(uvc_xu_table_ver_0100) == 16 &&
              std::size(uvc_xu_table_ver_0101) == 15 && std::size(xu_table_list) == 5);
