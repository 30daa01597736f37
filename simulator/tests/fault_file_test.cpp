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
        parse_faults(text, "f.json");
    } catch (const FaultFileError& error) {
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
        {"",                                            "f.json:1: ",          "this is not JSON"},
        {"[\n{\"when\": {},\n\"do\" \"stall\"}]",       "f.json:3: ",          "this is not JSON"},
        {"[{\"when\": {}, \"do\": \"stall\"}",          "f.json:1: ",          "unexpected end"},
        {"[{\"when\": {}, \"do\": \"\xFF\"}]",          "f.json:1: ",          "ill-formed UTF-8"},
        {"[{\"when\": {\"unit\": 1e999}, \"do\": 0}]",  "f.json:1: ",          "1e999"},
        {"{\"when\": {}}",                              "f.json:1: ",          "is a list"},
        {"[\n[\n[[[[[[",                                "f.json:3: ",          "too many brackets"},
        {std::string(50000, '['),                       "f.json:1: ",          "too many brackets"},
        {std::string(2 << 20, ' '),                     "f.json: ",            "1 MiB"},
        {"[7]",                                         "f.json:1: fault 1: ", "not 7"},
        {"[{}]",                                        "f.json:1: fault 1: ", "\"when\" is missing"},
        {"[{\"when\": {}}]",                            "f.json:1: fault 1: ", "\"do\" is missing"},
        {"[\n{\"when\": {}, \"do\": \"stall\"},\n{\"when\": {},\n\"do\": \"stal\"}]",
                                                        "f.json:4: fault 2: ", "did you mean \"stall\"?"},
        {"[1,\n{\"when\": {},\n\"when\": {}}]",         "f.json:3: ",          "for the second time"},
        {"[{\"when\": {\n\"selctor\": 5}, \"do\": \"stall\"}]",
                                                        "f.json:2: fault 1: ", "did you mean \"selector\"?"},
        {"[{\"when\": {}, \"do\": \"stall\",\n\"colour\": 5}]",
                                                        "f.json:2: fault 1: ", "\"colour\" is not known here. There"},
        {"[{\"when\": {\"request\": \"SETCUR\"}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "did you mean \"SET_CUR\"?"},
        {"[{\"when\": {\"unit\": 256}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "0 to 255, not 256"},
        {"[{\"when\": {\"unit\": -1}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "not -1"},
        {"[{\"when\": {\"unit\": \"0xZZ\"}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "not \"0xZZ\""},
        {"[{\"when\": {\"unit\": \"0x\"}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "not \"0x\""},
        {"[{\"when\": {\"transfer\": 0}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "from 1 to"},
        {"[{\"when\": {\"transfer\": [3]}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "[FROM, TO] or [FROM, null]"},
        {"[{\"when\": {\"transfer\": [3, 2]}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "ends before it begins"},
        {"[{\"when\": {\"probability\": 1.5}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "from 0 to 1"},
        {"[{\"when\": {\"camera\": 0}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "1 for the first camera"},
        {"[{\"when\": {\"frame\": 1}, \"do\": \"late\", \"ms\": 5}]",
                                                        "f.json:1: fault 1: ", "does not happen to frames"},
        {"[{\"when\": {\"frame\": 1, \"unit\": 6}, \"do\": \"stall\"}]",
                                                        "f.json:1: fault 1: ", "\"unit\" does not go together"},
        {"[{\"when\": {\"rom_address\": 1}, \"do\": \"ignored-lock\"}]",
                                                        "f.json:1: fault 1: ", "status register"},
        {"[{\"when\": {}, \"do\": \"truncate\"}]",      "f.json:1: fault 1: ", "needs \"bytes\""},
        {"[{\"when\": {}, \"do\": \"stall\", \"ms\": 1}]",
                                                        "f.json:1: fault 1: ", "means nothing to \"stall\""},
        {"[{\"when\": {}, \"do\": \"unplug\", \"announced\": 1}]",
                                                        "f.json:1: fault 1: ", "true or false, not 1"},
        {"[{\"when\": {\"time_ms\": 1}, \"do\": \"unplug\", \"after\": true}]",
                                                        "f.json:1: fault 1: ", "nothing is asked"},
        {"[{\"when\": {}, \"do\": \"bit-flip\", \"mask\": 0}]",
                                                        "f.json:1: fault 1: ", "1 to 255"},
    };
    // clang-format on
    for (const auto& c : cases) {
        const std::string text = mistake_in(c.text);
        EXPECT_TRUE(text.starts_with(c.where)) << c.text.substr(0, 100) << "\n" << text;
        EXPECT_NE(text.find(c.what), std::string::npos) << text;
        EXPECT_LT(text.size(), 600U);
        EXPECT_EQ(
            std::ranges::count_if(text, [](char letter) { return letter < 0x20 || letter > 0x7E; }),
            0)
            << text;
    }
    std::string many = "[";
    for (int i = 0; i < 1001; ++i)
        many += R"({"when": {}, "do": "stall"},)";
    many.back() = ']';
    EXPECT_EQ(mistake_in(many), "f.json: a fault file has at most 1000 faults");
}

TEST(FaultFile, AFileThatCannotBeReadIsToldApart)
{
    EXPECT_THROW(read_fault_file("/no/such/file"), FaultFileError);
    EXPECT_THROW(read_fault_file("/"), FaultFileError);
    EXPECT_THROW(read_fault_file("/dev/zero"), FaultFileError) << "endless";
}

TEST(FaultFile, SaysWhatItSays)
{
    const FaultPlan plan = parse_faults(R"([ // a comment
        {"when": {"transfer": 120}, "do": "stall"},
        {"when": {"selector": 5, "unit": 6, "request": "SET_CUR", "count": [3, null]},
         "do": "no-answer", "times": 2},
        {"when": {"rom_address": ["0x4000", 20479]}, "do": "lying-write"},
        {"when": {"time_ms": 2500, "camera": "S1"}, "do": "unplug", "announced": false},
        {"when": {"time_ms": [1, 2], "camera": 2}, "do": "late", "ms": 30},
        {"when": {"rom_address": 1}, "do": "power-cut", "replug_ms": 1000},
        {"when": {"probability": 0.25, "frame": [3, 4]}, "seed": 7, "do": "truncate", "bytes": 9}
    ])",
                                        "f.json");
    ASSERT_EQ(plan.size(), 7U);
    const Site sites[] = {Site::kTransfer, Site::kTransfer, Site::kRom,  Site::kClock,
                          Site::kTransfer, Site::kRom,      Site::kFrame};
    for (size_t i = 0; i < plan.size(); ++i)
        EXPECT_EQ(plan[i].site, sites[i]) << i;
    EXPECT_EQ(plan[1].when.count->from, 3U);
    EXPECT_GT(plan[1].when.count->to, 1U << 31);
    EXPECT_EQ(plan[2].when.rom_address->from, 0x4000U);
    EXPECT_EQ(plan[2].when.rom_address->to, 0x4FFFU);
    EXPECT_EQ(plan[3].times, 1U) << "one moment, one unplug";
    EXPECT_FALSE(plan[3].announced);
    EXPECT_EQ(plan[4].when.time_us->from, 1000U);
    EXPECT_EQ(plan[4].when.time_us->to, 2999U);
    EXPECT_EQ(plan[5].replug_us, 1'000'000U);
    EXPECT_EQ(plan[3].text, "fault 4 (\"unplug\", line 6)");
}

/// Which of the first 200 transfers are stalled.
std::vector<int> stalled_transfers(const std::string& text)
{
    VirtualClock clock;
    FaultEngine engine(parse_faults(text, "plan"), 1, "S1", clock, {});
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
        {R"("transfer": 120)", "", {120}},
        {R"("transfer": [5, 7])", "", {5, 6, 7}},
        {R"("transfer": [199, null])", "", {199, 200}},
        {R"("selector": 3, "transfer": [5, 9])", "", {6, 8}},
        {R"("selector": 3, "count": 2)", "", {4}},
        {R"("selector": 3, "count": [2, 3])", "", {4, 6}},
        {R"("selector": 3, "transfer": [10, null], "count": 2)", "", {12}},
        {R"("unit": 6, "request": "GET_CUR")", R"(, "times": 3)", {1, 2, 3}},
        {R"("unit": 5)", "", {}},
        {R"("request": "SET_CUR")", "", {}},
        {R"("time_ms": 50)", "", {51}},
        {R"("time_ms": 50)", R"(, "times": 2)", {51, 52}},
        {R"("time_ms": [50, 52])", "", {51, 52, 53}},
        {R"("camera": 1, "transfer": 1)", "", {1}},
        {R"("camera": 2, "transfer": 1)", "", {}},
        {R"("camera": "S1", "transfer": 1)", "", {1}},
        {R"("camera": "S2", "transfer": 1)", "", {}},
        {R"("probability": 0)", "", {}},
        {R"("probability": 1, "transfer": [1, 2])", "", {1, 2}},
    };
    for (const auto& c : cases) {
        const std::string text =
            std::string(R"([{"when": {)") + c.when + R"(}, "do": "stall")" + c.more + "}]";
        EXPECT_EQ(stalled_transfers(text), c.struck) << text;
    }
}

TEST(FaultEngine, ChanceIsTheSameEachTimeAndFollowsItsSeed)
{
    const auto with_seed = [](const std::string& seed) {
        return stalled_transfers(R"([{"when": {"probability": 0.3}, "do": "stall", "seed": )" +
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
