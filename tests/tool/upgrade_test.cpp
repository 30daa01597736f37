// SPDX-License-Identifier: Apache-2.0
// What the program does to a camera's ROM: right images, wrong images, and reading.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>

using namespace test;

namespace {

TEST(Upgrade, EveryModelRunsTheNewFirmwareAfterTheReset)
{
    for (const std::string& model : kModels) {
        const Bench bench;
        const std::string image = bench.image(model, "0x0205");
        const Outcome upgrade = bench.nyxus_with_rom(model, {"upgrade", image, "--reset"});
        ASSERT_EQ(upgrade.exit_code, 0) << model << ": " << upgrade.err;
        EXPECT_TRUE(contains(upgrade.out, "read back and equal")) << upgrade.out;
        EXPECT_TRUE(contains(upgrade.out, "runs external firmware 0x0205")) << upgrade.out;
        EXPECT_EQ(upgrade.err, "");

        const Bytes expected = read_file(image);
        Bytes rom = read_file(bench.rom_file());
        ASSERT_GE(rom.size(), expected.size());
        rom.resize(expected.size());
        EXPECT_EQ(rom, expected) << model;
    }
}

TEST(Upgrade, WritesMfiImageAndSerialNumber)
{
    for (const std::string& model : kModels) {
        const Bench bench;
        const std::string image = bench.image(model, "0x0301", {"--size", "20000"});
        const std::string mfi = bench.mfi_image("OLDSERIAL");
        const Outcome upgrade = bench.nyxus_with_rom(
            model, {"upgrade", image, "--mfi", mfi, "--mfi-serial", "NEWSERIAL"});
        ASSERT_EQ(upgrade.exit_code, 0) << model << ": " << upgrade.err;

        const Bytes original = read_file(mfi);
        const Bytes rom = read_file(bench.rom_file());
        ASSERT_GE(rom.size(), 0x6000 + original.size());
        const auto written = rom.begin() + 0x6000;
        const std::string text(written, written + static_cast<long>(original.size()));
        EXPECT_TRUE(contains(text, "NEWSERIAL")) << model;
        EXPECT_TRUE(contains(text, std::string("N\0E\0W\0S\0", 8))) << model;
        EXPECT_FALSE(contains(text, "OLDSERIAL")) << model;
    }
}

/// A damaged copy of an image.
std::string changed(const Bench& bench, const std::string& file,
                    const std::function<void(Bytes&)>& change)
{
    Bytes bytes = read_file(file);
    change(bytes);
    std::string copy = bench.path("changed.bin");
    write_file(copy, bytes);
    return copy;
}

TEST(Upgrade, RefusesWrongImagesBeforeAnythingIsWritten)
{
    const Bench bench;
    ASSERT_EQ(bench.nyxus_with_rom(kModel, {"info"}).exit_code, 0);
    const std::string good = bench.image(kModel, "0x0205");
    const std::string small = bench.image(kModel, "0x0205", {"--size", "20000"});
    const std::string large = bench.image(kModel, "0x0206", {"--size", "30000"});
    const std::string foreign = bench.image("cedar-spi", "0x0205");
    const std::string mfi = bench.mfi_image("A0001234");
    const auto file = [&](const char* name, const Bytes& bytes) {
        write_file(bench.path(name), bytes);
        return bench.path(name);
    };
    Bytes cut = read_file(good);
    cut.resize(9000);
    Bytes unknown = read_file(good); // of an unknown kind
    unknown[0] = 'X';
    unknown[0x46] = 0x40;
    const std::string other_kind = file("other", unknown);
    Bytes overlapping = read_file(mfi);
    const size_t record = std::string(overlapping.begin(), overlapping.end()).find("A0001234");
    overlapping[0x10] = static_cast<uint8_t>((0x6000 + record - 2) >> 8);
    overlapping[0x11] = static_cast<uint8_t>(record - 2);
    struct {
        Words arguments;
        int exit_code;
        const char* reason;
    } const cases[] = {
        {{foreign}, 7, "its signature is 'CB', but this camera (NY6410) needs 'RO'"},
        {{file("empty", {})}, 7, "is empty"},
        {{file("huge", Bytes(32769, 0x5A))}, 7, "too large"},
        {{file("blank", Bytes(4096, 0xFF))}, 7, "is no firmware image"},
        {{file("short", Bytes(0x41, 0x52))}, 7, "is no firmware image"},
        {{other_kind}, 7, "made for a ROM of 32 KiB"},
        {{file("cut", cut)}, 7, "(NXFW) is truncated: it has 9000 of 20000 bytes"},
        {{changed(bench, good, [](Bytes& b) { b[9000] ^= 1; })},
         7,
         "checksum of its body is wrong"},
        {{large, "--mfi", mfi}, 7, "would overwrite the MFi image"},
        {{small, "--mfi", file("hugemfi", Bytes(4097, 1))}, 7, "too large for an MFi image"},
        {{small, "--mfi", mfi, "--mfi-serial", "A00012345"}, 7, "9 characters, but"},
        {{small, "--mfi", mfi, "--mfi-serial", "A0001"}, 7, "is made for 8"},
        {{small, "--mfi", mfi, "--mfi-serial", "A000 234"}, 7, "without blanks"},
        {{small, "--mfi", file("nomfi", Bytes(64, 0)), "--mfi-serial", "A"}, 7, "no serial-number"},
        {{small, "--mfi", file("overlap", overlapping), "--mfi-serial", "B0001234"}, 7, "overlap"},
        {{bench.path("missing")}, 1, "No such file"},
        {{bench.path("")}, 1, "it is a folder"},
        {{small, "--mfi", "/dev/null"}, 1, "it is not a plain file"},
    };
    const Bytes before = read_file(bench.rom_file());
    for (const auto& row : cases) {
        Words arguments = {"upgrade"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Outcome outcome = bench.nyxus_with_rom(kModel, arguments);
        EXPECT_EQ(outcome.exit_code, row.exit_code) << row.reason << ": " << outcome.err;
        EXPECT_TRUE(contains(outcome.err, row.reason)) << outcome.err;
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
        EXPECT_EQ(read_file(bench.rom_file()), before) << row.reason;
    }
}

TEST(Upgrade, RevivesACameraWhoseRomIsBlank)
{
    for (const std::string model : {"rowan-spi", "cedar-spi", "larch-spi", "fi2-spi"}) {
        const Bench bench;
        const std::string blank = model + ",blank";
        const Outcome info = bench.nyxus({blank}, {"info"});
        EXPECT_EQ(info.exit_code, 0) << model << ": " << info.err;
        EXPECT_TRUE(contains(info.out, "runs its mask ROM")) << info.out;

        const Outcome upgrade =
            bench.nyxus({blank}, {"upgrade", bench.image(model, "0x0205"), "--reset"});
        EXPECT_EQ(upgrade.exit_code, 0) << model << ": " << upgrade.err;
        EXPECT_TRUE(contains(upgrade.out, "runs external firmware 0x0205")) << upgrade.out;
    }
}

TEST(Upgrade, RevivesABlankEepromOnlyWhenToldThatThereIsOne)
{
    for (const std::string model : {"hawthorn-eeprom", "willow-eeprom"}) {
        const Bench bench;
        const std::string blank = model + ",blank";
        const std::string image = bench.image(model, "0x0205", {"--size", "9000"});
        const Outcome info = bench.nyxus({blank}, {"info"});
        EXPECT_EQ(info.exit_code, 0) << info.err;
        EXPECT_TRUE(contains(info.out, "a blank EEPROM or missing")) << info.out;

        Outcome upgrade = bench.nyxus({blank}, {"upgrade", image});
        EXPECT_EQ(upgrade.exit_code, 12) << upgrade.err;
        EXPECT_TRUE(contains(upgrade.err, "--eeprom")) << upgrade.err;
        upgrade = bench.nyxus({blank}, {"upgrade", image, "--eeprom", "8"});
        EXPECT_EQ(upgrade.exit_code, 7) << upgrade.err;
        upgrade = bench.nyxus({blank}, {"upgrade", image, "--eeprom", "32", "--reset"});
        EXPECT_EQ(upgrade.exit_code, 0) << upgrade.err;
        EXPECT_TRUE(contains(upgrade.out, "runs external firmware 0x0205")) << upgrade.out;
    }
}

TEST(Upgrade, KeepsOthersAwayFromTheCamera)
{
    const Bench bench;
    const std::string image = bench.image("hawthorn-eeprom", "0x0205");
    // Stopped at its first word, it holds the camera for as long as we want.
    const Outcome outcome = bench.shell("hawthorn-eeprom",
                                        "\"$NYXUS\" upgrade \"$IMAGE\" >\"$OUT\" 2>&1 & pid=$!\n"
                                        "\"$WAIT_FOR\" ^reading \"$OUT\" $pid; kill -STOP $pid\n"
                                        "\"$NYXUS\" info; code=$?\n"
                                        "kill -KILL $pid; wait; exit $code",
                                        {{"IMAGE", image}, {"OUT", bench.path("out")}});
    EXPECT_EQ(outcome.exit_code, 6) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "another program uses the camera")) << outcome.err;
}

TEST(Reset, ShowsWhatTheCameraRunsAfterwards)
{
    for (const std::string& model : kModels) {
        const Outcome outcome = Bench().nyxus({model}, {"reset"});
        EXPECT_EQ(outcome.exit_code, 0) << model << ": " << outcome.err;
        EXPECT_TRUE(contains(outcome.out, "runs external firmware 0x0100")) << outcome.out;
    }
}

TEST(Erase, EmptiesFlashAndRefusesEeprom)
{
    const Bench bench;
    Outcome outcome = bench.nyxus_with_rom(kModel, {"erase"});
    EXPECT_EQ(outcome.exit_code, 13) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "not confirmed")) << outcome.err;

    outcome = bench.nyxus_with_rom(kModel, {"erase", "--yes"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    const Bytes rom = read_file(bench.rom_file());
    EXPECT_FALSE(rom.empty());
    EXPECT_TRUE(std::ranges::all_of(rom, [](uint8_t byte) { return byte == 0xFF; }));

    outcome = bench.nyxus({"hawthorn-eeprom"}, {"erase", "--yes"});
    EXPECT_EQ(outcome.exit_code, 12);
    EXPECT_TRUE(contains(outcome.err, "EEPROM, which cannot be erased")) << outcome.err;
}

TEST(Dump, EqualsTheRom)
{
    for (const std::string& model : kModels) {
        const Bench bench;
        const std::string dump = bench.path("a dump.bin");
        const bool spi = contains(model, "spi");
        for (const size_t size : {size_t{0}, size_t{513}, size_t{0x10000}}) {
            Words arguments = {"dump", dump};
            if (size > 0)
                arguments.insert(arguments.end(), {"--size", std::to_string(size)});
            const Outcome outcome = bench.nyxus_with_rom(model, arguments);
            if (size == 0x10000 && !spi) {
                EXPECT_EQ(outcome.exit_code, 2) << outcome.err;
                continue;
            }
            ASSERT_EQ(outcome.exit_code, 0) << model << ": " << outcome.err;
            Bytes rom = read_file(bench.rom_file());
            rom.resize(size == 0 ? 0x8000 : size);
            EXPECT_EQ(read_file(dump), rom) << model << " " << size;
        }
    }
}

/// How often a text stands in a file.
size_t count(const std::string& path, const std::string& part)
{
    const Bytes bytes = read_file(path);
    const std::string text(bytes.begin(), bytes.end());
    size_t times = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++times;
    return times;
}

// The firmware takes a request by 512 bytes for a write as long as the ROM is unlocked.
TEST(Dump, IsRightWhenAnUpgradeHasLeftTheRomUnlocked)
{
    const Bench bench;
    const std::string image = bench.image("fi2-spi", "0x0205", {"--size", "4096"});
    const std::string faults =
        R"(fault = [{when = {selector = 14, request = "SET_CUR", count = [2]}, do = "stall"}])";
    write_file(bench.path("faults"), {faults.begin(), faults.end()});
    RunOptions options;
    options.environment = {{"NYXUS", kNyxus}, {"IMAGE", image}, {"OUT", bench.path("dump")}};
    const Outcome outcome = run_program(
        {kSimulator, "run", "--speed", "fast", "--faults", bench.path("faults"),
         "--log=" + bench.path("log"), "--log-all", "--camera", "fi2-spi,rom=" + bench.rom_file(),
         "--", "bash", "-c",
         "\"$NYXUS\" upgrade --no-backup --force \"$IMAGE\" && exit 99; \"$NYXUS\" dump \"$OUT\""},
        options);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    constexpr size_t kBeforeTheUnlocking = 130; // 64 KiB, and the first one twice
    EXPECT_EQ(count(bench.path("log"), "SET_CUR unit 6 EXT_ROM_512: "), kBeforeTheUnlocking);
    EXPECT_GT(count(bench.path("log"), " EXT_ROM: "), 0U);
    Bytes rom = read_file(bench.rom_file());
    rom.resize(0x8000);
    EXPECT_EQ(read_file(bench.path("dump")), rom);
}

TEST(Dump, LeavesNothingBehindWhenItCannotWrite)
{
    const Bench bench;
    const std::pair<std::string, const char*> rows[] = {
        {bench.path("missing/dump.bin"), "No such file or directory"},
        {bench.path(""), "Is a directory"},
        {"/dev/full", "No space left on device"},
        {"/dev/stdout", "it is not a plain file"}, // it carries messages
    };
    for (const auto& [file, reason] : rows) {
        const Outcome outcome = bench.nyxus({kModel}, {"dump", file});
        EXPECT_EQ(outcome.exit_code, 1) << file;
        EXPECT_EQ(outcome.err, "nyxus: cannot write '" + file + "': " + reason + "\n");
        EXPECT_EQ(contains(outcome.out, "reading"), file == "/dev/full") << file;
    }
    EXPECT_TRUE(std::filesystem::is_empty(bench.path("")));
}

TEST(Dump, KeepsLinksAndPermissions)
{
    namespace fs = std::filesystem;
    const Bench bench;
    fs::create_directory(bench.path("private"));
    write_file(bench.path("private/rom.bin"), {1, 2, 3});
    fs::permissions(bench.path("private/rom.bin"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("private/rom.bin", bench.path("link.bin"));
    const Outcome outcome = bench.nyxus_with_rom(kModel, {"dump", bench.path("link.bin")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    Bytes rom = read_file(bench.rom_file());
    rom.resize(0x8000);
    EXPECT_EQ(read_file(bench.path("private/rom.bin")), rom);
    EXPECT_TRUE(fs::is_symlink(bench.path("link.bin")));
    EXPECT_EQ(fs::status(bench.path("private/rom.bin")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    const fs::directory_iterator files(bench.path("private"));
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "no temporary file stays";
}

TEST(Messages, CarryNoControlCharactersOfFileNames)
{
    const Bench bench;
    const Outcome outcome = bench.nyxus({kModel}, {"compare", bench.path("\x1B[2J\n für \x9B")});
    EXPECT_EQ(outcome.err, "nyxus: cannot read '" + bench.path("?[2J? für ?") +
                               "': No such file or directory\n");
}

TEST(Compare, ShowsWhereRomAndFileDiffer)
{
    const Bench bench;
    const std::string dump = bench.path("dump.bin");
    ASSERT_EQ(bench.nyxus_with_rom(kModel, {"dump", dump}).exit_code, 0);
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"compare", dump}).exit_code, 0);

    const std::string other = changed(bench, dump, [](Bytes& bytes) {
        bytes[0x123] ^= 0xFF;
        bytes[0x4567] ^= 0x01;
    });
    const Outcome outcome = bench.nyxus_with_rom(kModel, {"compare", other});
    EXPECT_EQ(outcome.exit_code, 8);
    EXPECT_TRUE(contains(outcome.out, "different: 2 of ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "0x0123    1      ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "0x4567    1      ")) << outcome.out;

    EXPECT_EQ(bench.nyxus({kModel}, {"compare", bench.path("missing")}).exit_code, 1);
}

TEST(ResultAsJson, IsTheLastLineOfEveryCommandThatTakesTime)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const struct {
        Words arguments;
        int exit_code;
        const char* outcome;
        const char* rom;
    } cases[] = {
        {{"dump", bench.path("dump")}, 0, "done", "unchanged"},
        {{"dump", bench.path("missing/dump")}, 1, "failed", "unchanged"},
        {{"compare", bench.path("dump")}, 0, "done", "unchanged"},
        {{"compare", image}, 8, "different", "unchanged"},
        {{"recover", image}, 13, "failed", "unchanged"},
        {{"recover", image, "--force"}, 0, "done", "new"},
        {{"erase"}, 13, "failed", "unchanged"},
        {{"erase", "--yes"}, 0, "done", "erased"},
        {{"reset"}, 0, "done", "unchanged"},
    };
    for (const auto& c : cases) {
        for (const bool quiet : {true, false}) {
            Words arguments = c.arguments;
            arguments.emplace_back("--json");
            if (quiet)
                arguments.emplace_back("--quiet");
            const Outcome outcome = bench.nyxus({kModel}, arguments);
            EXPECT_EQ(outcome.exit_code, c.exit_code) << outcome.err;
            std::istringstream lines(outcome.out);
            Json last;
            size_t count = 0;
            for (std::string line; std::getline(lines, line); ++count)
                last = Json::parse(line);
            EXPECT_EQ(last["event"], "result") << outcome.out;
            EXPECT_EQ(last["outcome"], c.outcome) << outcome.out;
            EXPECT_EQ(last["rom"], c.rom) << outcome.out;
            EXPECT_EQ(last["exit_code"], c.exit_code) << outcome.out;
            EXPECT_FALSE(last["message"].text().empty());
            EXPECT_TRUE(count == 1 || !quiet) << outcome.out;
        }
    }
}

} // namespace
