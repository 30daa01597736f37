// SPDX-License-Identifier: Apache-2.0
// nyxus explain: what a user has at hand, in any notation.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

Outcome explain(const Words& words)
{
    Words command = {kNyxus, "explain"};
    command.insert(command.end(), words.begin(), words.end());
    return run_program(command);
}

TEST(Explain, TakesANumberInAnyNotationANameAndALine)
{
    struct {
        const char* asked;
        std::vector<std::string> statuses; ///< those that the answers are about
    } const cases[] = {
        {"-16393", {"-16393, 0x4009"}},
        {"16393", {"-16393, 0x4009"}},
        {"0x4009", {"-16393, 0x4009"}},
        {"0xFFFFBFF7", {"-16393, 0x4009"}},
        {"LIBUSB_ERROR_PIPE", {"-16393, 0x4009"}},
        {"uvc_error_pipe", {"-9, 0x0009: UVC_ERROR_PIPE"}},
        {"ENOTEMPTY", {"NYXUS_E_SYSTEM(ENOTEMPTY)"}},
        {"-1", {"NYXUS_E_FAILED", "UVC_ERROR_IO"}},
        {"3", {"unknown chip", "exit code 3"}},
        {"133", {"SG_EEPROM_BAD_END"}},
        {"-1200", {"not in use", "an operation of a camera"}},
        {"nyxus: talking to the encoder [-16]", {"NYXUS_E_BUSY"}},
        {"[1.5] XuRegRead() XuGetFlip(pDevObj, -1) FAILED, rv = -16388", {"NO_DEVICE"}},
        {"nyxus: x [NYXuIoctl.cpp(26): <ERROR_LIBUSB> libusb_open() FAILED, -1, -16387]",
         {"ACCESS"}},
        {"<ERROR_LIBUSB> libusb_claim_interface() FAILED, Resource busy", {"LIBUSB_ERROR_BUSY"}},
        {"<ERROR_SYSTEM> Open bin file 'x' FAILED", {"ENOENT", "EACCES"}},
        {"<ERROR_NYXUS> 'buf' cannot be NULL", {"NYXUS_E_LIB_NULL", "NYXUS_E_BIN_NULL"}},
        {"<ERROR_NYXUS> 'pGain' cannot be NULL", {"NYXUS_E_RANGE"}},
    };
    for (const auto& row : cases) {
        const Outcome outcome = explain({row.asked});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        for (const std::string& status : row.statuses)
            EXPECT_NE(outcome.out.find(status), std::string::npos) << row.asked << outcome.out;
    }
}

TEST(Explain, TakesWhatAReadingThatFailedHasSaid)
{
    Bench bench;
    bench.set_faults(
        R"(fault = [{when = {rom_address = 0x1000, request = "GET_CUR"}, do = "stall"}])");
    const Outcome failed = bench.nyxus({"hawthorn-eeprom"}, {"dump", bench.path("rom")});
    EXPECT_EQ(failed.exit_code, 1) << failed.err;
    const Outcome explained = explain({failed.err.substr(failed.err.find("nyxus: reading"))});
    EXPECT_TRUE(contains(explained.out, "-16393, 0x4009")) << failed.err << explained.err;
}

TEST(Explain, RefusesWhatMeansNothing)
{
    for (const char* asked : {"frob", "5000", "99999999999", "-99999999999", "-2147483648",
                              "exit 77", "0x", "-", "\x1B[2J"}) {
        const Outcome outcome = explain({asked});
        EXPECT_EQ(outcome.exit_code, 2) << asked << outcome.out;
        EXPECT_TRUE(outcome.err.starts_with("nyxus: '")) << outcome.err;
        EXPECT_EQ(outcome.err.find('\x1B'), std::string::npos);
    }
    EXPECT_EQ(explain({}).exit_code, 2);
}

TEST(Explain, ExplainsEachOfSeveralWordsAndPrintsJson)
{
    const Outcome outcome = explain({"-16", "NYXUS_E_RANGE", "--json"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const auto list = Json::parse(outcome.out);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["status"], -16);
    EXPECT_EQ(list[1]["hex"], "0x040C");
}

} // namespace
