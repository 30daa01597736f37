// SPDX-License-Identifier: Apache-2.0
// Which camera is meant, what it is, and what goes wrong before anything is done to it.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdio>
#include <sstream>

using namespace test;

namespace {

const Words kThreeCameras = {"rowan-spi,serial=A0001", "rowan-spi,serial=A0002",
                             "cedar-spi,serial=B0001,bus=2"};

TEST(Usage, MistakesExitWith2AndOneLine)
{
    const Bench bench;
    const Words mistakes[] = {
        {},
        {"frobnicate"},
        {"upgrade"},
        {"upgrade", "a.bin", "--mfi-serial", "X"},
        {"dump", "a.bin", "--size", "0"},
        {"dump", "a.bin", "--size", "16777217"},
        {"reset", "--wait", "soon"},
    };
    for (const Words& arguments : mistakes) {
        Words command = {kNyxus};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = run_program(command);
        EXPECT_EQ(outcome.exit_code, 2) << outcome.err;
        EXPECT_TRUE(outcome.err.starts_with("nyxus: ")) << outcome.err;
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
    }
}

TEST(Usage, MistypedWordsAreToldWhatIsNear)
{
    const struct {
        Words arguments;
        const char* message;
    } cases[] = {
        {{"upgade", "a.bin"}, "no command 'nyxus upgade'; did you mean 'upgrade'?; see 'nyxus "},
        {{"snap"}, "did you mean 'snapshot'?"},
        {{"osd", "sting", "0"}, "no command 'nyxus osd sting'; did you mean 'string'?"},
        {{"help", "osd", "colour"}, "no command 'nyxus osd colour'; did you mean 'color'?"},
        {{"upgrade", "--rest"}, "no option '--rest'; did you mean '--reset'?"},
        {{"info", "--jsno"}, "no option '--jsno'; did you mean '--json'?"},
        {{"flip", "onn"}, "'onn' is none of on, off; did you mean 'on'?"},
        {{"h264", "rate-control", "vrb"}, "did you mean 'vbr'?"},
        {{"info", "1-2"}, "'1-2' is one argument too many"},
        {{"xyzzy"}, "no command 'nyxus xyzzy'; see"},
        {{"i2c"}, "which command? There are get, set, config"},
    };
    for (const auto& [arguments, message] : cases) {
        Words command = {kNyxus};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = run_program(command);
        EXPECT_EQ(outcome.exit_code, 2) << outcome.err;
        EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
    }
}

/// Every command that help lists, and those below them.
std::vector<Words> commands_below(const Words& above)
{
    Words call = {kNyxus, "help"};
    call.insert(call.end(), above.begin(), above.end());
    const std::string help = run_program(call).out;
    std::vector<Words> commands = {above};
    bool in_list = false;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("  ")) {
            in_list = above.empty() ? line.ends_with(":") && !line.starts_with("Options") &&
                                          !line.starts_with("Ex")
                                    : line == "Commands:";
        }
        if (!in_list || !line.starts_with("  ") || line.starts_with("   "))
            continue;
        Words below = above;
        below.push_back(line.substr(2, line.find(' ', 2) - 2));
        for (Words& command : commands_below(below))
            commands.push_back(std::move(command));
    }
    return commands;
}

TEST(Usage, HelpFitsATerminalAndGivesEachCommandAnExample)
{
    const std::vector<Words> commands = commands_below({});
    EXPECT_GT(commands.size(), 60U);
    for (const Words& words : commands) {
        Words call = {kNyxus};
        std::string name = "nyxus";
        for (const std::string& word : words) {
            call.push_back(word);
            name += " " + word;
        }
        call.push_back("--help");
        const std::string help = run_program(call).out;
        EXPECT_NE(help.find("Usage: " + name), std::string::npos) << help;
        EXPECT_NE(help.find("Example:\n  " + name), std::string::npos) << help;
        std::istringstream lines(help);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST(Usage, VersionNamesTheLibraries)
{
    const Outcome outcome = run_program({kNyxus, "--version"});
    EXPECT_TRUE(outcome.out.starts_with("nyxus 1.0.0\nlibNYXUS 2.0.11\nlibusb 1.0."))
        << outcome.out;
}

/// The camera appears while the program waits, and may be chosen by what it will be called.
TEST(Selection, WaitsForACameraThatIsNotThereYet)
{
    Bench bench;
    const std::string late = "nyxus-sim() { \"" + std::string(kSimulator) + R"(" "$@"; }
        nyxus-sim do unplug > /dev/null
        "$NYXUS" info -c LATE; echo "<$?>"
        "$NYXUS" info --wait 60 -c LATE > "$OUT" & pid=$!
        "$WAIT_FOR" "waiting for the camera" "$OUT" $pid
        nyxus-sim do replug > /dev/null
        wait $pid; code=$?; cat "$OUT"; echo "<$code>")";
    const Outcome outcome =
        bench.shell("rowan-spi,serial=LATE", late, {{"OUT", bench.path("out")}});
    EXPECT_TRUE(outcome.out.starts_with("<3>\nwaiting for the camera ...\n")) << outcome.out;
    EXPECT_NE(outcome.out.find("serial LATE"), std::string::npos) << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with("<0>\n")) << outcome.out;
    EXPECT_EQ(bench.nyxus({kModel}, {"info", "-c", "nobody", "--wait", "1"}).exit_code, 3);
}

TEST(Output, QuietLeavesResultsAndJsonFailuresAreJson)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const Outcome quiet = bench.nyxus({kModel}, {"-q", "upgrade", image, "--reset"});
    EXPECT_EQ(quiet.exit_code, 0) << quiet.err;
    EXPECT_TRUE(quiet.out.starts_with("upgraded: ")) << quiet.out;
    EXPECT_EQ(std::ranges::count(quiet.out, '\n'), 2) << quiet.out;

    const Outcome failed = bench.nyxus({kModel}, {"flip", "--json", "-c", "nobody"});
    EXPECT_EQ(failed.exit_code, 3);
    EXPECT_EQ(Json::parse(failed.out)["error"]["exit_code"], 3);
    const Outcome none = bench.nyxus({kModel}, {"list", "--json", "-c", "nobody"});
    EXPECT_EQ(none.exit_code, 3);
    EXPECT_EQ(Json::parse(none.out), Json::List{});
}

TEST(Selection, ListsCamerasWithPlacesAndSerials)
{
    const Bench bench;
    const Outcome outcome = bench.nyxus(kThreeCameras, {"list", "--json"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json cameras = Json::parse(outcome.out);
    ASSERT_EQ(cameras.size(), 3U);
    EXPECT_EQ(cameras[0]["serial"], "A0001");
    EXPECT_EQ(cameras[2]["serial"], "B0001");
    EXPECT_EQ(cameras[2]["bus"], 2);
    for (const Json& camera : cameras)
        EXPECT_TRUE(camera["openable"]);

    const std::string table = bench.nyxus(kThreeCameras, {"list"}).out;
    for (const Json& camera : cameras) {
        EXPECT_NE(table.find(camera["serial"].text()), std::string::npos) << table;
        EXPECT_NE(table.find(camera["port_path"].text()), std::string::npos) << table;
    }
}

TEST(Selection, FindsACameraByEachOfItsNames)
{
    const Bench bench;
    const Json cameras = Json::parse(bench.nyxus(kThreeCameras, {"list", "--json"}).out);
    for (const Json& camera : cameras) {
        const auto bus = static_cast<unsigned>(camera["bus"].number());
        const auto address = static_cast<unsigned>(camera["address"].number());
        char padded_place[16];
        std::snprintf(padded_place, sizeof padded_place, "%03u:%03u", bus, address);
        for (const std::string& name :
             {camera["serial"].text(), camera["port_path"].text(),
              std::to_string(bus) + ":" + std::to_string(address), std::string(padded_place)}) {
            const Outcome outcome = bench.nyxus(kThreeCameras, {"info", "--json", "-c", name});
            ASSERT_EQ(outcome.exit_code, 0) << name << ": " << outcome.err;
            EXPECT_EQ(Json::parse(outcome.out)["serial"], camera["serial"]) << name;
        }
    }
}

TEST(Selection, RefusesToGuess)
{
    const Bench bench;
    const Words twins = {"rowan-spi,serial=A0001", "rowan-spi,serial=A0001"};
    struct {
        Words cameras;
        Words arguments;
        int exit_code;
        const char* text;
    } const cases[] = {
        {kThreeCameras, {"info"}, 4, "3 cameras are connected; choose one by --camera"},
        {kThreeCameras, {"reset"}, 4, "A0002"},
        {twins, {"info", "-c", "A0001"}, 4, "2 cameras match"},
        {kThreeCameras, {"info", "-c", "A000"}, 3, "no camera is called 'A000'"},
        {kThreeCameras, {"info", "-c", "9:9"}, 3, "B0001"},
        {kThreeCameras, {"list", "-c", "nobody"}, 3, "no camera is called 'nobody'"},
    };
    for (const auto& row : cases) {
        const Outcome outcome = bench.nyxus(row.cameras, row.arguments);
        EXPECT_EQ(outcome.exit_code, row.exit_code) << outcome.err;
        EXPECT_NE(outcome.err.find(row.text), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(Selection, SaysWhatToCheckWithoutACamera)
{
    for (const char* command : {"list", "info", "reset"}) {
        const Outcome outcome = run_program({kNyxus, command});
        EXPECT_EQ(outcome.exit_code, 3);
        EXPECT_NE(outcome.err.find("no camera found; check"), std::string::npos) << outcome.err;
    }
}

TEST(Info, TellsEveryModelApart)
{
    const Bench bench;
    struct {
        const char* model;
        const char* chip;
        const char* family;
        const char* rom_kind;
        unsigned rom_size;
        Json part;
        Json xu_version;
    } const cases[] = {
        {"rowan-spi", "NY6410", "ROWAN", "spi", 0x10000, "MXIC MX25L1006E", 0x0002},
        {"cedar-spi", "NY7780", "CEDAR", "spi", 0x10000, "GigaDev MK25Q40B", 0x0003},
        {"larch-spi", "NY6300", "LARCH", "spi", 0x10000, "WINBOND W25X05CL", nullptr},
        {"hawthorn-eeprom", "ZR5400", "HAWTHORN", "eeprom", 0x8000, nullptr, nullptr},
        {"willow-eeprom", "ZR5300 -series", "WILLOW", "eeprom", 0x8000, nullptr, 0x0100},
        {"fi2-spi", "ZR5200U", "FI2", "spi", 0x10000, "SST SST25WF512", 0x0101},
    };
    for (const auto& row : cases) {
        const Outcome outcome = bench.nyxus({row.model}, {"info", "--json"});
        ASSERT_EQ(outcome.exit_code, 0) << row.model << ": " << outcome.err;
        const Json info = Json::parse(outcome.out);
        EXPECT_EQ(info["chip"], row.chip);
        EXPECT_EQ(info["family"], row.family);
        EXPECT_EQ(info["runs"], "external firmware");
        EXPECT_EQ(info["external_firmware"], 0x0100);
        EXPECT_EQ(info["rom"]["kind"], row.rom_kind);
        EXPECT_EQ(info["rom"]["size_bytes"], row.rom_size);
        EXPECT_EQ(info["rom"]["part"], row.part);
        EXPECT_EQ(info["xu_version"], row.xu_version);
        EXPECT_EQ(outcome.err, "");
    }
}

} // namespace
