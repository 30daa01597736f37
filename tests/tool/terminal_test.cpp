// SPDX-License-Identifier: Apache-2.0
// What is seen on a terminal and without one.
#include "bench.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <sstream>

using namespace test;

namespace {

constexpr char kClearLine[] = "\r\033[K";

RunOptions terminal(unsigned columns, const std::map<std::string, std::string>& environment = {})
{
    RunOptions options;
    options.environment = {{"TERM", "xterm"}, {"NO_COLOR", ""}};
    for (const auto& [name, value] : environment)
        options.environment[name] = value;
    options.terminal_columns = columns;
    return options;
}

/// Every state of the line that is redrawn in place; lines that stay are none of them.
std::vector<std::string> redrawn(const std::string& output)
{
    std::vector<std::string> pictures;
    size_t start = output.find('\r');
    while (start != std::string::npos) {
        const size_t end = output.find('\r', start + 1);
        const bool stays =
            end != std::string::npos && end + 1 < output.size() && output[end + 1] == '\n';
        if (output[start + 1] != '\n' && !stays)
            pictures.push_back(output.substr(start + 1, end - start - 1));
        start = end;
    }
    return pictures;
}

/// Columns that a picture takes, its control sequences aside.
size_t width_on_screen(const std::string& picture)
{
    size_t width = 0;
    for (size_t i = 0; i < picture.size(); ++i) {
        if (picture[i] == '\033') {
            i = std::min(picture.find_first_of("mK", i), picture.size());
        } else {
            ++width;
        }
    }
    return width;
}

TEST(Terminal, ShowsABarThatReachesTheEndAndNoneOfTheLibrarysMarks)
{
    const Bench bench;
    const Outcome outcome =
        bench.nyxus({kModel}, {"upgrade", bench.image(kModel, "0x0205")}, terminal(80));
    ASSERT_EQ(outcome.exit_code, 0) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, kClearLine));
    EXPECT_TRUE(contains(outcome.out, "programming   ["));
    EXPECT_TRUE(contains(outcome.out, "erasing       ["));
    EXPECT_TRUE(contains(outcome.out, "verifying done in "));
    EXPECT_TRUE(contains(outcome.out, "\033[32m"));
    EXPECT_FALSE(contains(outcome.out, "#"));
    EXPECT_FALSE(contains(outcome.out, "<INFO>"));
}

TEST(Terminal, StaysWithinAnyWidth)
{
    const Bench bench;
    for (const unsigned columns : {10U, 25U, 40U, 60U, 200U}) {
        const Outcome outcome =
            bench.nyxus({kModel}, {"dump", bench.path("dump")}, terminal(columns));
        ASSERT_EQ(outcome.exit_code, 0) << outcome.out;
        EXPECT_FALSE(redrawn(outcome.out).empty()); // a fast machine is done before the next one
        for (const std::string& picture : redrawn(outcome.out))
            EXPECT_LT(width_on_screen(picture), columns) << picture;
    }
}

TEST(Terminal, UsesNoColourWhenAskedAndNoBarOnADumbOne)
{
    const Bench bench;
    Outcome outcome =
        bench.nyxus({kModel}, {"dump", bench.path("dump")}, terminal(80, {{"NO_COLOR", "1"}}));
    EXPECT_TRUE(contains(outcome.out, "reading       [")) << outcome.out;
    EXPECT_FALSE(contains(outcome.out, "\033[3")) << outcome.out;

    outcome = bench.nyxus({kModel}, {"dump", bench.path("dump")}, terminal(80, {{"TERM", "dumb"}}));
    EXPECT_FALSE(contains(outcome.out, "\033")) << outcome.out;
}

TEST(Terminal, AsksBeforeItErases)
{
    const Bench bench;
    for (const auto& [answer, exit_code] : {std::pair{"n\n", 13}, {"\n", 13}, {"y\n", 0}}) {
        RunOptions options = terminal(80);
        options.typed = answer;
        const Outcome outcome = bench.nyxus({kModel}, {"erase"}, options);
        EXPECT_EQ(outcome.exit_code, exit_code) << outcome.out;
        EXPECT_TRUE(contains(outcome.out, "Erase the firmware of camera")) << outcome.out;
    }
}

TEST(Plain, PrintsLinesOnly)
{
    const Bench bench;
    const Outcome outcome = bench.nyxus({kModel}, {"upgrade", bench.image(kModel, "0x0205")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.out, "programming ...\n")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "programming done in ")) << outcome.out;
    EXPECT_EQ(outcome.out.find_first_of("\r\033#"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.err, "");
}

/// The EEPROM takes seconds, as a real one does.
TEST(Plain, TellsOfLongWorkAtEachQuarter)
{
    const Bench bench;
    const Outcome outcome = bench.shell("hawthorn-eeprom", "\"$NYXUS\" upgrade \"$IMAGE\"",
                                        {{"IMAGE", bench.image("hawthorn-eeprom", "0x0205")}});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    std::vector<int> percents;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
        if (const size_t end = line.find("%  0:0"); end != std::string::npos)
            percents.push_back(std::stoi(line.substr(end - 3, 3)));
    }
    ASSERT_GE(percents.size(), 2U) << outcome.out; // more where the machine is slow
    EXPECT_LE(percents.size(), 3U) << outcome.out;
    for (size_t i = 1; i < percents.size(); ++i)
        EXPECT_GT(percents[i] / 25, percents[i - 1] / 25) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "\nprogramming     ")) << outcome.out;
}

TEST(Verbose, PassesTheLibrarysLinesOnWithoutItsMarks)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    for (const char* level : {"-v", "-vv", "-vvv"}) {
        const Outcome outcome = bench.nyxus({kModel}, {level, "upgrade", image});
        ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "  | <INFO> Device object acquire OK\n"));
        std::istringstream lines(outcome.err);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line.starts_with("  | ")) << line;
            EXPECT_FALSE(contains(line, "#")) << line;
        }
    }
    EXPECT_TRUE(contains(bench.nyxus({kModel}, {"-vvv", "info"}).err, "szIntFwVer"));
}

} // namespace
