// SPDX-License-Identifier: Apache-2.0
// 'nyxus control save' and 'load': all standard controls in a file.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

/// With an automatic, which refuses a white balance while it is at work.
constexpr char kAutomaticCamera[] = R"(
internal_version = "RO2-1.2.0"
xu_version = 0x0002
flash = "MXIC MX25L1006E"
[controls]
brightness = { min = -64, max = 64, default = 0 }
contrast = { min = 0, max = 100, step = 5, default = 50 }
white_balance = { min = 2800, max = 6500, step = 10, default = 4600 }
white_balance_auto = { min = 0, max = 1, default = 1 }
)";

class ControlFile : public testing::Test {
protected:
    /// A script in the folder, with that camera. Standard error goes where output goes.
    Outcome run(const std::string& script)
    {
        write_file(bench_.path("camera.toml"),
                   {kAutomaticCamera, kAutomaticCamera + sizeof kAutomaticCamera - 1});
        return bench_.shell(bench_.path("camera.toml"), "cd \"$FOLDER\"; exec 2>&1; " + script,
                            {{"FOLDER", bench_.path("")}});
    }

    Bench bench_;
};

TEST_F(ControlFile, WhatIsSavedIsLoadedAgain)
{
    const Outcome outcome = run(R"(
        "$NYXUS" control set brightness -20
        "$NYXUS" control set white_balance_auto 0
        "$NYXUS" control set white_balance 5000
        "$NYXUS" control save saved.toml
        "$NYXUS" control save - >again 2>said; cmp saved.toml again; cat said
        "$NYXUS" control set brightness 3
        "$NYXUS" control set white_balance_auto 1
        "$NYXUS" control load saved.toml)");
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(contains(outcome.out, "file: saved.toml\ncontrols: 4\nfile: -\ncontrols: 4\n"))
        << outcome.out;
    EXPECT_TRUE(
        outcome.out.ends_with("white balance auto: 1 -> 0\nbrightness: 3 -> -20\n"
                              "contrast: 50 -> 50\nwhite balance: 5000 -> 5000\n"))
        << outcome.out;
    const Bytes bytes = read_file(bench_.path("saved.toml"));
    const std::string saved(bytes.begin(), bytes.end());
    EXPECT_TRUE(contains(saved, "\nbrightness = -20                # -64 to 64, by default 0\n"))
        << saved;
    EXPECT_TRUE(contains(saved, "# 0 to 100 in steps of 5, by default 50\n")) << saved;
}

/// Whatever the order in the file.
TEST_F(ControlFile, AutomaticsComeBeforeWhatTheyHoldBack)
{
    const struct {
        const char* file;
        const char* said;
    } cases[] = {
        {"white_balance = 5004\nwhite_balance_auto = 0\n",
         "white balance auto: 1 -> 0\nwhite balance: 4600 -> 5000\n"}, // a step
        {"brightness = 5\nwhite_balance = 5000\n",
         "white_balance: left to white_balance_auto\nbrightness: 0 -> 5\n"},
        {"white_balance_auto = 1\nwhite_balance = 5000\n",
         "white_balance: left to white_balance_auto\nwhite balance auto: 1 -> 1\n"},
        {"white_balance = 5000\n", "nyxus: '-' has nothing to set\n"},
    };
    for (const auto& [file, said] : cases) {
        const Outcome outcome =
            run(std::string("printf '") + file + "' | \"$NYXUS\" control load -");
        EXPECT_TRUE(outcome.out.ends_with(said)) << file << outcome.out;
    }
    const Outcome saved = run("\"$NYXUS\" control save - 2>/dev/null");
    EXPECT_TRUE(contains(saved.out,
                         "\n# white_balance = 4600          # 2800 to 6500 in steps of "
                         "10, by default 4600; white_balance_auto chooses it\n"))
        << saved.out;
}

TEST_F(ControlFile, NothingIsSetWhereOneIsWrong)
{
    const struct {
        const char* file;
        int exit_code;
        const char* why;
    } cases[] = {
        {"brightness = 5\ncontrast = 101\n", 2, "contrast is a number from 0 to 100, not 101"},
        {"brightness = 5\ncontrst = 1\n", 12, "no control 'contrst'"},
        {"brightness = 5\ncontrst = 1\n", 12, "did you mean 'contrast'?"},
        {"brightness = 5\nzoom = 1\n", 12, "no control 'zoom'"},
        {"brightness = 5\ncontrast = true\n", 2, "'in.toml': 'contrast' is no number"},
        {"brightness = 5\n[contrast]\n", 2, "'contrast' is no number"},
        {"brightness = 5\ncontrast 7\n", 2, "line 2 is no TOML"},
        {"brightness = 5\nbrightness = 6\n", 2, "line 2 is no TOML"},
        {"# brightness = 5\n", 2, "'in.toml' has nothing to set"},
        {"", 1, "'in.toml' is empty"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run(std::string("printf '") + c.file +
                                    "' >in.toml; \"$NYXUS\" control load in.toml; code=$?; "
                                    "\"$NYXUS\" control get brightness; exit $code");
        EXPECT_EQ(outcome.exit_code, c.exit_code) << c.file << outcome.out;
        EXPECT_TRUE(contains(outcome.out, c.why)) << c.file << outcome.out;
        EXPECT_TRUE(outcome.out.ends_with("brightness: 0\n")) << c.file << outcome.out;
    }
}

TEST_F(ControlFile, ProgramsAndADryRunAreToldBeforeAndAfter)
{
    const Outcome told =
        run("printf 'brightness = 5\ncontrast = 7\n' >in.toml; \"$NYXUS\" control "
            "load in.toml --json; \"$NYXUS\" control get contrast >&2");
    const std::string document = told.out.substr(0, told.out.find("\n}\n") + 3);
    EXPECT_EQ(Json::parse(document),
              (Json::Members{{"controls", Json::Members{{"brightness", 5}, {"contrast", 5}}},
                             {"before", Json::Members{{"brightness", 0}, {"contrast", 50}}}}))
        << told.out;
    const Outcome dry =
        run("\"$NYXUS\" control load in.toml --dry-run; \"$NYXUS\" control get "
            "brightness");
    EXPECT_TRUE(dry.out.starts_with("brightness: 0 -> 5\ncontrast: 50 -> 7\ndry run: nothing was"))
        << dry.out;
    EXPECT_TRUE(dry.out.ends_with("brightness: 0\n")) << dry.out;
    EXPECT_EQ(run("\"$NYXUS\" control save - --json").exit_code, 2);
}

} // namespace
