// SPDX-License-Identifier: Apache-2.0
// Several cameras upgraded at once, and what programs are told about it.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <map>

using namespace test;

namespace {

/// A bash script with cameras.
Outcome run_script(const Words& cameras, const Words& simulation, const std::string& script,
                   std::map<std::string, std::string> environment)
{
    Words command = {kSimulator, "run"};
    command.insert(command.end(), simulation.begin(), simulation.end());
    for (const std::string& camera : cameras)
        command.insert(command.end(), {"--camera", camera});
    command.insert(command.end(), {"--", "bash", "-c", script});
    RunOptions options;
    options.environment = std::move(environment);
    options.environment.insert(begin(kScriptEnvironment), end(kScriptEnvironment));
    return run_program(command, options);
}

TEST(Batch, TellsHowEachCameraEndsAndTheWorstOfIt)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string faults = R"(fault = [
        {when = {camera = "LIAR", rom_address = [0x4000, 0x4FFF]}, do = "lying-write"},
        {when = {camera = "GONE", rom_address = 0x2000, request = "SET_CUR"}, do = "unplug"}
    ])";
    write_file(bench.path("faults.toml"), {faults.begin(), faults.end()});
    // The busy one belongs to another program, which has it when it tells of the motion.
    const Outcome outcome =
        run_script({"rowan-spi,serial=GOOD,rom=" + bench.rom_file(), "cedar-spi,serial=OTHER",
                    "rowan-spi,serial=LIAR", "rowan-spi,serial=GONE", "rowan-spi,serial=BUSY"},
                   {"--speed", "fast", "--faults", bench.path("faults.toml")},
                   "\"$SIM\" do motion-alarm --camera BUSY\n"
                   "\"$NYXUS\" motion poll --watch -c BUSY >\"$MOTION\" & busy=$!\n"
                   "\"$WAIT_FOR\" motion \"$MOTION\" $busy\n"
                   "\"$NYXUS\" upgrade --all --wait 0 --json \"$IMAGE\"; code=$?\n"
                   "kill $busy; exit $code",
                   {{"IMAGE", image}, {"MOTION", bench.path("motion")}});
    EXPECT_EQ(outcome.exit_code, 8) << outcome.err;
    const std::vector<Json> lines = events(outcome.out);
    ASSERT_EQ(lines.size(), 6U) << outcome.out;
    std::map<std::string, Json> results;
    for (const Json& line : lines) {
        if (line["event"] == "result")
            results[line["serial"].text()] = line;
    }
    const struct {
        const char* serial;
        const char* port;
        const char* outcome;
        const char* rom;
        int exit_code;
        const char* message;
    } cases[] = {
        {"GOOD", "1-1", "upgraded", "new", 0, "upgraded: "},
        {"OTHER", "1-2", "failed", "unchanged", 7, "the image is for another chip"},
        {"LIAR", "1-3", "failed", "incomplete", 8, "the ROM does not hold what was written"},
        {"GONE", "1-4", "failed", "incomplete", 11, "the ROM is incomplete now"},
        {"BUSY", "1-5", "failed", "unchanged", 6, "another program uses the camera"},
    };
    for (const auto& c : cases) {
        const Json& result = results[c.serial];
        EXPECT_EQ(result["port"], c.port);
        EXPECT_EQ(result["outcome"], c.outcome) << result;
        EXPECT_EQ(result["rom"], c.rom) << result;
        EXPECT_EQ(result["exit_code"], c.exit_code) << result;
        EXPECT_TRUE(contains(result["message"].text(), c.message)) << result;
    }
    EXPECT_EQ(results["GOOD"]["bytes"], 0x5A3C);
    EXPECT_EQ(lines.back()["event"], "summary");
    EXPECT_EQ(lines.back()["failed"], 4);
    EXPECT_EQ(lines.back()["exit_code"], 8);

    const Bytes expected = read_file(image);
    Bytes rom = read_file(bench.rom_file());
    rom.resize(expected.size());
    EXPECT_EQ(rom, expected);
}

/// A supervisor may ignore the ends of its children, and a file may have any name.
TEST(Batch, CopesWithTheWorldThatItIsStartedIn)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    std::filesystem::rename(image, bench.path("-n.bin"));
    std::filesystem::rename(bench.mfi_image("VELKA_0001_LINK"), bench.path("--mfi.bin"));
    const Outcome outcome =
        run_script({"rowan-spi,serial=A1", "cedar-spi,serial=B2"}, {"--speed", "fast"},
                   "cd \"$FOLDER\" && exec timeout -s KILL 50 env --ignore-signal=CHLD \"$NYXUS\" "
                   "upgrade --all -q "
                   "--force --mfi=--mfi.bin -- -n.bin",
                   {{"FOLDER", bench.path("")}});
    EXPECT_EQ(outcome.exit_code, 7) << outcome.err;
    EXPECT_TRUE(contains(outcome.out, ": 1 upgraded, 1 failed")) << outcome.out << outcome.err;
}

TEST(Batch, UpgradesSixteenCamerasOfOneSerialNumberAFewAtATime)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    Words cameras(8, "rowan-spi,serial=SAME");
    cameras.resize(16, "rowan-spi,serial=SAME,bus=2"); // a bus has fewer ports
    const Outcome outcome = bench.nyxus(cameras, {"upgrade", "--all", "--jobs", "4", image});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.out, "16 cameras in ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, ": 16 upgraded\n")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "2-8  SAME  rowan-spi  programming ...\n")) << outcome.out;
    EXPECT_EQ(outcome.out.find_first_of("\r\033#"), std::string::npos);
    EXPECT_EQ(bench.backups().size(), 16U) << "none has replaced another";
}

TEST(Batch, InterruptsBringTheCamerasToASafePointOrStopThem)
{
    const struct {
        const char* signals;
        const char* rom;
        bool at_once = false; // no matter whether the first one has been heard
    } cases[] = {
        {"INT", "unverified"}, {"INT INT", "incomplete"}, {"INT TERM", "incomplete", true}};
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome = run_script(
            {"hawthorn-eeprom,serial=A", "hawthorn-eeprom,serial=B"}, {},
            // The worker says when it is programming, and that it has heard the first interrupt;
            // job control, because a shell without it has its background jobs ignore interrupts.
            "set -m; \"$NYXUS\" upgrade --all --jobs 1 --json -v \"$IMAGE\" 2>\"$ERR\" & pid=$!\n"
            "\"$WAIT_FOR\" programming \"$ERR\" $pid\n"
            "for s in " +
                std::string(c.signals) + "; do kill -$s $pid; " +
                (c.at_once ? "" : "\"$WAIT_FOR\" 'the ROM is completed' \"$ERR\" $pid; ") +
                "done\nwait $pid; exit $?",
            {{"IMAGE", bench.image("hawthorn-eeprom", "0x0205", {"--size", "4000"})},
             {"ERR", bench.path("err")}});
        EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
        const std::vector<Json> lines = events(outcome.out);
        ASSERT_EQ(lines.size(), 3U) << outcome.out;
        for (const Json& line : lines) {
            if (line["event"] == "summary")
                continue;
            const bool first = line["serial"] == "A";
            EXPECT_EQ(line["outcome"], first ? "interrupted" : "not-started") << line;
            EXPECT_EQ(line["rom"], first ? c.rom : "unchanged") << line;
        }
        const Bytes err = read_file(bench.path("err"));
        EXPECT_TRUE(contains({err.begin(), err.end()}, "a second interrupt stops at once"));
    }
}

/// As when the machine shuts down, which tells all processes.
TEST(Batch, AProcessThatIsAskedToEndCompletesItsRom)
{
    const Bench bench;
    const Outcome outcome =
        run_script({"hawthorn-eeprom"}, {},
                   "\"$NYXUS\" upgrade --all --json -v \"$IMAGE\" 2>\"$ERR\" & pid=$!\n"
                   "\"$WAIT_FOR\" programming \"$ERR\" $pid\n"
                   "kill $(cat /proc/$pid/task/*/children); wait $pid; exit $?",
                   {{"IMAGE", bench.image("hawthorn-eeprom", "0x0205", {"--size", "4000"})},
                    {"ERR", bench.path("err")}});
    EXPECT_EQ(outcome.exit_code, 130) << outcome.err;
    const Json result = events(outcome.out).front();
    EXPECT_EQ(result["outcome"], "interrupted") << result;
    EXPECT_EQ(result["rom"], "unverified") << result;
}

TEST(Batch, AQuietOneTellsHowEachCameraEndedAndNoMore)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const Words cameras = {"rowan-spi,serial=A1", "cedar-spi,serial=B2"};
    RunOptions terminal;
    terminal.environment = {{"TERM", "xterm"}, {"NO_COLOR", "1"}};
    terminal.terminal_columns = 100;
    for (const RunOptions& options : {RunOptions(), terminal}) {
        const Outcome outcome = bench.nyxus(cameras, {"upgrade", "--all", "-q", image}, options);
        EXPECT_EQ(outcome.exit_code, 7) << outcome.err;
        EXPECT_EQ(std::ranges::count(outcome.out, '\n'), 4) << outcome.out;
        EXPECT_TRUE(contains(outcome.out, "1-1  A1  rowan-spi  upgraded: ")) << outcome.out;
        EXPECT_TRUE(contains(outcome.out, "the ROM is unchanged")) << outcome.out;
        EXPECT_TRUE(contains(outcome.out, ": 1 upgraded, 1 failed")) << outcome.out;
        EXPECT_EQ(outcome.out.find('\033'), std::string::npos);
    }
}

TEST(Batch, ShowsATableOnATerminal)
{
    Bench bench;
    bench.set_faults(
        R"(fault = [{when = {camera = "C3", rom_address = 0x2000, request = "SET_CUR"}, do = "unplug"}])");
    RunOptions terminal;
    terminal.environment = {{"TERM", "xterm"}, {"NO_COLOR", "1"}};
    terminal.terminal_columns = 100;
    const Outcome outcome =
        bench.nyxus({"rowan-spi,serial=A1", "cedar-spi,serial=B2", "rowan-spi,serial=C3"},
                    {"upgrade", "--all", "--wait", "0", bench.image(kModel, "0x0205")}, terminal);
    EXPECT_EQ(outcome.exit_code, 11);
    EXPECT_TRUE(contains(outcome.out, "1-1  A1  rowan-spi  programming   [")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "1 of 3 done, ")) << outcome.out; // whichever was first
    EXPECT_TRUE(contains(outcome.out, "3 of 3 done, 2 failed, 0:0")) << outcome.out;
    const std::string end = outcome.out.substr(outcome.out.rfind("\033[J"));
    EXPECT_TRUE(contains(end, "1-1  A1  rowan-spi  upgraded: 22.6 KiB in ")) << end;
    EXPECT_TRUE(contains(end, "1-2  B2  cedar-spi  failed (7): the image is for another")) << end;
    EXPECT_TRUE(contains(end, "    the ROM is unchanged\r\n")) << end;
    EXPECT_TRUE(contains(end, "the ROM is incomplete; next: nyxus -c 1-3 upgrade --wait 0 '"))
        << end;
    EXPECT_TRUE(contains(end, ": 1 upgraded, 2 failed\r\n")) << end;
}

TEST(Batch, PlansForEachCameraAndWritesNothing)
{
    const Bench bench;
    const Words cameras = {"rowan-spi,serial=A1,rom=" + bench.rom_file(), "cedar-spi,serial=B2"};
    const std::string image = bench.image(kModel, "0x0205");
    const auto plan = [&](const Words& more) {
        Words command = {"upgrade", "--all", "--dry-run", image};
        command.insert(command.end(), more.begin(), more.end());
        return bench.nyxus(cameras, command);
    };
    const Outcome dry = plan({"--json"});
    EXPECT_EQ(dry.exit_code, 7);
    const Bytes before = read_file(bench.rom_file());
    const std::vector<Json> lines = events(dry.out);
    ASSERT_EQ(lines.size(), 2U) << dry.out;
    EXPECT_EQ(lines[0]["serial"], "A1");
    EXPECT_GT(lines[0]["control_transfers"].number(), 0);
    EXPECT_EQ(lines[1]["serial"], "B2");
    EXPECT_EQ(lines[1]["error"]["exit_code"], 7);
    EXPECT_TRUE(contains(plan({}).out, "dry run: nothing was written\n"));

    bench.nyxus(cameras, {"upgrade", "--all", image});
    EXPECT_NE(read_file(bench.rom_file()), before); // so that it could have been written
    EXPECT_TRUE(contains(plan({}).out, "serial A1): already up to date: ")) << plan({}).out;
}

TEST(Batch, RefusesWhatIsMeantForOneCamera)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string mfi = bench.mfi_image("A0001234");
    const struct {
        Words arguments;
        int exit_code;
        const char* reason;
    } cases[] = {
        {{image, "--all"}, 3, "no camera found"},
        {{image, "--all", "--mfi", mfi, "--mfi-serial", "B0001234"}, 2, "the same serial number"},
        {{image, "--all", "-c", "1-1"}, 2, "--all means every camera"},
        {{image, "--jobs", "2"}, 2, "--all"},
        {{bench.path("missing"), "--all"}, 1, "No such file"},
    };
    for (const auto& c : cases) {
        Words command = {kNyxus, "upgrade"};
        command.insert(command.end(), c.arguments.begin(), c.arguments.end());
        const Outcome outcome = run_program(command);
        EXPECT_EQ(outcome.exit_code, c.exit_code) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, c.reason)) << outcome.err;
    }
}

TEST(UpgradeAsJson, TellsProgressAndTheResult)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string foreign = bench.image("cedar-spi", "0x0205");
    const struct {
        std::string file;
        const char* outcome;
        int exit_code;
        const char* rom;
        unsigned bytes;
    } cases[] = {
        {foreign, "failed", 7, "unchanged", 0},
        {image, "upgraded", 0, "new", 0x5A3C},
        {image, "up-to-date", 0, "new", 0},
    };
    for (const auto& c : cases) {
        const Outcome outcome = bench.nyxus_with_rom(kModel, {"upgrade", "--json", c.file});
        EXPECT_EQ(outcome.exit_code, c.exit_code) << outcome.err;
        const std::vector<Json> lines = events(outcome.out);
        ASSERT_FALSE(lines.empty());
        const Json& result = lines.back();
        EXPECT_EQ(result["event"], "result") << outcome.out;
        EXPECT_EQ(result["outcome"], c.outcome);
        EXPECT_EQ(result["exit_code"], c.exit_code);
        EXPECT_EQ(result["rom"], c.rom);
        EXPECT_EQ(result["bytes"], c.bytes);
        EXPECT_EQ(result["port"], "1-1");
        const bool programs = std::ranges::any_of(lines, [](const Json& line) {
            return line["event"] == "progress" && line["phase"] == "programming" && line["done"] &&
                   line["bytes"] == 0x5A3C;
        });
        EXPECT_EQ(programs, c.bytes > 0) << outcome.out;
    }
}

} // namespace
