// SPDX-License-Identifier: Apache-2.0
// What the program does so that no upgrade costs a camera: backups, safe points, recovery.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <fstream>
#include <sstream>

using namespace test;

namespace {

constexpr size_t kReplaced = 0x10000;

/// The camera's factory contents, as far as an upgrade replaces them.
Bytes factory_rom(const Bench& bench, const std::string& model)
{
    EXPECT_EQ(bench.nyxus_with_rom(model, {"info"}).exit_code, 0);
    Bytes rom = read_file(bench.rom_file());
    rom.resize(std::min(rom.size(), kReplaced));
    return rom;
}

/// Runs a bash script with a fast camera whose ROM is a file.
Outcome run_script(const Bench& bench, const std::string& model, const std::string& script,
                   const std::string& faults = "fault = []", const Words& more_options = {})
{
    write_file(bench.path("faults"), {faults.begin(), faults.end()});
    RunOptions options;
    options.environment = {{"OUT", bench.path("out")},
                           {"LOG", bench.path("log")},
                           {"REPLUG", "\"$SIM\" do unplug; \"$SIM\" do replug"},
                           {"SECOND", bench.image(model, "0x0205")},
                           {"THIRD", bench.image(model, "0x0206")}};
    options.environment.insert(begin(kScriptEnvironment), end(kScriptEnvironment));
    const std::string camera = model + ",rom=" + bench.rom_file();
    Words call = {kSimulator, "run", "--speed", "fast", "--camera", camera};
    call.insert(call.end(), {"--faults", bench.path("faults")});
    call.insert(call.end(), more_options.begin(), more_options.end());
    call.insert(call.end(), {"--", "bash", "-c", script});
    return run_program(call, options);
}

TEST(Backup, HoldsWhatTheUpgradeReplaces)
{
    for (const std::string model : {"rowan-spi", "hawthorn-eeprom"}) {
        const Bench bench;
        const Bytes before = factory_rom(bench, model);
        const std::string image = bench.image(model, "0x0205");
        const Outcome outcome = bench.nyxus_with_rom(model, {"upgrade", image});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        const auto backups = bench.backups();
        ASSERT_EQ(backups.size(), 1U) << model;
        EXPECT_TRUE(contains(outcome.out, "backup of the ROM: " + backups.front().string()));
        EXPECT_EQ(read_file(backups.front()), before) << model;

        const Outcome again = bench.nyxus_with_rom(model, {"upgrade", image});
        EXPECT_EQ(again.exit_code, 0) << again.err;
        EXPECT_TRUE(contains(again.out, "already up to date")) << again.out;
        EXPECT_FALSE(contains(again.out, "programming")) << again.out;
        const Outcome forced = bench.nyxus_with_rom(model, {"upgrade", image, "--force"});
        EXPECT_TRUE(contains(forced.out, "programming")) << forced.out;
        EXPECT_EQ(bench.backups().size(), 2U) << "none where nothing was to be done";
    }
}

TEST(Backup, IsLeftOutOnRequestAndForABlankRom)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    EXPECT_EQ(bench.nyxus({kModel}, {"upgrade", image, "--no-backup"}).exit_code, 0);
    EXPECT_EQ(bench.nyxus({std::string(kModel) + ",blank"}, {"upgrade", image}).exit_code, 0);
    EXPECT_TRUE(bench.backups().empty());
}

TEST(Backup, ThatCannotBeKeptStopsTheUpgrade)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const Bytes before = factory_rom(bench, kModel);
    std::ofstream(bench.state_folder()) << "in the way";
    const Outcome outcome = bench.nyxus_with_rom(kModel, {"upgrade", image});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(contains(outcome.err, "nothing was written ('--no-backup' goes on without one)"))
        << outcome.err;
    EXPECT_EQ(factory_rom(bench, kModel), before);
    const Outcome recover = bench.nyxus({std::string(kModel) + ",blank"}, {"recover"});
    EXPECT_TRUE(contains(recover.err, "Not a directory; 'nyxus recover FILE' takes"))
        << recover.err;

    std::filesystem::remove(bench.state_folder());
    const Outcome full =
        run_script(bench, kModel, "trap '' XFSZ; ulimit -f 10; \"$NYXUS\" upgrade \"$SECOND\"");
    EXPECT_TRUE(contains(full.err, "File too large; nothing was written ('--no-backup' goes on"))
        << full.err;
}

/// Interrupts the upgrade as soon as it has written a text; `more` commands follow.
Outcome interrupted(const Bench& bench, const std::string& text, const std::string& signals,
                    const std::string& more = ":", const std::string& options = "")
{
    // Job control, because a shell without it has its background jobs ignore interrupts. Two
    // interrupts at once would be one.
    return bench.shell(
        std::string(kModel) + ",rom=" + bench.rom_file(),
        "set -m; \"$NYXUS\" upgrade " + options +
            " \"$IMAGE\" >\"$OUT\" 2>\"$ERR\" & pid=$!\n"
            "\"$WAIT_FOR\" '" +
            text + "' \"$OUT\" $pid\nfor s in " + signals +
            "; do kill -$s $pid; \"$WAIT_FOR\" 'a second interrupt' \"$ERR\" $pid; done\n" + more +
            "\nwait $pid; code=$?; cat \"$ERR\" >&2; tail -n 1 \"$OUT\"; exit $code",
        {{"IMAGE", bench.image(kModel, "0x0205")},
         {"OUT", bench.path("out")},
         {"ERR", bench.path("err")}});
}

bool has_second_image_in_rom(const Bench& bench)
{
    const Bytes image = read_file(bench.path(std::string(kModel) + " 0x0205.bin"));
    Bytes rom = read_file(bench.rom_file());
    rom.resize(image.size());
    return rom == image;
}

/// Programming gets no further than this write, the second request for the address after the erase.
constexpr char kProgrammingStays[] =
    R"(fault = [{when = {rom_address = 0x3000, request = "SET_CUR", count = 2}, do = "no-answer"}])";

TEST(Interrupt, AfterTheResultLeavesItsExitCode)
{
    const Bench bench;
    const Outcome outcome =
        bench.shell("willow-eeprom",
                    "set -m; mkfifo \"$PIPE\"\nfor i in 1 2 3 4 5 6 7 8; do\n"
                    "\"$NYXUS\" erase --yes --json >\"$PIPE\" 2>\"$ERR\" & pid=$!\n"
                    "{ read -r line; for s in INT TERM HUP INT; do kill -$s $pid 2>\"$ERR\"; done; "
                    "} <\"$PIPE\"\n"
                    "wait $pid; echo \"$? ${line##*exit_code}\"\ndone",
                    {{"PIPE", bench.path("pipe")}, {"ERR", bench.path("err")}});
    std::istringstream lines(outcome.out);
    int told = 0;
    for (std::string line; std::getline(lines, line); ++told)
        EXPECT_TRUE(line.starts_with("12 \":12,")) << line; // an EEPROM cannot be erased
    EXPECT_EQ(told, 8) << outcome.out << outcome.err;
}

TEST(Interrupt, TakesEffectAtASafePoint)
{
    struct {
        const char* phase;
        const char* signals;
        const char* message;
        bool keeps_factory_rom;
        bool has_new_rom;
        const char* faults = "";
    } const cases[] = {
        {"reading", "INT", "interrupted: nothing was written\n", true, false},
        {"erasing", "INT", "interrupted: the ROM was written but not read back; ", false, true},
        {"programming", "TERM", "interrupted: the ROM was written but not read back; ", false,
         true},
        {"programming", "HUP", "interrupted: the ROM was written but not read back; ", false, true},
        {"programming", "QUIT", "interrupted: the ROM was written but not read back; ", false,
         true},
        {"programming", "INT INT", "interrupted: the ROM is incomplete now, run the command again",
         false, false, kProgrammingStays},
    };
    for (const auto& [phase, signals, message, keeps_factory_rom, has_new_rom, faults] : cases) {
        Bench bench;
        const Bytes factory = factory_rom(bench, kModel);
        bench.set_faults(faults);
        const Outcome outcome = interrupted(bench, "^" + std::string(phase), signals);
        bench.set_faults("");
        EXPECT_EQ(outcome.exit_code, 130) << phase;
        EXPECT_TRUE(contains(outcome.err, message)) << phase << ": " << outcome.err;
        EXPECT_EQ(factory_rom(bench, kModel) == factory, keeps_factory_rom) << phase;
        EXPECT_EQ(has_second_image_in_rom(bench), has_new_rom) << phase;
    }
}

TEST(Interrupt, TheSecondOneNamesTheBackup)
{
    Bench bench;
    bench.set_faults(kProgrammingStays);
    const Outcome outcome = interrupted(bench, "^programming", "INT INT");
    EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "or 'nyxus recover' to put the backup '" +
                                          bench.backups().front().string() +
                                          "' back, before the camera is reset or unplugged\n"))
        << outcome.err;
}

TEST(Interrupt, OfAnEraseWaitsUntilTheRomIsLockedAgain)
{
    const Bench bench;
    const Outcome outcome =
        bench.shell(std::string(kModel) + ",rom=" + bench.rom_file(),
                    "set -m; \"$NYXUS\" erase --yes >\"$OUT\" & pid=$!\n"
                    "\"$WAIT_FOR\" ^erasing \"$OUT\" $pid; kill -INT $pid; wait $pid",
                    {{"OUT", bench.path("out")}});
    EXPECT_EQ(outcome.exit_code, 130);
    EXPECT_TRUE(contains(outcome.err, "interrupted: the ROM was written but not read back"))
        << outcome.err;
    const Bytes rom = read_file(bench.rom_file());
    EXPECT_EQ(std::ranges::count(rom, 0xFF), static_cast<long>(rom.size()));
}

TEST(Interrupt, HoldsWhenTheCameraIsLost)
{
    const struct {
        const char* signals;
        const char* more;
        const char* message;
    } cases[] = {
        {"INT", "\"$SIM\" do unplug", "nyxus: interrupted; programming the ROM failed: "},
        {"", "\"$SIM\" do unplug; \"$WAIT_FOR\" ^waiting \"$OUT\" $pid; kill -INT $pid",
         "nyxus: interrupted: the ROM is incomplete now, run the command again, or 'nyxus recover' "
         "to put the backup "},
    };
    for (const auto& c : cases) {
        Bench bench;
        bench.set_faults(kProgrammingStays);
        const Outcome outcome = interrupted(bench, "^programming", c.signals, c.more);
        EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, c.message)) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "the ROM is incomplete now")) << outcome.err;
    }
}

TEST(Interrupt, EndsJsonWithAResult)
{
    const struct {
        const char* phase;
        const char* signals;
        const char* rom;
        const char* faults;
    } cases[] = {{"reading", "INT", "unchanged", ""},
                 {"programming", "INT INT", "incomplete", kProgrammingStays}};
    for (const auto& c : cases) {
        Bench bench;
        bench.set_faults(c.faults);
        const Outcome outcome =
            interrupted(bench, '"' + std::string(c.phase) + '"', c.signals, ":", "--json");
        EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
        const auto result = Json::parse(outcome.out);
        EXPECT_EQ(result["event"], "result") << outcome.out;
        EXPECT_EQ(result["outcome"], "interrupted");
        EXPECT_EQ(result["rom"], c.rom);
        EXPECT_EQ(result["product"], kModel) << outcome.out;
        EXPECT_TRUE(contains(outcome.err, result["message"].text())) << outcome.err;
    }
}

TEST(Interrupt, IsNoReaderThatGoesAway)
{
    const Bench bench;
    factory_rom(bench, kModel);
    const Outcome outcome = run_script(
        bench, kModel, "\"$NYXUS\" upgrade --json \"$SECOND\" | grep -q '\"programming\"'");
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(has_second_image_in_rom(bench));
}

// It holds its pipe open, but reads nothing. The program is asking the camera by then.
TEST(Interrupt, EndsAnUpgradeWhoseReaderHasStopped)
{
    const Bench bench;
    const Outcome outcome =
        run_script(bench, kModel,
                   "set -m; mkfifo \"$OUT\"; exec 3<>\"$OUT\"; head -c 65536 /dev/zero >&3\n"
                   "\"$NYXUS\" upgrade --json \"$SECOND\" >\"$OUT\" 3<&- & pid=$!\n"
                   "\"$WAIT_FOR\" INT_FW_VERSION \"$LOG\" $pid; kill -INT $pid; wait $pid",
                   "[]", {"--log=" + bench.path("log")});
    EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
}

TEST(Output, ThatCannotBeWrittenIsAFailureAfterTheWork)
{
    const Bench bench;
    for (const char* command :
         {"info --json", "list", "--version", "help upgrade", "flip", "rom read -q -",
          "motion poll --watch --count 1", "upgrade \"$SECOND\""}) {
        const Outcome outcome = run_script(
            bench, kModel, "timeout 20 \"$NYXUS\" " + std::string(command) + " >/dev/full");
        EXPECT_EQ(outcome.exit_code, 1) << command;
        EXPECT_EQ(outcome.err, "nyxus: cannot write to standard output: No space left on device\n")
            << command;
    }
    EXPECT_TRUE(has_second_image_in_rom(bench));
}

TEST(Recover, BringsTheLatestBackupBack)
{
    Bench bench;
    const Bytes factory = factory_rom(bench, kModel);
    const Outcome healthy = bench.nyxus_with_rom(kModel, {"recover"});
    EXPECT_EQ(healthy.exit_code, 13);
    EXPECT_TRUE(contains(healthy.err, "nothing to recover")) << healthy.err;

    bench.set_faults(kProgrammingStays);
    ASSERT_EQ(interrupted(bench, "^programming", "INT INT").exit_code, 130);
    bench.set_faults("");
    const std::string image = bench.path(std::string(kModel) + " 0x0205.bin");
    // The next power-up finds no valid header; a broken ROM's own backup is not taken for a good
    // one.
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"upgrade", image}).exit_code, 0);
    EXPECT_EQ(bench.backups().size(), 2U);
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"erase", "--yes", "--no-backup"}).exit_code, 0);

    const Outcome recovered = bench.nyxus_with_rom(kModel, {"recover", "--reset"});
    ASSERT_EQ(recovered.exit_code, 0) << recovered.err;
    EXPECT_TRUE(contains(recovered.out, "runs external firmware 0x0100")) << recovered.out;
    Bytes rom = read_file(bench.rom_file());
    rom.resize(factory.size());
    EXPECT_EQ(rom, factory);
}

// The camera goes on running from its memory what the ROM held before a failed upgrade.
TEST(Recover, PassesOverWhatNeverStarted)
{
    // The erase of a flash is the first access to 0x2000.
    for (const auto& [model, first] :
         {std::pair("rowan-spi", 2), std::pair("hawthorn-eeprom", 1)}) {
        const Bench bench;
        const Bytes factory = factory_rom(bench, model);
        const std::string stalls =
            R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR", count = [)" +
            std::to_string(first) + ", " + std::to_string(first + 1) + R"(]}, do = "stall"}])";
        const Outcome outcome = run_script(
            bench, model,
            "for i in 1 2; do \"$NYXUS\" -q upgrade \"$SECOND\" --eeprom 32 && exit 99; done\n"
            "eval \"$REPLUG\"; \"$NYXUS\" recover --reset --eeprom 32",
            stalls);
        EXPECT_EQ(outcome.exit_code, 0) << model << outcome.err;
        EXPECT_TRUE(contains(outcome.out, "runs external firmware 0x0100")) << outcome.out;
        Bytes rom = read_file(bench.rom_file());
        rom.resize(factory.size());
        EXPECT_EQ(rom, factory) << model;
    }
}

// A station's next camera, in the port of the one that was pulled out too early.
TEST(Upgrade, LeavesAnotherCameraAtThePortAlone)
{
    const Bench bench;
    const std::string others_rom = bench.path("other");
    const std::string other = std::string(kModel) + ",serial=OTHER,rom=" + others_rom;
    ASSERT_EQ(bench.nyxus({other}, {"info"}).exit_code, 0);
    const Bytes before = read_file(others_rom);
    const Outcome outcome = run_script(
        bench, kModel,
        "\"$SIM\" do unplug --camera OTHER\n"
        "\"$NYXUS\" upgrade \"$SECOND\" >\"$OUT\" & pid=$!\n"
        "\"$WAIT_FOR\" ^waiting \"$OUT\" $pid; \"$SIM\" do replug --camera OTHER --port 1\n"
        "wait $pid",
        R"(fault = [{when = {camera = "SIM00001", rom_address = 0x2000, request = "SET_CUR"}, do = "unplug"}])",
        {"--camera", other});
    EXPECT_EQ(outcome.exit_code, 11) << outcome.err;
    EXPECT_TRUE(contains(outcome.err,
                         "is at port 1-1 now, but perhaps not the camera with serial "
                         "number SIM00001 that went away, so it is left alone; "
                         "before: "))
        << outcome.err;
    EXPECT_EQ(read_file(others_rom), before);
}

TEST(Backup, IsProvenOnceTheCameraHasStartedFromIt)
{
    const Bench bench;
    const auto proven = [&](const std::string& script) {
        std::filesystem::remove_all(bench.state_folder());
        std::filesystem::remove(bench.rom_file()); // or it would be a downgrade
        const Outcome outcome = run_script(bench, kModel, script);
        EXPECT_EQ(outcome.exit_code, 0) << script << outcome.err;
        const Outcome list = bench.nyxus({}, {"backups", "list", "--json"});
        const Json backups = Json::parse(list.out);
        return backups.size() == 2 && backups[1]["started"] == "yes";
    };
    EXPECT_FALSE(proven("\"$NYXUS\" upgrade \"$SECOND\" && \"$NYXUS\" upgrade \"$THIRD\""));
    EXPECT_TRUE(proven("\"$NYXUS\" upgrade \"$SECOND\" --reset && \"$NYXUS\" upgrade \"$THIRD\""));
    EXPECT_TRUE(
        proven("\"$NYXUS\" upgrade \"$SECOND\"; eval \"$REPLUG\"; \"$NYXUS\" upgrade \"$THIRD\""));
}

TEST(Recover, FailsWhenTheCameraDoesNotStartWhatWasWritten)
{
    const Bench bench;
    Bytes broken = factory_rom(bench, kModel);
    broken[0x1000] ^= 0xFF;
    write_file(bench.path("broken"), broken);
    const Outcome outcome =
        bench.nyxus_with_rom(kModel, {"recover", bench.path("broken"), "--force", "--reset"});
    EXPECT_EQ(outcome.exit_code, 14);
    EXPECT_TRUE(contains(outcome.err, "came back with its mask ROM")) << outcome.err;
}

TEST(Recover, SaysWhatItLacks)
{
    const Bench bench;
    const std::string blank = std::string(kModel) + ",blank";
    const Outcome none = bench.nyxus({blank}, {"recover"});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_TRUE(contains(none.err, "there is no backup of camera")) << none.err;
    write_file(bench.path("empty.rom"), Bytes(1024, 0xFF));
    const Outcome empty = bench.nyxus({blank}, {"recover", bench.path("empty.rom")});
    EXPECT_EQ(empty.exit_code, 7);
    EXPECT_TRUE(contains(empty.err, "holds no firmware")) << empty.err;
}

} // namespace
