// SPDX-License-Identifier: Apache-2.0
#include <nyxus/nyxus.h>

#include <gtest/gtest.h>

#include <cstring>

#include "support/captured.h"

TEST(Settings, TheVersionIsATextWithALineFeed)
{
    char version[8];
    std::memset(version, 'x', sizeof version);
    EXPECT_EQ(LIB_NyxusGetVersion(version), 0);
    EXPECT_EQ(std::memcmp(version, "2.0.11\n", 8), 0);
    EXPECT_EQ(GetCustomerCode(), 3);
}

TEST(Settings, TravelAsOneRecord)
{
    NyConfig config = {};
    EXPECT_EQ(LIB_NyxusGetConfig(&config), 0);
    EXPECT_EQ(config.dwTraceParam, 0u);
    EXPECT_EQ(config.bDriverType, 1);
    EXPECT_EQ(config.bWriteCycleTime, 1);
    EXPECT_EQ(config.bPrintProgress, 0);

    const NyConfig other = {0x1234, 0, 5, 1};
    EXPECT_EQ(LIB_NyxusSetConfig(&other), 0);
    EXPECT_EQ(ny_trace_param, 0x1234u);
    EXPECT_EQ(nyxus_driver_type, 0);
    EXPECT_EQ(nyxus_write_cycle_time, 5);
    EXPECT_EQ(nyxus_print_progress, 1);
}

TEST(Settings, HexadecimalTextBecomesBytes)
{
    const struct {
        const char* text;
        int32_t room;
        int32_t count;
        uint8_t bytes[4];
    } cases[] = {
        {"0A1b2", 8, 2, {0x0A, 0x1B, 0xEE, 0xEE}},  {"FF", 0, 0, {0xEE, 0xEE, 0xEE, 0xEE}},
        {"FF", -3, 0, {0xEE, 0xEE, 0xEE, 0xEE}},    {"", 4, 0, {0xEE, 0xEE, 0xEE, 0xEE}},
        {"5zzz01", 3, 3, {0x05, 0xEE, 0x01, 0xEE}}, {"010203", 2, 2, {0x01, 0x02, 0xEE, 0xEE}},
    };
    for (const auto& c : cases) {
        uint8_t buf[4];
        std::memset(buf, 0xEE, sizeof buf);
        EXPECT_EQ(HexStr2Buf(c.text, c.room, buf), c.count) << c.text;
        EXPECT_EQ(std::memcmp(buf, c.bytes, sizeof buf), 0) << c.text;
    }
    uint8_t byte = 0;
    EXPECT_EQ(HexStr2Buf(nullptr, 0, nullptr), 0) << "nothing to convert is no failure";
    EXPECT_EQ(HexStr2Buf("F", 1, nullptr), 0);
    EXPECT_EQ(HexStr2Buf(nullptr, 1, &byte), -258);
    EXPECT_EQ(HexStr2Buf("FF", 1, nullptr), -258);
}

TEST(Settings, SerialNumberFieldsHoldDigitsOnly)
{
    const struct {
        bool hex;
        const char* field;
        int32_t result;
    } cases[] = {
        {false, "0009", 0},    {false, "", 0},       {true, "", 0},        {true, "12aF", 0},
        {false, "12a4", -527}, {true, "12g4", -527}, {true, "0x12", -527},
    };
    for (const auto& c : cases)
        EXPECT_EQ(check_base_char(c.hex, c.field), c.result) << c.field;
    EXPECT_STREQ(nyxus_errtmp,
                 "INI serial number field '0x12' contains non-hexdecimal character(s)");
}

TEST(Settings, TheProductionBlockKeepsItsPlaces)
{
    const auto* bytes = reinterpret_cast<const uint8_t*>(&nyxus_ini_default);
    const auto text = [&](size_t offset) { return reinterpret_cast<const char*>(bytes + offset); };
    EXPECT_STREQ(text(0x000), "NY6410M_GC0329_v0003.bin");
    EXPECT_EQ(std::memcmp(bytes + 0x100, "\x00\x01\x01", 3), 0);
    EXPECT_STREQ(text(0x103), "MFiInfo.bin");
    EXPECT_EQ(std::memcmp(bytes + 0x203, "\x00\x01", 2), 0);
    EXPECT_STREQ(text(0x205), "VELKA_");
    EXPECT_STREQ(text(0x225), "0009");
    EXPECT_STREQ(text(0x245), "_LINK");
    for (size_t i = 0; i < sizeof nyxus_ini; ++i)
        ASSERT_EQ(reinterpret_cast<const uint8_t*>(&nyxus_ini)[i], 0);
}

TEST(Settings, TheWriteCycleTimeKeepsItsLowByte)
{
    ny_trace_param = 0x0880;
    Captured err;
    XU_SetWriteCycleTime(300);
    ny_trace_param = 0;
    EXPECT_EQ(bEepromWriteCycleTime, 44);
    EXPECT_NE(
        err.text().find("XU_SetWriteCycleTime(): INFO: Setting write-cycle-time = 44 ms ... \n"),
        std::string::npos);
}
