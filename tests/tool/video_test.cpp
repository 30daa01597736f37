// SPDX-License-Identifier: Apache-2.0
// What 'nyxus stream' and 'nyxus snapshot' write, where, and what they say beside it.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>

using namespace test;

namespace {

constexpr size_t kPixels = size_t{320} * 240;
constexpr char kMaple[] = "maple-mjpeg";

/// Runs nyxus, its standard output in a file, with a script behind it.
Outcome run_script(const Bench& bench, const std::string& script)
{
    return bench.shell(kMaple, "cd \"$FOLDER\"; " + script, {{"FOLDER", bench.path("")}});
}

std::string text_of(const Bench& bench, const char* file)
{
    const Bytes bytes = read_file(bench.path(file));
    return {bytes.begin(), bytes.end()};
}

TEST(VideoOutput, FilesAreWhatTheirNamesOrTheirTypeSay)
{
    const struct {
        const char* options;
        const char* begins_with;
        size_t bytes; ///< 0: nobody knows
    } cases[] = {
        {"--output a.yuyv", "", 2 * 2 * kPixels},
        {"-o a.y4m", "YUV4MPEG2 W320 H240 F30:1 Ip A1:1 C422\nFRAME\n", 39 + 2 * (6 + 2 * kPixels)},
        {"-o a.Y4M --fps 15", "YUV4MPEG2 W320 H240 F15:1 ", 39 + 2 * (6 + 2 * kPixels)},
        {"-o a --type y4m", "YUV4MPEG2 ", 39 + 2 * (6 + 2 * kPixels)},
        {"-o a.y4m --type raw", "", 2 * 2 * kPixels},
        {"--raw a.y4m", "", 2 * 2 * kPixels},
        {"-o a.mjpg", "\xFF\xD8\xFF", 0},
        {"-o a --format mjpeg", "\xFF\xD8\xFF", 0},
    };
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome =
            run_script(bench, std::string("\"$NYXUS\" stream --size 320x240 --count 2 ") +
                                  c.options + " && mv a* written");
        EXPECT_EQ(outcome.exit_code, 0) << c.options << outcome.err;
        EXPECT_TRUE(contains(outcome.out, "frames: 2\n")) << outcome.out;
        const std::string written = text_of(bench, "written");
        EXPECT_TRUE(written.starts_with(c.begins_with)) << c.options;
        EXPECT_TRUE(c.bytes == 0 ? !written.empty() : written.size() == c.bytes)
            << c.options << written.size();
    }
}

/// What is said is none of it.
TEST(VideoOutput, StandardOutputCarriesTheVideoOnly)
{
    const struct {
        const char* command;
        const char* begins_with;
        const char* said;
    } cases[] = {
        {"stream -o - --type y4m --count 2 --size 320x240", "YUV4MPEG2 ", "frames: 2\n"},
        {"stream -o - --format mjpeg --count 2", "\xFF\xD8\xFF", "frames: 2\n"},
        {"snapshot -", "\x89PNG", "snapshot: -\n"},
        {"snapshot - --type jpeg", "\xFF\xD8\xFF", "snapshot: -\n"},
    };
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome =
            run_script(bench, std::string("\"$NYXUS\" ") + c.command + " >written");
        EXPECT_EQ(outcome.exit_code, 0) << c.command << outcome.err;
        EXPECT_TRUE(contains(outcome.err, c.said)) << c.command << outcome.err;
        const std::string written = text_of(bench, "written");
        EXPECT_TRUE(written.starts_with(c.begins_with)) << c.command;
        EXPECT_FALSE(contains(written, c.said)) << c.command;
    }
}

TEST(VideoOutput, AReaderThatGoesAwayEndsItQuietly)
{
    const Bench bench;
    const Outcome outcome = run_script(
        bench,
        "\"$NYXUS\" stream -o - --size 320x240 | head -c 1000 >written; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(outcome.out, "0\n");
    EXPECT_TRUE(outcome.err.starts_with("frames: ")) << outcome.err;
    EXPECT_FALSE(contains(outcome.err, "nyxus:")) << outcome.err;
}

TEST(VideoOutput, AFullDiskIsToldAfterWhatWasReceived)
{
    const Bench bench;
    const Outcome outcome = run_script(bench, "\"$NYXUS\" stream -o /dev/full --count 9");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(outcome.out.starts_with("frames: 1\n")) << outcome.out;
    EXPECT_EQ(outcome.err,
              "nyxus: cannot write all frames to '/dev/full': No space left on device\n");
}

TEST(VideoOutput, WhatCannotBeIsRefused)
{
    const struct {
        const char* options;
        const char* why;
    } cases[] = {
        {"-o a.y4m --format mjpeg", "MJPEG does not become Y4M; choose --format yuyv"},
        {"-o - --json", "--json needs standard output for itself"},
        {"--type y4m", "--output"},
        {"-o a --raw b", "--raw"},
        {"-o a --type mp4", "none of raw, y4m"},
    };
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome =
            run_script(bench, std::string("\"$NYXUS\" stream --count 1 ") + c.options +
                                  "; code=$?; [ ! -e a ] && [ ! -e a.y4m ] && exit $code");
        EXPECT_EQ(outcome.exit_code, 2) << c.options << outcome.err;
        EXPECT_TRUE(contains(outcome.err, c.why)) << c.options << outcome.err;
    }
}

TEST(VideoOutput, ATerminalSeesHowItGoesAndAPipeTheEndOnly)
{
    const Bench bench;
    RunOptions terminal;
    terminal.environment = {{"TERM", "xterm"}};
    terminal.terminal_columns = 80;
    const Outcome live = bench.nyxus({kMaple}, {"stream", "--count", "20"}, terminal);
    EXPECT_TRUE(contains(live.out, " frames/s  ")) << live.out;
    EXPECT_TRUE(contains(live.out, " MB/s  1 frames  0 dropped\033[K")) << live.out;
    EXPECT_TRUE(contains(live.out, "\r\033[Kframes: 20\r\n")) << live.out;
    const Outcome plain = bench.nyxus({kMaple}, {"stream", "--count", "20"});
    EXPECT_TRUE(plain.out.starts_with("frames: 20\ndropped: ")) << plain.out;
    EXPECT_EQ(std::ranges::count(plain.out, '\n'), 4) << plain.out;
}

TEST(VideoOptions, WithoutASizeACameraStreamsTheUsualOneOrItsFirst)
{
    const Bench bench;
    for (const auto& [model, size] : {std::pair("birch-webcam", "width: 640\nheight: 480\n"),
                                      std::pair("alder-studio", "width: 1280\nheight: 720\n")}) {
        const Outcome outcome = bench.nyxus({model}, {"snapshot", bench.path("a.png")});
        EXPECT_TRUE(outcome.out.ends_with(size)) << model << outcome.out << outcome.err;
    }
}

TEST(VideoOptions, WhatTheConnectedCamerasHaveIsOffered)
{
    const struct {
        const char* option;
        const char* words;
    } cases[] = {
        {"--size", "640x480\n320x240\n1280x720\n1920x1080\n"},
        {"--format", "yuyv\nmjpeg\n"},
        {"--fps", "5\n10\n15\n30\n60\n"},
    };
    for (const auto& [option, words] : cases) {
        const Bench bench;
        EXPECT_EQ(bench.nyxus({kMaple, "maple-iso"}, {"--complete", "snapshot", option, ""}).out,
                  words);
    }
}

} // namespace
