// SPDX-License-Identifier: Apache-2.0
// Parts of the ROM: shown, read, written, compared and erased; and the MFi serial number.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>

using namespace test;

namespace {

Bytes part_of(const Bytes& bytes, size_t address, size_t size)
{
    return {bytes.begin() + static_cast<ptrdiff_t>(address),
            bytes.begin() + static_cast<ptrdiff_t>(address + size)};
}

/// With a flash, which has to be erased as a whole, and with an EEPROM.
TEST(RomParts, ChangeAndNothingElseDoes)
{
    for (const std::string model : {kModel, "hawthorn-eeprom"}) {
        const Bench bench;
        const auto nyxus = [&](const Words& arguments) {
            return bench.nyxus_with_rom(model, arguments);
        };
        const std::string image = bench.image(model, "0x0205", {"--size", "4000"});
        ASSERT_EQ(nyxus({"upgrade", image, "--force", "-q"}).exit_code, 0);
        Bytes expected = read_file(bench.rom_file());
        const Bytes notes(100, 0x5A);
        write_file(bench.path("notes"), notes);
        const Outcome written =
            nyxus({"rom", "write", bench.path("notes"), "--region", "reserved"});
        EXPECT_EQ(written.exit_code, 0) << written.err;
        std::ranges::copy(notes, expected.begin() + 0x7F00);
        EXPECT_EQ(read_file(bench.rom_file()), expected) << model;

        const Words range = {"--at", "0x7F00", "--size", "100"};
        const auto with_range = [&](Words words) {
            words.insert(words.end(), range.begin(), range.end());
            return nyxus(words);
        };
        const Outcome piped = with_range({"rom", "read", "-"});
        EXPECT_EQ(Bytes(piped.out.begin(), piped.out.end()), notes);
        EXPECT_TRUE(contains(with_range({"rom", "read"}).out, "0x7F00  5A 5A 5A")) << model;
        EXPECT_EQ(with_range({"rom", "verify", bench.path("notes")}).exit_code, 0);
        EXPECT_EQ(nyxus({"rom", "verify", bench.path("notes")}).exit_code, 8);

        EXPECT_EQ(with_range({"rom", "erase"}).exit_code, 13) << "nobody has been asked";
        EXPECT_EQ(with_range({"rom", "erase", "--yes"}).exit_code, 0);
        std::fill_n(expected.begin() + 0x7F00, 100, 0xFF);
        EXPECT_EQ(read_file(bench.rom_file()), expected) << model;
        EXPECT_EQ(nyxus({"rom", "write", image, "--region", "reserved"}).exit_code, 2);
    }
}

TEST(StandardInput, HoldsAnImage)
{
    const Bench bench;
    const std::string script = R"("$NYXUS" upgrade - -q <"$IMAGE" && "$NYXUS" compare - -q <"$IMAGE"
        "$NYXUS" upgrade - --sha256 $(printf '%064d' 0) <"$IMAGE" 2>/dev/null; echo "<$?>"
        "$NYXUS" image - <"$IMAGE")";
    const Outcome outcome =
        bench.shell(kModel, script, {{"IMAGE", bench.image(kModel, "0x0205", {"--size", "4000"})}});
    EXPECT_TRUE(contains(outcome.out, "equal: ")) << outcome.out << outcome.err;
    EXPECT_TRUE(contains(outcome.out, "<7>")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "firmware (NXFW)")) << outcome.out;
}

TEST(RomMap, NamesTheRegionsAndWhatTheyHold)
{
    const Bench bench;
    ASSERT_EQ(bench
                  .nyxus_with_rom(kModel, {"upgrade", bench.image(kModel, "0x0205"), "--mfi",
                                           bench.mfi_image("A0001234")})
                  .exit_code,
              0);
    const Json map = Json::parse(bench.nyxus_with_rom(kModel, {"rom", "map", "--json"}).out);
    EXPECT_TRUE(contains(map["holds"].text(), "MFi serial number A0001234")) << map;
    EXPECT_EQ(map["part_bytes"], 0x20000);
    EXPECT_EQ(map["regions"][0]["region"], "header");
    EXPECT_EQ(map["regions"][2]["region"], "mfi");
    EXPECT_EQ(map["regions"][2]["address"], 0x6000);
    EXPECT_GT(map["regions"][2]["used_bytes"].number(), 0);
    EXPECT_EQ(map["regions"][3]["region"], "free");
    EXPECT_EQ(map["regions"][3]["used_bytes"], 0);
}

TEST(MfiSerial, IsShownAndWrittenAndNothingElseChanges)
{
    const Bench bench;
    EXPECT_EQ(
        Json::parse(bench.nyxus_with_rom(kModel, {"serial", "--json", "-q"}).out)["mfi_serial"],
        nullptr);
    ASSERT_EQ(bench
                  .nyxus_with_rom(kModel, {"upgrade", bench.image(kModel, "0x0205"), "--mfi",
                                           bench.mfi_image("A0001234")})
                  .exit_code,
              0);
    const Bytes before = read_file(bench.rom_file());
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"serial", "A00012345"}).exit_code, 7);
    EXPECT_EQ(read_file(bench.rom_file()), before);
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"serial", "B0001234"}).exit_code, 0);
    const Bytes after = read_file(bench.rom_file());
    EXPECT_EQ(part_of(after, 0, 0x6000), part_of(before, 0, 0x6000));
    EXPECT_NE(after, before);
    const Outcome shown = bench.nyxus_with_rom(kModel, {"serial", "-q"});
    EXPECT_TRUE(contains(shown.out, "MFi serial number: B0001234\n")) << shown.out;
}

TEST(MfiSerial, NeedsARomWithRoomForIt)
{
    const Bench bench;
    const Outcome told = bench.shell(
        kModel,
        R"("$SIM" describe willow-eeprom | sed 's/24C256/24C64/; s/^size_bytes.*/size_bytes = 4096/' >"$SMALL")",
        {{"SMALL", bench.path("small.toml")}});
    ASSERT_EQ(told.exit_code, 0) << told.err;
    for (const Words& command : {Words{"serial"}, Words{"serial", "A0001234"}}) {
        const Outcome outcome = bench.nyxus({bench.path("small.toml")}, command);
        EXPECT_EQ(outcome.exit_code, 12) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "8192 bytes has no room")) << outcome.err;
    }
}

TEST(All, DoesItWithEachCameraAndTellsTheWorst)
{
    const Bench bench;
    const Words cameras = {"rowan-spi,serial=A1", "cedar-spi,serial=B2"};
    const std::string image = bench.image(kModel, "0x0100");
    const Outcome outcome = bench.nyxus(cameras, {"flip", "on", "--all", "--json"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    const std::vector<Json> lines = events(outcome.out);
    ASSERT_EQ(lines.size(), 2U) << outcome.out;
    EXPECT_EQ(lines[0]["serial"], "A1");
    EXPECT_EQ(lines[1]["serial"], "B2");
    EXPECT_EQ(lines[1]["flip"], true);

    EXPECT_EQ(bench.nyxus(cameras, {"dump", bench.path("rom.bin"), "--all"}).exit_code, 0);
    EXPECT_EQ(bench.nyxus({"rowan-spi"}, {"compare", bench.path("rom-1-1.bin")}).exit_code, 0);
    const Outcome worst = bench.nyxus(cameras, {"compare", bench.path("rom-1-1.bin"), "--all"});
    EXPECT_EQ(worst.exit_code, 8) << worst.out;
    EXPECT_TRUE(contains(worst.out, "equal: ")) << worst.out;
    EXPECT_EQ(run_program({kNyxus, "info", "--all"}).exit_code, 3);
    EXPECT_EQ(bench.nyxus(cameras, {"info", "--all", "-c", "A1"}).exit_code, 2);
}

} // namespace
