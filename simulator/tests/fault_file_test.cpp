// SPDX-License-Identifier: Apache-2.0
// The fault language: what a plan says, and how mistakes are reported.
#include "faults/fault_file.h"
#include "faults/fault_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace sim {
namespace {

std::string mistake_in(const std::string& text)
{
    try {
        parse_faults(text, "f");
    } catch (const DescriptionError& error) {
        return error.what();
    }
    return "no mistake";
}

TEST(FaultFile, MistakesNameTheirPlaceAndWhatWasExpected)
{
    // clang-format off
    const struct {
        std::string text;
        const char* where;
        const char* what;
    } cases[] = {
        {"",                                           "f: ",            "there is no table [[fault]]"},
        {"fault = 5",                                  "f:1:1: ",        "must be 1 to 1000 tables, not 5"},
        {"[[fautl]]\n",                                "f:1:3: ",        "did you mean 'fault'?"},
        {"[[fault]]\nwhen = {}\ndo \"stall\"\n",       "f:3:",           "this is no TOML"},
        {"[[fault]]\ndo = \"\xFF\"\n",                 "f:2:",           "this is no TOML"},
        {"[fault]\n" + std::string(2001, '.'),         "f: ",            "at most 2000 dots"},
        {std::string(2 << 20, ' '),                    "f: ",            "1 MiB"},
        {"[[fault]]\n",                                "f:1:1: fault 1: ", "'when' is missing: a table"},
        {"[[fault]]\nwhen = {}\n",                     "f:1:1: fault 1: ", "'do' is missing: \"stall\" or"},
        {"[[fault]]\nwhen = 3\ndo = \"stall\"",        "f:2:1: fault 1: ", "must be a table, not 3"},
        {"[[fault]]\nwhen = {}\ndo = \"stall\"\n[[fault]]\nwhen = {}\ndo = \"stal\"",
                                                       "f:6:1: fault 2: ", "did you mean \"stall\"?"},
        {"[[fault]]\ndo = \"stall\"\n[fault.when]\nselctor = 5",
                                                       "f:4:1: fault 1: ", "did you mean 'selector'?"},
        {"[[fault]]\nwhen = {}\ndo = \"stall\"\ncolour = 5",
                                                       "f:4:1: fault 1: ", "there is no key 'colour' here"},
        {"[[fault]]\ndo = \"stall\"\nwhen.request = \"SETCUR\"",
                                                       "f:3:6: fault 1: ", "did you mean \"SET_CUR\"?"},
        {"[[fault]]\ndo = \"stall\"\nwhen.unit = 256", "f:3:6: fault 1: ", "from 0x00 to 0xFF, not 0x0100"},
        {"[[fault]]\ndo = \"stall\"\nwhen.unit = -1",  "f:3:6: fault 1: ", "not -1"},
        {"[[fault]]\ndo = \"stall\"\nwhen.unit = \"6\"", "f:3:6: fault 1: ", "not a text"},
        {"[[fault]]\ndo = \"stall\"\nwhen.transfer = 0", "f:3:6: fault 1: ", "from 1 to"},
        {"[[fault]]\ndo = \"stall\"\nwhen.transfer = []", "f:3:6: fault 1: ", "a range [FROM, TO] or [FROM], not []"},
        {"[[fault]]\ndo = \"stall\"\nwhen.transfer = [3, 2]", "f:3:6: fault 1: ", "[FROM], not [3, 2]"},
        {"[[fault]]\ndo = \"stall\"\nwhen.rom_address = [0x4000, 3, 2]", "f:3:6: fault 1: ", "not [0x4000, 0x03, 0x02]"},
        {"[[fault]]\ndo = \"stall\"\nwhen.probability = 1.5", "f:3:6: fault 1: ", "from 0 to 1"},
        {"[[fault]]\ndo = \"stall\"\nwhen.probability = nan", "f:3:6: fault 1: ", "from 0 to 1"},
        {"[[fault]]\ndo = \"stall\"\nwhen.camera = 0", "f:3:6: fault 1: ", "1 for the first camera"},
        {"[[fault]]\ndo = \"late\"\nms = 5\nwhen.frame = 1", "f:4:6: fault 1: ", "does not happen to frames"},
        {"[[fault]]\ndo = \"stall\"\nwhen = { frame = 1, unit = 6 }", "f:3:21: fault 1: ", "'unit' does not go together"},
        {"[[fault]]\ndo = \"ignored-lock\"\nwhen.rom_address = 1", "f:3:6: fault 1: ", "status register"},
        {"[[fault]]\nwhen = {}\ndo = \"truncate\"",    "f:3:1: fault 1: ", "\"truncate\" needs 'bytes'"},
        {"[[fault]]\nwhen = {}\ndo = \"stall\"\nms = 1", "f:4:1: fault 1: ", "means nothing to \"stall\""},
        {"[[fault]]\nwhen = {}\ndo = \"unplug\"\nannounced = 1", "f:4:1: fault 1: ", "true or false, not 1"},
        {"[[fault]]\nwhen.time_ms = 1\ndo = \"unplug\"\nafter = true", "f:4:1: fault 1: ", "nothing is asked"},
        {"[[fault]]\nwhen = {}\ndo = \"bit-flip\"\nmask = 0", "f:4:1: fault 1: ", "from 0x01 to 0xFF"},
        // JSON has no lines.
        {"[\n{\"when\": {},\n\"do\" \"stall\"}]",      "f: ",            "this is no JSON"},
        {"{\"when\": {}}",                             "f: ",            "is a list"},
        {"[{\"when\": {}, \"do\": \"stall\"}, {\"when\": {}, \"do\": 7}]", "f: fault 2: ", "not 7"},
        {"[{\"when\": {\"unit\": \"0xZZ\"}, \"do\": \"stall\"}]", "f: fault 1: ", "not a text"},
        {"[{" + std::string(50000, '['),               "f: ",            "this is no JSON"},
    };
    // clang-format on
    for (const auto& c : cases) {
        const std::string text = mistake_in(c.text);
        EXPECT_TRUE(text.starts_with(c.where)) << c.text.substr(0, 100) << "\n" << text;
        EXPECT_NE(text.find(c.what), std::string::npos) << text;
        EXPECT_LT(text.size(), 900U);
        EXPECT_EQ(
            std::ranges::count_if(
                text,
                [](char letter) { return (letter < 0x20 && letter != '\n') || letter > 0x7E; }),
            0)
            << text;
    }
    std::string many;
    for (int i = 0; i < 1001; ++i)
        many += "[[fault]]\nwhen = {}\ndo = \"stall\"\n";
    EXPECT_EQ(mistake_in(many), "f:1:3: 'fault' must be 1 to 1000 tables, not a list");
}

TEST(FaultFile, AFileThatCannotBeReadIsToldApart)
{
    EXPECT_THROW(read_fault_text("/no/such/file"), DescriptionError);
    EXPECT_THROW(read_fault_text("/"), DescriptionError);
    EXPECT_THROW(read_fault_text("/dev/zero"), DescriptionError) << "endless";
}

constexpr char kToml[] = R"(# a comment
[[fault]]
when = { transfer = 120 }
do = "stall"

[[fault]]
do = "no-answer"
times = 2
[fault.when]
selector = 5
unit = 0x06
request = "SET_CUR"
count = [3]

[[fault]]
when = { rom_address = [0x4000, 20479] }
do = "lying-write"

[[fault]]
when = { time_ms = 2500, camera = "0x5" }
do = "unplug"
announced = false

[[fault]]
when = { time_ms = [1, 2], camera = 2 }
do = "late"
ms = 30

[[fault]]
when = { rom_address = 1 }
do = "power-cut"
replug_ms = 1000

[[fault]]
when = { probability = 0.25, frame = [3, 4] }
seed = 7
do = "truncate"
bytes = 9
)";

constexpr char kJson[] = R"([ // a comment
    {"when": {"transfer": 120}, "do": "stall"},
    {"when": {"selector": 5, "unit": "0x06", "request": "SET_CUR", "count": [3, null]},
     "do": "no-answer", "times": 2},
    {"when": {"rom_address": ["0x4000", 20479]}, "do": "lying-write"},
    {"when": {"time_ms": 2500, "camera": "0x5"}, "do": "unplug", "announced": false},
    {"when": {"time_ms": [1, 2], "camera": 2}, "do": "late", "ms": 30},
    {"when": {"rom_address": 1}, "do": "power-cut", "replug_ms": 1000},
    {"when": {"probability": 0.25, "frame": [3, 4]}, "seed": 7, "do": "truncate", "bytes": 9}
])";

TEST(FaultFile, SaysWhatItSaysInTomlAndInJson)
{
    for (const char* text : {kToml, kJson}) {
        const FaultPlan plan = parse_faults(text, "f");
        ASSERT_EQ(plan.size(), 7U);
        const Site sites[] = {Site::kTransfer, Site::kTransfer, Site::kRom,  Site::kClock,
                              Site::kTransfer, Site::kRom,      Site::kFrame};
        for (size_t i = 0; i < plan.size(); ++i)
            EXPECT_EQ(plan[i].site, sites[i]) << i;
        EXPECT_EQ(plan[1].when.unit, 6);
        EXPECT_EQ(plan[1].when.count->from, 3U);
        EXPECT_GT(plan[1].when.count->to, 1U << 31);
        EXPECT_EQ(plan[1].times, 2U);
        EXPECT_EQ(plan[2].when.rom_address->from, 0x4000U);
        EXPECT_EQ(plan[2].when.rom_address->to, 0x4FFFU);
        EXPECT_EQ(plan[3].times, 1U) << "one moment, one unplug";
        EXPECT_GT(plan[3].when.time_us->to, 1U << 31);
        EXPECT_EQ(plan[3].when.serial, "0x5");
        EXPECT_FALSE(plan[3].announced);
        EXPECT_EQ(plan[4].when.time_us->from, 1000U);
        EXPECT_EQ(plan[4].when.time_us->to, 2999U);
        EXPECT_EQ(plan[4].when.position, 2U);
        EXPECT_EQ(plan[4].duration_us, 30'000U);
        EXPECT_EQ(plan[5].replug_us, 1'000'000U);
        EXPECT_EQ(plan[6].when.probability, 0.25);
        EXPECT_EQ(plan[6].bytes, 9U);
        EXPECT_EQ(plan[3].text,
                  text == kToml ? "fault 4 (\"unplug\", line 19)" : "fault 4 (\"unplug\")");
    }
}

/// Which of the first 200 transfers are stalled.
std::vector<int> stalled_transfers(const std::string& text)
{
    VirtualClock clock;
    FaultEngine engine(1, "S1", clock, {});
    (void)engine.add(parse_faults(text, "plan"));
    std::vector<int> struck;
    for (int i = 1; i <= 200; ++i) {
        const auto selector = static_cast<uint16_t>(i % 2 == 0 ? 0x0300 : 0x0500);
        const Setup setup{0xA1, 0x81, selector, 0x0600, 8};
        if (engine.on_transfer(setup).kind == Fault::Kind::kStalled)
            struck.push_back(i);
        clock.advance_us(1000);
    }
    EXPECT_EQ(engine.strikes().front(), struck.size());
    return struck;
}

TEST(FaultEngine, AllTriggersHaveToHold)
{
    const struct {
        const char* when;
        const char* more;
        std::vector<int> struck;
    } cases[] = {
        {R"(transfer = 120)", "", {120}},
        {R"(transfer = [5, 7])", "", {5, 6, 7}},
        {R"(transfer = [199])", "", {199, 200}},
        {R"(selector = 3, transfer = [5, 9])", "", {6, 8}},
        {R"(selector = 3, count = 2)", "", {4}},
        {R"(selector = 3, count = [2, 3])", "", {4, 6}},
        {R"(selector = 3, transfer = [10], count = 2)", "", {12}},
        {R"(unit = 6, request = "GET_CUR")", R"(, times = 3)", {1, 2, 3}},
        {R"(unit = 5)", "", {}},
        {R"(request = "SET_CUR")", "", {}},
        {R"(time_ms = 50)", "", {51}},
        {R"(time_ms = 50)", R"(, times = 2)", {51, 52}},
        {R"(time_ms = [50, 52])", "", {51, 52, 53}},
        {R"(camera = 1, transfer = 1)", "", {1}},
        {R"(camera = 2, transfer = 1)", "", {}},
        {R"(camera = "S1", transfer = 1)", "", {1}},
        {R"(camera = "S2", transfer = 1)", "", {}},
        {R"(probability = 0)", "", {}},
        {R"(probability = 1, transfer = [1, 2])", "", {1, 2}},
    };
    for (const auto& c : cases) {
        const std::string text =
            std::string(R"(fault = [{when = {)") + c.when + R"(}, do = "stall")" + c.more + "}]";
        EXPECT_EQ(stalled_transfers(text), c.struck) << text;
    }
}

TEST(FaultEngine, ChanceIsTheSameEachTimeAndFollowsItsSeed)
{
    const auto with_seed = [](const std::string& seed) {
        return stalled_transfers(R"(fault = [{when = {probability = 0.3}, do = "stall", seed = )" +
                                 seed + "}]");
    };
    const std::vector<int> struck = with_seed("7");
    EXPECT_EQ(struck, with_seed("7"));
    EXPECT_NE(struck, with_seed("8"));
    EXPECT_GT(struck.size(), 30U);
    EXPECT_LT(struck.size(), 90U);
}

} // namespace
} // namespace sim
