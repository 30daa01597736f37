// SPDX-License-Identifier: Apache-2.0
// What the user is told when the camera fails, and how the next upgrade heals it.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

TEST(Faults, AnUpgradeThatFailsSaysWhyAndIsHealedByAnother)
{
    // clang-format off
    const struct {
        std::string model;
        const char* fault;
        int exit_code;
        const char* message;
    } cases[] = {
        {"rowan-spi", R"({when = {rom_address = [0x4000, 0x4FFF]}, do = "lying-write"})",
         8, "4080 of 23100 bytes differ, the first one at 0x4000 (ROM FF, image "},
        {"willow-eeprom", R"({when = {rom_address = [0x1000, 0x10FF]}, do = "lying-write"})",
         8, "the first one at 0x1000"},
        {"cedar-spi", R"({when = {count = 7}, do = "stuck-busy"})",
         10, "the flash did not become ready in time; the ROM is incomplete now"},
        {"larch-spi", R"({when = {}, do = "ignored-unlock"})",
         9, "the flash did not confirm its write protection"},
        {"rowan-spi", R"({when = {}, do = "ignored-unlock"})",
         9, "nothing was written"},
        {"rowan-spi", R"({when = {rom_address = 0x2000, request = "SET_CUR", count = 2}, do = "power-cut"})",
         11, "programming the ROM failed: the camera is gone, perhaps unplugged; the ROM is incomplete"},
        {"fi2-spi", R"({when = {rom_address = 0x2000}, do = "stall"})",
         1, "the camera rejected a request"},
        {"hawthorn-eeprom", R"({when = {rom_address = 0x1000, request = "SET_CUR"}, do = "io-error"})",
         1, "USB transfer error; check the cable and the hub"},
    };
    // clang-format on
    for (const auto& c : cases) {
        Bench bench;
        const std::string image = bench.image(c.model, "0x0205");
        bench.set_faults("fault = [" + std::string(c.fault) + "]");
        const Outcome failed = bench.nyxus_with_rom(c.model, {"upgrade", image});
        EXPECT_EQ(failed.exit_code, c.exit_code) << c.fault << failed.err;
        EXPECT_TRUE(contains(failed.err, c.message)) << c.fault << failed.err;

        if (failed.err.ends_with("]\n")) { // a status of the library, which explain knows
            const Outcome explained = run_program({kNyxus, "explain", failed.err});
            EXPECT_EQ(explained.exit_code, 0) << explained.err;
        }

        bench.set_faults("");
        Words healing = {"upgrade", image, "--reset"};
        if (contains(c.model, "eeprom")) // without firmware it does not tell its size
            healing.insert(healing.end(), {"--eeprom", "32"});
        const Outcome healed = bench.nyxus_with_rom(c.model, healing);
        EXPECT_EQ(healed.exit_code, 0) << c.fault << healed.err;
        EXPECT_TRUE(contains(healed.out, "runs external firmware 0x0205")) << healed.out;
    }
}

/// Any of the transfers with which a camera is opened may fail in passing. An EEPROM is the worst
/// case: what is taken for a blank one may be anything.
TEST(Faults, ATransferThatFailsMakesNoRomBlank)
{
    constexpr int kMost = 100;
    int reported = 0;
    bool happened = true;
    for (int transfer = 1; happened && transfer < kMost; ++transfer) {
        Bench bench;
        bench.set_faults(R"(fault = [{when = {transfer = )" + std::to_string(transfer) +
                         R"(}, do = "io-error"}])");
        const Outcome info = bench.nyxus({"hawthorn-eeprom"}, {"info", "--json"});
        happened = !contains(info.err, "never happened");
        if (info.exit_code == 0) {
            EXPECT_TRUE(contains(info.out, "\"holds_firmware\": true"))
                << "transfer " << transfer << ": " << info.out;
        } else {
            EXPECT_TRUE(contains(info.err, "USB transfer error")) << info.err;
            ++reported;
        }
    }
    EXPECT_FALSE(happened);
    EXPECT_GT(reported, 0);
}

TEST(Faults, AnUpgradeGoesOnWithACameraThatComesBack)
{
    for (const char* effect : {"unplug", "power-cut"}) {
        Bench bench;
        const std::string image = bench.image("larch-spi", "0x0205");
        bench.set_faults(
            R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR"}, times = 1, do = ")" +
            std::string(effect) + R"(", replug_ms = 100}])");
        const Outcome outcome = bench.nyxus_with_rom("larch-spi", {"upgrade", image});
        EXPECT_EQ(outcome.exit_code, 0) << effect << outcome.err;
        EXPECT_TRUE(contains(outcome.err, "the camera is gone")) << outcome.err;
        EXPECT_TRUE(contains(outcome.out, "read back and equal")) << outcome.out;
    }
}

TEST(Faults, ACameraThatIsLostBeforeItsEraseIsKnownByItsSerialNumber)
{
    Bench bench;
    const std::string image = bench.image("fi2-spi", "0x0205");
    bench.set_faults(
        R"(fault = [{when = {selector = 14, request = "SET_CUR", count = 1}, do = "unplug", replug_ms = 100}])");
    const Outcome outcome = bench.nyxus({"fi2-spi"}, {"upgrade", image});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "the camera is gone, perhaps unplugged; nothing was written"))
        << outcome.err;
}

TEST(Faults, ACameraThatIsLostWhileItIsReadBackIsOnlyReadBackAgain)
{
    for (const bool returns : {true, false}) {
        Bench bench;
        const std::string image = bench.image(kModel, "0x0205");
        bench.set_faults(
            R"(fault = [{when = {rom_address = 0x2000, request = "GET_CUR", count = 3}, times = 1, do = "unplug")" +
            std::string(returns ? R"(, replug_ms = 100}])" : "}]"));
        const Outcome outcome = bench.nyxus({kModel}, {"upgrade", image, "--force", "--no-backup",
                                                       "--json", "--wait", returns ? "5" : "0"});
        EXPECT_EQ(outcome.exit_code, returns ? 0 : 11) << outcome.err;
        EXPECT_TRUE(contains(outcome.out, returns ? R"("rom":"new")" : R"("rom":"unverified")"))
            << outcome.out;
        EXPECT_TRUE(contains(outcome.err, "the ROM was written but not read back")) << outcome.err;
        EXPECT_FALSE(contains(outcome.err, "incomplete")) << outcome.err;
        EXPECT_EQ(outcome.out.find("\"erasing\"", outcome.out.find("\"verifying\"")),
                  std::string::npos);
    }
}

Json last_line(const std::string& text)
{
    const size_t begin = text.find_last_of('\n', text.size() - 2);
    return Json::parse(text.substr(begin == std::string::npos ? 0 : begin + 1));
}

TEST(Faults, ACameraThatIsSilentIsToldInJsonToo)
{
    Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    bench.set_faults(
        R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR"}, do = "no-answer"}])");
    const Outcome upgrade = bench.nyxus(
        {kModel}, {"upgrade", image, "--force", "--no-backup", "--json", "--patience", "1"});
    EXPECT_EQ(upgrade.exit_code, 10) << upgrade.err;
    const Json result = last_line(upgrade.out);
    EXPECT_EQ(result["event"], "result");
    EXPECT_EQ(result["outcome"], "failed");
    EXPECT_EQ(result["rom"], "incomplete");
    EXPECT_EQ(result["exit_code"], 10);
    EXPECT_EQ(result["port"], "1-1");
    EXPECT_GE(result["seconds"].number(), 1.0);
    EXPECT_EQ("nyxus: " + result["message"].text() + "\n", upgrade.err);

    bench.set_faults(R"(fault = [{when = {transfer = 40}, do = "no-answer"}])");
    const Outcome info = bench.nyxus({kModel}, {"info", "--json", "--patience", "1"});
    EXPECT_EQ(info.exit_code, 10) << info.err;
    EXPECT_EQ(last_line(info.out)["error"]["exit_code"], 10) << info.out;
}

TEST(Faults, TheSimulatorTellsOfMistakesAndOfFaultsThatNeverHappened)
{
    Bench bench;
    bench.set_faults("[[fault]]\nwhen = {}\ndo = \"stal\"\n");
    const Outcome wrong = bench.nyxus({kModel}, {"info"});
    EXPECT_EQ(wrong.exit_code, 2);
    EXPECT_EQ(wrong.out, "");
    EXPECT_TRUE(contains(wrong.err, "faults.toml:3:1: fault 1: ")) << wrong.err;
    EXPECT_TRUE(contains(wrong.err, "did you mean \"stall\"?")) << wrong.err;

    bench.set_faults(R"(fault = [{when = {camera = 3}, do = "stall"}])");
    const Outcome absent = bench.nyxus({kModel}, {"info"});
    EXPECT_EQ(absent.exit_code, 2);
    EXPECT_TRUE(contains(absent.err, "about a camera that is not plugged in")) << absent.err;

    bench.set_faults(R"(fault = [{when = {selector = 119}, do = "stall"}])");
    const Outcome unused = bench.nyxus({kModel}, {"info"});
    EXPECT_EQ(unused.exit_code, 0);
    EXPECT_EQ(unused.err, "nyxus-sim: fault 1 (\"stall\", line 1) never happened\n");

    const Outcome strict = run_program({kSimulator, "run", "--strict", "--faults",
                                        bench.path("faults.toml"), "--", kNyxus, "info"});
    EXPECT_EQ(strict.exit_code, 124);
    EXPECT_EQ(strict.err, unused.err);
}

} // namespace
