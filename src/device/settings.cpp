// SPDX-License-Identifier: Apache-2.0
#include <nyxus/config.h>
#include <nyxus/trace.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "trace/failure.h"
#include "unit.h"

static constexpr char kVersionText[] =
    NYXUS_LIBRARY_VERSION "\n"; // of the project's CMakeLists.txt
static_assert(sizeof kVersionText <= 8, "callers are told to pass 8 bytes");
static constexpr int32_t kCustomerCode = 3;

uint8_t nyxus_driver_type = 1;
uint8_t nyxus_bin_sn_len = 0;
void* nyxus_ini_dict = nullptr;

NyIni nyxus_ini;
const NyIni nyxus_ini_default = {
    .fw_bin_name = "NY6410M_GC0329_v0003.bin",
    .fw_flags = {0, 1, 1},
    .mfi_bin_name = "MFiInfo.bin",
    .mfi_flags = {0, 1},
    .sn_prefix = "VELKA_",
    .sn_number = "0009",
    .sn_suffix = "_LINK",
};
static_assert(sizeof(NyIni) == 613 && offsetof(NyIni, mfi_bin_name) == 0x103 &&
              offsetof(NyIni, sn_prefix) == 0x205 && offsetof(NyIni, sn_suffix) == 0x245);
static_assert(sizeof(NyConfig) == 8 && offsetof(NyConfig, bPrintProgress) == 6);

int32_t LIB_NyxusGetVersion(char* version)
{
    NY_REQUIRE_AS(NYXUS_E_LIB_NULL, version);
    std::memcpy(version, kVersionText, sizeof kVersionText);
    return 0;
}

int32_t LIB_NyxusGetConfig(NyConfig* config)
{
    NY_REQUIRE_AS(NYXUS_E_LIB_NULL, config);
    config->dwTraceParam = ny_trace_param;
    config->bDriverType = nyxus_driver_type;
    config->bWriteCycleTime = nyxus_write_cycle_time;
    config->bPrintProgress = nyxus_print_progress;
    return 0;
}

int32_t LIB_NyxusSetConfig(const NyConfig* config)
{
    NY_REQUIRE_AS(NYXUS_E_LIB_NULL, config);
    ny_trace_param = config->dwTraceParam;
    nyxus_driver_type = config->bDriverType;
    nyxus_write_cycle_time = config->bWriteCycleTime;
    nyxus_print_progress = config->bPrintProgress;
    return 0;
}

int32_t HexStr2Buf(const char* str, int32_t max_bytes, uint8_t* buf)
{
    if (max_bytes < 1)
        return 0; // whatever the pointers are
    NY_REQUIRE_AS(NYXUS_E_LIB_NULL, str);
    const size_t pairs = std::strlen(str) / 2;
    const auto count = static_cast<int32_t>(std::min(pairs, static_cast<size_t>(max_bytes)));
    if (count > 0)
        NY_REQUIRE_AS(NYXUS_E_LIB_NULL, buf);
    for (int32_t i = 0; i < count; ++i) {
        const char pair[] = {str[2 * i], str[2 * i + 1], '\0'};
        // A pair that is no number leaves its byte as it was.
        (void)std::sscanf(pair, "%2hhx", &buf[i]);
    }
    return count;
}

int32_t GetCustomerCode(void)
{
    return kCustomerCode;
}

int32_t check_base_char(bool bHex, const char* str)
{
    NY_REQUIRE(str);
    const char* digits = bHex ? "0123456789abcdefABCDEF" : "0123456789";
    if (std::strspn(str, digits) == std::strlen(str))
        return 0;
    if (bHex) {
        return NY_FAIL(NYXUS_E_INI_DIGIT,
                       "INI serial number field '%s' contains non-hexdecimal character(s)", str);
    }
    return NY_FAIL(NYXUS_E_INI_DIGIT,
                   "INI serial number field '%s' contains non-decimal character(s)", str);
}
