// SPDX-License-Identifier: Apache-2.0
// What the program says of backups and of the journal, and how restarts end.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>

using namespace test;

namespace {

const std::string kSpi = kModel;
/// The second write to a page, the one after the erase, fails.
constexpr char kBreaksOff[] =
    R"(fault = [{when = {rom_address = 0x3000, request = "SET_CUR", count = 2}, do = "io-error"}])";

TEST(Journal, IsAskedByEveryCommandThatLooksAtTheCamera)
{
    Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    bench.set_faults(kBreaksOff);
    const Outcome failed = bench.nyxus_with_rom(kModel, {"upgrade", image});
    EXPECT_NE(failed.exit_code, 0);
    ASSERT_EQ(bench.backups().size(), 1U);
    EXPECT_TRUE(contains(failed.err,
                         "the ROM is incomplete now, run the command again, or 'nyxus "
                         "recover' to put the backup '" +
                             bench.backups().front().string() + "' back"))
        << failed.err;
    bench.set_faults("");
    for (const char* command : {"info", "list", "doctor"}) {
        const Outcome text = bench.nyxus_with_rom(kModel, {command});
        EXPECT_TRUE(contains(text.out, "the ROM is incomplete, as of 2")) << text.out;
    }
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"doctor"}).exit_code, 1);
    const Json listed = Json::parse(bench.nyxus_with_rom(kModel, {"list", "--json"}).out);
    EXPECT_EQ(listed[0]["rom"]["state"], "incomplete");
    const Json info = Json::parse(bench.nyxus_with_rom(kModel, {"info", "--json"}).out);
    EXPECT_EQ(info["rom"]["state"], "incomplete");
    EXPECT_EQ(info["rom"]["backup"], bench.backups().front().string());

    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"recover", "--reset"}).exit_code, 0);
    const Outcome healthy = bench.nyxus_with_rom(kModel, {"list"});
    EXPECT_FALSE(contains(healthy.out, "incomplete")) << healthy.out;
}

TEST(Journal, AndBackupAreKeptByEveryCommandThatChangesTheRom)
{
    const struct {
        std::string model;
        Words command;
        const char* operation;
        const char* state;
    } cases[] = {
        {kSpi, {"erase", "--yes"}, "erase", "blank"},
        {kSpi, {"rom", "write"}, "write", "verified"},
        {"fi2-board", {"sg", "write", "0x2400"}, "sg", "verified"},
    };
    for (const auto& c : cases) {
        const Bench bench;
        Words command = c.command;
        if (c.operation != std::string("erase")) {
            write_file(bench.path("bytes"), {1, 2, 3});
            command.push_back(bench.path("bytes"));
        }
        command.emplace_back("--no-backup");
        EXPECT_EQ(bench.nyxus_with_rom(c.model, command).exit_code, 0) << c.operation;
        EXPECT_TRUE(bench.backups().empty()) << c.operation;
        command.pop_back();
        write_file(bench.path("bytes"), {4, 5, 6});
        const Outcome outcome = bench.nyxus_with_rom(c.model, command);
        EXPECT_EQ(outcome.exit_code, 0) << c.operation << outcome.err;
        EXPECT_EQ(bench.backups().size(), c.operation == std::string("erase") ? 0U : 1U)
            << "a blank ROM needs none";
        const Json list = Json::parse(bench.nyxus_with_rom(c.model, {"list", "--json"}).out);
        EXPECT_EQ(list[0]["rom"]["state"], c.state);
        EXPECT_EQ(list[0]["rom"]["operation"], c.operation);
    }
}

TEST(Backups, AreListedShownVerifiedExportedAndPruned)
{
    const Bench bench;
    for (const char* version : {"0x0205", "0x0206", "0x0207"}) {
        const std::string image = bench.image(kModel, version);
        ASSERT_EQ(bench.nyxus_with_rom(kModel, {"upgrade", image}).exit_code, 0);
    }
    const Json list = Json::parse(bench.nyxus({}, {"backups", "list", "--json"}).out);
    ASSERT_EQ(list.size(), 3U);
    const std::string name = list[2]["name"].text();
    EXPECT_EQ(list[2]["sequence"], 3);
    EXPECT_EQ(list[2]["started"], "yes");
    const Outcome show = bench.nyxus({}, {"backups", "show", name});
    EXPECT_TRUE(contains(show.out, "running             0x0206")) << show.out;
    const Outcome copied = bench.nyxus({}, {"backups", "export", name, bench.path("copy")});
    EXPECT_EQ(copied.exit_code, 0) << copied.err;
    EXPECT_EQ(read_file(bench.path("copy")), read_file(list[2]["file"].text()));
    EXPECT_EQ(bench.nyxus({}, {"backups", "verify"}).exit_code, 0);

    write_file(list[0]["file"].text(), {1});
    const Outcome broken = bench.nyxus({}, {"backups", "verify"});
    EXPECT_EQ(broken.exit_code, 8);
    EXPECT_TRUE(contains(broken.out, "its digest differs")) << broken.out;
    const std::string first = list[0]["name"].text();
    EXPECT_EQ(bench.nyxus({}, {"backups", "export", first, bench.path("no")}).exit_code, 8);
    EXPECT_FALSE(std::filesystem::exists(bench.path("no")));

    const Outcome dry = bench.nyxus({}, {"backups", "prune", "--keep", "1", "-n"});
    EXPECT_TRUE(contains(dry.out, "2 backups would be removed")) << dry.out;
    EXPECT_EQ(bench.nyxus({}, {"backups", "prune", "--keep", "1"}).exit_code, 0);
    ASSERT_EQ(bench.backups().size(), 1U);
    EXPECT_EQ(bench.backups().front().string(), list[2]["file"].text());
    EXPECT_EQ(bench.nyxus({}, {"backups", "show", first}).exit_code, 1);
}

TEST(Backups, ThatMayBeAnotherCamerasAreListedAndAskedFor)
{
    const Bench bench;
    const std::string twin = kSpi + ",serial=TWIN";
    const std::string image = bench.image(kModel, "0x0205");
    ASSERT_EQ(bench.nyxus({twin}, {"upgrade", image}).exit_code, 0);
    const std::string file = bench.backups().front().string();
    const Words cameras = {twin, twin + ",blank"};
    const Outcome uncertain = bench.nyxus(cameras, {"recover", "-c", "1-2"});
    EXPECT_EQ(uncertain.exit_code, 15) << uncertain.err;
    EXPECT_TRUE(contains(uncertain.err, file)) << uncertain.err;
    RunOptions terminal;
    terminal.terminal_columns = 200;
    terminal.typed = "\n";
    EXPECT_EQ(bench.nyxus(cameras, {"recover", "-c", "1-2"}, terminal).exit_code, 15);
    terminal.typed = "1\n";
    const Outcome chosen = bench.nyxus(cameras, {"recover", "-c", "1-2"}, terminal);
    EXPECT_EQ(chosen.exit_code, 0) << chosen.out;
    EXPECT_EQ(bench.nyxus(cameras, {"recover", file, "-c", "1-2"}).exit_code, 0);
}

TEST(Backups, AreKeptWithoutTemporaryFilesWhateverKillsTheProgram)
{
    const Bench bench;
    const Outcome outcome =
        bench.shell(kSpi + ",rom=" + bench.rom_file(),
                    "set -m; \"$NYXUS\" upgrade \"$IMAGE\" >\"$OUT\" & pid=$!\n"
                    "\"$WAIT_FOR\" ^programming \"$OUT\" $pid; kill -KILL $pid; wait $pid\n"
                    "\"$NYXUS\" list",
                    {{"IMAGE", bench.image(kModel, "0x0205")}, {"OUT", bench.path("out")}});
    EXPECT_TRUE(contains(outcome.out, "the ROM is incomplete, as of")) << outcome.out;
    for (const auto& file :
         std::filesystem::recursive_directory_iterator(bench.state_folder() + "/nyxus/units")) {
        const std::string name = file.path().filename().string();
        EXPECT_TRUE(file.is_directory() || name == "unit.json" || name == "journal.jsonl" ||
                    name == "000001.rom" || name == "000001.json")
            << name;
    }
}

TEST(Reset, FailsUnlessTheFirmwareOfTheRomRuns)
{
    const Bench bench;
    EXPECT_EQ(bench.nyxus({kSpi + ",blank"}, {"reset"}).exit_code, 14);
    ASSERT_EQ(bench.nyxus_with_rom(kModel, {"erase", "--yes"}).exit_code, 0);
    const Outcome outcome = bench.nyxus_with_rom(kModel, {"reset"});
    EXPECT_EQ(outcome.exit_code, 14);
    EXPECT_TRUE(contains(outcome.err,
                         "came back with its mask ROM: its ROM was erased on purpose (erase, 2"))
        << outcome.err;
}

TEST(Reset, OfAnUpgradeLeavesWhatRunsTheRomAlready)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string camera = kSpi + ",rom=" + bench.rom_file();
    const auto restarts = [&](const std::string& script) {
        const Outcome outcome = bench.shell(camera, script, {{"IMAGE", image}});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        const bool is_told = contains(outcome.out, "not restarted: the camera runs what its ROM");
        EXPECT_NE(contains(outcome.out, "runs external firmware 0x0205"), is_told) << outcome.out;
        return !is_told;
    };
    EXPECT_TRUE(restarts("\"$NYXUS\" upgrade \"$IMAGE\" && \"$NYXUS\" upgrade \"$IMAGE\" --reset"))
        << "it still ran the former firmware";
    EXPECT_FALSE(restarts("\"$NYXUS\" upgrade \"$IMAGE\" --reset"));
    const Outcome plan = bench.nyxus({camera}, {"upgrade", image, "--reset", "--dry-run"});
    EXPECT_FALSE(contains(plan.out, "restart")) << plan.out;
}

TEST(Reset, OfABatchLeavesWhatWasUpToDateRunning)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string camera = kSpi + ",rom=" + bench.rom_file();
    const Words command = {"upgrade", image, "--all", "--reset", "-v"};
    const Outcome first = bench.nyxus({camera}, command);
    EXPECT_EQ(first.exit_code, 0) << first.err;
    EXPECT_TRUE(contains(first.out + first.err, "restarting"));
    const Outcome second = bench.nyxus({camera}, command);
    EXPECT_EQ(second.exit_code, 0) << second.err;
    EXPECT_FALSE(contains(second.out + second.err, "restarting")) << second.out << second.err;
}

} // namespace
