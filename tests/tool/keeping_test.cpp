// SPDX-License-Identifier: Apache-2.0
// What an upgrade does not replace stays; and no read lies.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

constexpr char kSerial[] = "UNIT00000007";
const Bytes kNotes = {1, 2, 3};

/// A camera with a serial number of its own and notes in its reserved area.
void prepare(const Bench& bench)
{
    const std::string image = bench.image(kModel, "0x0205");
    const Outcome outcome = bench.nyxus_with_rom(
        kModel,
        {"upgrade", image, "--mfi", bench.mfi_image("UNIT00000000"), "--mfi-serial", kSerial});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    write_file(bench.path("notes"), kNotes);
    ASSERT_EQ(
        bench.nyxus_with_rom(kModel, {"rom", "write", bench.path("notes"), "--region", "reserved"})
            .exit_code,
        0);
}

Bytes part_of_rom(const Bench& bench, ptrdiff_t address, ptrdiff_t size)
{
    const Bytes rom = read_file(bench.rom_file());
    return {rom.begin() + address, rom.begin() + address + size};
}

TEST(Keeping, AnUpgradeLeavesTheMfiImageAndTheReservedAreaUnlessToldOtherwise)
{
    const struct {
        Words options;
        bool keeps_mfi;
        bool keeps_notes;
    } cases[] = {
        {{"--no-backup"}, true, true},
        {{"--all", "-v"}, true, true},
        {{"--discard", "mfi"}, false, true},
        {{"--all", "--discard", "mfi,reserved"}, false, false},
    };
    for (const auto& c : cases) {
        const Bench bench;
        prepare(bench);
        const Bytes mfi = part_of_rom(bench, 0x6000, 0x1000);
        Words upgrade = {"upgrade", bench.image(kModel, "0x0206")};
        upgrade.insert(upgrade.end(), c.options.begin(), c.options.end());
        const Outcome outcome = bench.nyxus_with_rom(kModel, upgrade);
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_EQ(part_of_rom(bench, 0x6000, 0x1000) == mfi, c.keeps_mfi);
        EXPECT_EQ(part_of_rom(bench, 0x7F00, 3) == kNotes, c.keeps_notes);
        EXPECT_EQ(contains(bench.nyxus_with_rom(kModel, {"list"}).out, kSerial), c.keeps_mfi);
        const std::string& told = outcome.out + outcome.err;
        EXPECT_EQ(contains(told, "kept: MFi image (256 bytes from 0x6000)"), c.keeps_mfi) << told;
        EXPECT_EQ(contains(told, "lost: MFi image (256 bytes from 0x6000): it is not wanted"),
                  !c.keeps_mfi)
            << told;
    }
}

TEST(Keeping, ADryRunNamesWhatIsKeptReplacedAndLost)
{
    const Bench bench;
    prepare(bench);
    const std::string image = bench.image(kModel, "0x0206");
    const Outcome text =
        bench.nyxus_with_rom(kModel, {"upgrade", image, "-n", "--discard", "reserved"});
    for (const char* line : {"\n  write back: 256 bytes from 0x6000\n  write header: 64 bytes",
                             "\nkept: MFi image (256 bytes from 0x6000)",
                             "\nreplaced: firmware (23296 bytes from 0x0000)",
                             "\nlost: reserved area (256 bytes from 0x7F00): it is not wanted",
                             "\nlost: what else the flash holds (65536 bytes from 0x10000): "})
        EXPECT_TRUE(contains(text.out, line)) << line << text.out << text.err;
    const Outcome json = bench.nyxus_with_rom(kModel, {"upgrade", image, "-n", "--json"});
    const Json plan = Json::parse(json.out);
    EXPECT_EQ(plan["kept"][0]["part"], "MFi image");
    EXPECT_EQ(plan["kept"][1]["address"], 0x7F00);
    EXPECT_EQ(plan["replaced"][0]["bytes"], 23296);
    EXPECT_EQ(plan["lost"][0]["address"], 0x10000);
}

TEST(Dump, HoldsTheRomOrFails)
{
    const struct {
        const char* fault;
        int exit_code;
    } cases[] = {
        {R"(when = {selector = 3, request = "SET_CUR", count = 100}, do = "stall")", 0},
        {R"(when = {selector = 3, request = "GET_CUR", count = 100}, do = "short", bytes = 9)", 0},
        {R"(when = {rom_address = 0x1234, count = 1}, do = "bit-flip")", 0},
        {R"(when = {selector = 3, request = "SET_CUR", count = [100, 120]}, do = "stall")", 1},
        {R"(when = {rom_address = [0x1200, 0x12FF], probability = 0.9}, do = "bit-flip")", 1},
    };
    for (const auto& c : cases) {
        Bench bench;
        ASSERT_EQ(bench.nyxus_with_rom(kModel, {"dump", bench.path("right")}).exit_code, 0);
        bench.set_faults("fault = [{" + std::string(c.fault) + "}]");
        const Outcome outcome = bench.nyxus_with_rom(kModel, {"dump", bench.path("dump")});
        EXPECT_EQ(outcome.exit_code, c.exit_code) << c.fault << outcome.err;
        EXPECT_TRUE(contains(outcome.out + outcome.err, "read once more: ")) << c.fault;
        EXPECT_EQ(read_file(bench.path("dump")) == read_file(bench.path("right")), c.exit_code == 0)
            << c.fault;
    }
}

} // namespace
