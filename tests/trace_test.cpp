// SPDX-License-Identifier: Apache-2.0
// Error state, trace lines, hex dump, progress, timer.
#include <nyxus/nyxus.h>

#include <gtest/gtest.h>

#include <sys/time.h>
#include <atomic>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "support/captured.h"
#include "support/simulated_time.h"

namespace {

std::string dump(uint32_t base, const std::vector<uint8_t>& data, bool ascii)
{
    Captured err;
    NyPrintBuf(base, data.data(), static_cast<uint32_t>(data.size()), ascii);
    return err.text();
}

std::string progress(int32_t current, uint32_t total)
{
    Captured err;
    NyPrintProgress(current, total);
    return err.text();
}

bool matches(const std::string& text, const std::string& pattern)
{
    return testing::Matcher<std::string>(testing::MatchesRegex(pattern)).Matches(text);
}

constexpr char kHeader[] = "            0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F ;\n";

} // namespace

TEST(HexDump, PrintsFullAndPartialRows)
{
    std::vector<uint8_t> bytes(17);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0x70});
    const std::string row = "00006000h: 70 71 72 73 74 75 76 77 78 79 7A 7B 7C 7D 7E 7F ";
    std::string rest = "00006010h: 80 ";
    for (int i = 0; i < 15; ++i)
        rest += "   ";

    EXPECT_EQ(dump(0, {}, true), kHeader);
    EXPECT_EQ(dump(0x6000, {bytes.begin(), bytes.end() - 1}, true),
              kHeader + row + "; pqrstuvwxyz{|}~ \n");
    EXPECT_EQ(dump(0x6000, bytes, false), kHeader + row + "; \n" + rest + "; \n");
    EXPECT_EQ(dump(0x6000, bytes, true), kHeader + row + "; pqrstuvwxyz{|}~ \n" + rest + ";  \n");
    EXPECT_EQ(dump(0, {0x20, 0x21, 0x7E}, true).substr(sizeof kHeader - 1),
              "00000000h: 20 21 7E " + std::string(39, ' ') + ";  !~\n");
}

TEST(Progress, MarksUnitsAndClosesEvery512WithAPercentage)
{
    const struct {
        int32_t current;
        uint32_t total;
        const char* printed;
    } cases[] = {
        {100, 100, ""},
        {511, 511, ""},
        {512, 1024, " (50%)\n"},
        {8, 1000, "#"},
        {1000, 1000, "# (100%)\n"},
        {1024, 1024, " (100%)\n"},
        {0x10000, 0x10000, " (0%)\n"},
        {0x10008, 0x20000, "#"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(progress(c.current, c.total), c.printed) << c.current << " of " << c.total;
}

TEST(Trace, PresetsSetTheMask)
{
    const struct {
        int32_t level;
        uint32_t mask;
    } cases[] = {{1, 0x3FF}, {2, 0x7FF}, {3, 0x1FFF}, {0, 0x0F}, {-5, 0x0F}, {4, 0x0F}};
    for (const auto& c : cases) {
        NyTraceVerbose_level(c.level);
        EXPECT_EQ(ny_trace_param, c.mask) << c.level;
    }
}

TEST(Trace, AFailureFillsTheMessageAndPrintsOnlyWhenErrorsAreTraced)
{
    for (const uint32_t mask : {0u, 0x7FFu, 0x1000u, 0x80u}) {
        ny_trace_param = mask;
        nyxus_errno = 0;
        Captured err;
        EXPECT_EQ(LIB_NyxusGetVersion(nullptr), -258);
        EXPECT_EQ(err.text(), "") << mask;
        EXPECT_EQ(nyxus_errno, -258);
        EXPECT_STREQ(nyxus_errtmp, "'version' cannot be NULL");
        EXPECT_TRUE(matches(nyxus_errmsg,
                            R"(NYXuApi\.cpp\([0-9]+\): <ERROR_NYXUS> 'version' cannot be NULL)"))
            << nyxus_errmsg;
    }
    ny_trace_param = 0x1080;
    Captured err;
    EXPECT_EQ(LIB_NyxusGetConfig(nullptr), -258);
    EXPECT_TRUE(matches(err.text(), R"(\[[0-9]{1,3}\.[ 0-9]{3}\] {10}LIB_NyxusGetConfig\(\): )"
                                    "<ERROR_NYXUS> 'config' cannot be NULL \\(-258\\) \n"))
        << err.text();
}

TEST(Trace, TheDetailIsAsLongAsItsRoom)
{
    const std::string field(2000, 'x');
    const std::string detail = "INI serial number field '" + field + "' contains non-decimal";
    ny_trace_param = NY_TRACE_ERROR;
    Captured err;
    EXPECT_EQ(check_base_char(false, field.c_str()), -527);
    EXPECT_EQ(std::string(nyxus_errtmp), detail.substr(0, 127));
    const std::string message = nyxus_errmsg;
    EXPECT_EQ(message.size(), 255U);
    const size_t place = message.find("<ERROR_NYXUS> ") + 14;
    EXPECT_EQ(message.substr(place), detail.substr(0, 255 - place));
    EXPECT_NE(err.text().find("<ERROR_NYXUS> " + detail + " character(s) (-527) \n"),
              std::string::npos)
        << err.text();

    EXPECT_EQ(check_base_char(false, nyxus_errmsg), -527) << "the message may be an argument";
    EXPECT_EQ(std::string(nyxus_errtmp),
              ("INI serial number field '" + message + "'").substr(0, 127));
}

TEST(Trace, EachThreadKeepsItsOwnFailure)
{
    EXPECT_EQ(check_base_char(false, "12a4"), -527);
    std::atomic<int32_t> seen_before{1};
    std::thread other([&] {
        seen_before = nyxus_errno;
        EXPECT_EQ(LIB_NyxusSetConfig(nullptr), -258);
        EXPECT_STREQ(nyxus_errtmp, "'config' cannot be NULL");
    });
    other.join();
    EXPECT_EQ(seen_before, 0);
    EXPECT_EQ(nyxus_errno, -527);
    EXPECT_STREQ(nyxus_errtmp, "INI serial number field '12a4' contains non-decimal character(s)");
}

TEST(Timer, ComputesTheIntervalWithoutABorrow)
{
    const struct {
        int64_t start_us;
        int64_t end_us;
        const char* printed;
    } cases[] = {
        {10'100'000, 12'900'000, "2.800"},
        {10'900'000, 12'100'000, "1.800"},
        {10'000'000, 12'000'000, "1.0"},
    };
    for (const auto& c : cases) {
        SimulatedTime time{c.start_us};
        ny_trace_param = 0x40;
        Captured err;
        NyPrintTimeStart();
        time.set_us(c.end_us);
        NyPrintTimeInterval();
        ny_trace_param = 0;
        std::string expected = "<INFO> Exection Time: Start counting! \n";
        expected += "<INFO> Exection Time: Interval = ";
        expected += c.printed;
        expected += " seconds \n";
        EXPECT_EQ(err.text(), expected);
    }
}
