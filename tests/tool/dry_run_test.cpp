// SPDX-License-Identifier: Apache-2.0
// What --dry-run announces is what happens without it, and nothing of it happens with it.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <sstream>

using namespace test;

namespace {

/// The control transfers of a run, as the camera's log tells them.
struct Talk {
    Outcome outcome;
    std::vector<std::string> transfers;
};

Talk talk(const Bench& bench, const std::string& camera, const std::string& arguments)
{
    const std::string log = bench.path("log");
    const std::string call = "exec " + std::string(kSimulator) + " run --speed fast --camera " +
                             camera + " '--log=" + log + "' --log-all -- " + kNyxus + " " +
                             arguments;
    Talk talk{.outcome = run_program({"bash", "-c", call}), .transfers = {}};
    const Bytes bytes = read_file(log);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    for (std::string line; std::getline(lines, line);) {
        if (const size_t setup = line.find("ET_"); line.find(" unit ", setup) != std::string::npos)
            talk.transfers.push_back(line.substr(setup - 1));
    }
    return talk;
}

/// Transfers that change something, or order something.
std::vector<std::string> writes(const Talk& talk)
{
    std::vector<std::string> writes;
    for (const std::string& line : talk.transfers) {
        const bool asks = line.find(": ask for ") != std::string::npos ||
                          line.find(" FLASH_BLOCK: 00 00") != std::string::npos ||
                          line.find(" EXT_ROM_512: ask for, or ") != std::string::npos ||
                          line.find(" OSD: 8") != std::string::npos ||
                          line.find(" OSD: 9") != std::string::npos ||
                          line.find(" OSD: A") != std::string::npos;
        if (line.starts_with("SET_CUR") && !asks)
            writes.push_back(line);
    }
    return writes;
}

struct Case {
    const char* camera;
    const char* arguments;
};

class DryRun : public testing::TestWithParam<Case> {
protected:
    void SetUp() override { write_file(bench_.path("in"), Bytes(70, 0x5A)); }

    std::string arguments() const
    {
        std::string text = GetParam().arguments;
        if (const size_t file = text.find("FILE"); file != std::string::npos)
            text.replace(file, 4, "'" + bench_.path("in") + "'");
        return text;
    }

    Bench bench_;
};

TEST_P(DryRun, WritesNothingAndCountsWhatTheRealRunTransfers)
{
    constexpr size_t kMeasuring = 32;
    const char* camera = GetParam().camera;
    const Talk idle = talk(bench_, camera, "info");
    const Talk dry = talk(bench_, camera, arguments() + " --dry-run --json");
    const Talk real = talk(bench_, camera, arguments());
    ASSERT_EQ(dry.outcome.exit_code, 0) << dry.outcome.err;
    ASSERT_EQ(real.outcome.exit_code, 0) << real.outcome.err;

    EXPECT_EQ(writes(dry), writes(idle));
    EXPECT_NE(writes(real), writes(idle)); // so that the line above can fail
    const Json plan = Json::parse(dry.outcome.out);
    EXPECT_TRUE(plan["dry_run"]);
    EXPECT_EQ(plan["control_transfers"], real.transfers.size() + kMeasuring - dry.transfers.size());
    EXPECT_GT(plan["estimated_seconds"].number(), 0);
}

// clang-format off
constexpr Case kCases[] = {
    {"rowan-spi", "flip on"},
    {"rowan-spi", "gain 40"},
    {"rowan-spi", "gpio 0 high"},
    {"rowan-spi", "gpio 9 low"},
    {"rowan-spi", "i2c set 0x10 1 2 3"},
    {"rowan-spi", "i2c config 0x60"},
    {"rowan-spi", "sensor write 0x3000 1 2 3 4 5 6 7 8 9"},
    {"rowan-spi", "motion set 1 2 3 4"},
    {"rowan-spi", "osd enable on"},
    {"rowan-spi", "osd datetime show on"},
    {"rowan-spi", "osd string 0 Hi"},
    {"rowan-spi", "h264 bitrate 3000000 1000000"},
    {"rowan-spi", "h264 format 1"},
    {"rowan-spi", "h264 next-frame idr"},
    {"fi2-board", "sg mode stream"},
    {"fi2-board", "sg write 0x2410 FILE"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Of, DryRun, testing::ValuesIn(kCases));

TEST(DryRunText, SaysThatNothingWasWrittenAndThatTheTimeIsAnEstimate)
{
    const Bench bench;
    const Outcome outcome = bench.nyxus({kModel}, {"flip", "on", "--dry-run"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(outcome.out.starts_with(
        "flip: off -> on\ndry run: nothing was written\nit would take 2 control transfers, "))
        << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with(" (an estimate)\n")) << outcome.out;
}

/// Whatever the ROM: nothing is written, and what is announced is what is done, as far as the flash
/// allows to know it.
TEST(DryRunOfTheRom, WritesNothingAndAnnouncesTheLeast)
{
    for (const std::string model : {"rowan-spi", "larch-spi", "fi2-spi", "hawthorn-eeprom"}) {
        const Bench bench;
        const std::string call = " '" + bench.image(model, "0x0205") + "' ";
        const Talk idle = talk(bench, model, "info");
        Words commands = {"upgrade" + call + "--reset", "upgrade" + call + "--force --no-backup",
                          "recover" + call + "--force"};
        if (!model.ends_with("eeprom"))
            commands.emplace_back("erase --yes");
        for (const std::string& command : commands) {
            const Talk dry = talk(bench, model, command + " --dry-run --json");
            ASSERT_EQ(dry.outcome.exit_code, 0) << model << command << dry.outcome.err;
            EXPECT_EQ(writes(dry), writes(idle)) << model << ": " << command;
            const Talk real = talk(bench, model, command);
            ASSERT_EQ(real.outcome.exit_code, 0) << model << command << real.outcome.err;
            const size_t done = real.transfers.size() - idle.transfers.size();
            const auto announced =
                static_cast<size_t>(Json::parse(dry.outcome.out)["control_transfers"].number());
            EXPECT_LE(announced, done) << model << ": " << command;
            // How often a flash is asked whether it is erased, nobody knows before.
            if (!command.starts_with("erase")) {
                EXPECT_GE(announced * 2, done) << model << ": " << command;
            }
        }
        EXPECT_EQ(bench.backups().size(), commands.size() - 1) << "dry runs keep none";
    }
}

} // namespace
