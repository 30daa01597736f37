// SPDX-License-Identifier: Apache-2.0
// Images that are pinned by a manifest or a digest, and signed.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

using namespace test;

namespace {

namespace fs = std::filesystem;

/// Images of two models in a manifest.
class ManifestBench : public Bench {
public:
    ManifestBench()
    {
        image("rowan-spi", "0x0205");
        image("cedar-spi", "0x0205");
        create("2.1.0", "0x0205");
    }

    std::string manifest() const { return path("manifest.toml"); }
    void create(const std::string& version, const std::string& reports) const
    {
        const Outcome created =
            run_program({kNyxus, "manifest", "create", "--product", "Door camera", "--version",
                         version, "--reports", reports, "--output", manifest(),
                         path("rowan-spi 0x0205.bin"), path("cedar-spi 0x0205.bin")});
        EXPECT_EQ(created.exit_code, 0) << created.err;
    }
    Outcome upgrade(const Words& more = {}) const
    {
        Words words = {"upgrade", "--manifest", manifest()};
        words.insert(words.end(), more.begin(), more.end());
        return nyxus_with_rom(kModel, words);
    }
    std::string keys_folder() const { return path("config/nyxus/keys.d"); }
};

Json result_of(const std::string& output, const std::string& serial)
{
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        Json json = Json::parse(line);
        if (json["event"] == "result" && json["serial"] == serial)
            return json;
    }
    return {};
}

TEST(Manifest, GivesEachCameraOfABatchItsOwnImage)
{
    const ManifestBench bench;
    const Outcome outcome =
        bench.nyxus({"rowan-spi,serial=R1", "larch-spi,serial=L1", "cedar-spi,serial=C1"},
                    {"upgrade", "--manifest", bench.manifest(), "--all", "--reset", "--json"});
    EXPECT_EQ(outcome.exit_code, 7) << outcome.out << outcome.err;
    for (const char* serial : {"R1", "C1"}) {
        const Json result = result_of(outcome.out, serial);
        EXPECT_EQ(result["outcome"], "upgraded") << result;
        EXPECT_TRUE(contains(result["message"].text(), "from version 0x0100 to 0x0205")) << result;
    }
    const Json none = result_of(outcome.out, "L1");
    EXPECT_EQ(none["exit_code"], 7) << none;
    EXPECT_EQ(none["rom"], "unchanged");
    EXPECT_TRUE(contains(none["message"].text(), "no image for the chip NY6300")) << none;
}

TEST(Manifest, LooksAtTheVersionAfterTheRestart)
{
    const ManifestBench bench;
    bench.create("2.1.0", "0x0301"); // which is not true
    const Outcome single = bench.upgrade({"--reset"});
    EXPECT_EQ(single.exit_code, 14) << single.err;
    EXPECT_TRUE(contains(single.err, "0x0205, but the image is version 0x0301")) << single.err;
    const Outcome batch =
        bench.nyxus({"cedar-spi"}, {"upgrade", "--manifest", bench.manifest(), "--all", "--reset"});
    EXPECT_EQ(batch.exit_code, 14) << batch.err;
}

TEST(Manifest, NothingOlderIsInstalledUnasked)
{
    const ManifestBench bench;
    const Outcome first = bench.upgrade({"--reset"});
    ASSERT_EQ(first.exit_code, 0) << first.err;
    EXPECT_TRUE(contains(first.out, "from version 0x0100 to 0x0205")) << first.out;

    bench.create("2.0.9", "0x0205"); // an older manifest
    EXPECT_EQ(bench.upgrade().exit_code, 13);
    const Outcome older = run_program({kNyxus, "manifest", "check", bench.manifest()});
    EXPECT_EQ(older.exit_code, 13);
    EXPECT_TRUE(contains(older.err, "2.1.0 has been used already")) << older.err;
    EXPECT_EQ(bench.upgrade({"--allow-downgrade"}).exit_code, 0);

    bench.create("2.2.0", "0x0204"); // an older image
    for (const Words& more : {Words{}, Words{"--all"}, Words{"--dry-run"}}) {
        const Outcome refused = bench.upgrade(more);
        EXPECT_EQ(refused.exit_code, 13) << refused.out << refused.err;
        EXPECT_TRUE(contains(refused.out + refused.err, "0x0205, which is newer than 0x0204"))
            << refused.out << refused.err;
    }
    EXPECT_EQ(bench.upgrade({"--allow-downgrade", "--all"}).exit_code, 0);
}

TEST(Manifest, WithATrustedKeyOnlyWhatIsSignedAndWhatWasThereBefore)
{
    const ManifestBench bench;
    if (run_program({"sh", "-c", "command -v minisign"}).exit_code != 0)
        GTEST_SKIP() << "minisign is not installed";
    fs::create_directories(bench.keys_folder());
    fs::permissions(bench.keys_folder(), fs::perms(0755));
    const std::string key = bench.keys_folder() + "/maker.pub";
    ASSERT_EQ(bench.upgrade({"--reset"}).exit_code, 0); // leaves a backup
    ASSERT_EQ(
        run_program({"minisign", "-G", "-W", "-p", key, "-s", bench.path("secret")}).exit_code, 0);
    fs::permissions(key, fs::perms(0644));
    const auto sign = [&](const Words& more = {}) {
        Words words = {"minisign", "-S", "-s", bench.path("secret"), "-m", bench.manifest()};
        words.insert(words.end(), more.begin(), more.end());
        EXPECT_EQ(run_program(words).exit_code, 0);
    };
    const std::string image = bench.path("rowan-spi 0x0205.bin");
    const auto refused = [](const Outcome& outcome, const char* message) {
        EXPECT_EQ(outcome.exit_code, 7) << outcome.out << outcome.err;
        EXPECT_TRUE(contains(outcome.err, message)) << outcome.err;
    };
    refused(bench.nyxus_with_rom(kModel, {"upgrade", image}), "images need a signed manifest");
    refused(bench.nyxus_with_rom(kModel, {"upgrade", image, "--all"}), "need a signed manifest");
    refused(bench.nyxus_with_rom(kModel, {"recover", image, "--force"}), "need a signed manifest");
    refused(bench.upgrade(), "no trusted signature");
    sign();
    EXPECT_EQ(bench.upgrade({"--force"}).exit_code, 0);
    sign({"-l", "-t", "the legacy kind"});
    const Outcome checked = run_program({kNyxus, "manifest", "check", bench.manifest(), "--json"});
    ASSERT_EQ(checked.exit_code, 0) << checked.err;
    const Json json = Json::parse(checked.out);
    EXPECT_EQ(json["comment"], "the legacy kind");
    EXPECT_EQ(json["signed_by"].text().size(), 16U);
    EXPECT_EQ(json["firmware"][1]["chip"], "CB");
    bench.create("2.2.0", "0x0205");
    refused(bench.upgrade(), "not a signature of this text");
    // What has been in the unit may always go back.
    const std::string backup = bench.backups().at(0);
    for (const Words& words : {Words{"recover", "--force"}, Words{"recover", backup, "--force"}}) {
        const Outcome recovered = bench.nyxus_with_rom(kModel, words);
        EXPECT_EQ(recovered.exit_code, 0) << recovered.err;
    }
}

TEST(Manifest, ADigestPinsASingleImage)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string out = run_program({"sha256sum", image}).out;
    std::string digest = out.substr(0, 64);
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"upgrade", image, "--sha256", digest}).exit_code, 0);
    std::ranges::transform(digest, digest.begin(), [](unsigned char c) { return std::toupper(c); });
    EXPECT_EQ(bench.nyxus_with_rom(kModel, {"upgrade", image, "--sha256", digest}).exit_code, 0);
    digest[0] = digest[0] == '0' ? '1' : '0';
    const Outcome other =
        bench.nyxus_with_rom(kModel, {"upgrade", image, "--force", "--sha256", digest});
    EXPECT_EQ(other.exit_code, 7);
    EXPECT_TRUE(contains(other.err, "is not the image that is meant")) << other.err;
}

TEST(Manifest, CommandLinesThatMeanNothingAreRefused)
{
    const ManifestBench bench;
    const std::string image = bench.path("rowan-spi 0x0205.bin");
    const std::string m = bench.manifest();
    const auto create = [&](const Words& more) {
        Words words = {"manifest", "create", "--product", "P", image};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    };
    const struct {
        Words words;
        int exit_code;
        const char* message;
    } cases[] = {
        {{"upgrade"}, 2, "name a firmware image or a --manifest"},
        {{"upgrade", image, "--manifest", m}, 2, "one of them"},
        {{"upgrade", "--manifest", m, "--mfi", image}, 2, "--m"},
        {{"upgrade", "--manifest", m, "--sha256", "00"}, 2, "--"},
        {{"upgrade", "--manifest", bench.path("missing")}, 1, "No such file"},
        {{"manifest", "check", "/dev/zero"}, 1, "not a plain file"},
        {{"manifest", "create", image}, 2, "--product"},
        {create({"--version", "1b", "--output", bench.path("n.toml")}), 2, "'version' must be"},
        {create({"--version", "1", "--reports", "5", "--output", bench.path("n.toml")}), 2,
         "'reports' must be"},
        {create({"--version", "1", "--output", bench.path("no/n.toml")}), 1, "No such file"},
    };
    for (const auto& c : cases) {
        Words words = {kNyxus};
        words.insert(words.end(), c.words.begin(), c.words.end());
        const Outcome outcome = run_program(words);
        EXPECT_EQ(outcome.exit_code, c.exit_code) << c.message << ": " << outcome.err;
        EXPECT_TRUE(contains(outcome.err, c.message)) << outcome.err;
    }
    EXPECT_FALSE(fs::exists(bench.path("n.toml")));
    const Outcome serial = bench.upgrade({"--mfi-serial", "A0001234"});
    EXPECT_EQ(serial.exit_code, 2);
    EXPECT_TRUE(contains(serial.err, "--mfi-serial needs an MFi image")) << serial.err;
}

TEST(Manifest, BringsAnMfiImageThatTakesTheSerialNumber)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0301", {"--size", "20000"});
    const std::string manifest = bench.path("m.toml");
    const Outcome created =
        run_program({kNyxus, "manifest", "create", "--product", "P", "--version", "1", "--mfi",
                     bench.mfi_image("OLDSERIAL"), "--output", manifest, image});
    ASSERT_EQ(created.exit_code, 0) << created.err;
    const Outcome upgrade = bench.nyxus_with_rom(
        kModel, {"upgrade", "--manifest", manifest, "--mfi-serial", "NEWSERIAL"});
    ASSERT_EQ(upgrade.exit_code, 0) << upgrade.err;
    const Bytes rom = read_file(bench.rom_file());
    const std::string text(rom.begin() + 0x6000, rom.begin() + 0x7000);
    EXPECT_TRUE(contains(text, "NEWSERIAL"));
}

} // namespace
