// SPDX-License-Identifier: Apache-2.0
// Which image it is: what 'nyxus image' shows, and what is told and noted of an upgrade.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <filesystem>

using namespace test;

namespace {

std::string digest_of(const std::string& file)
{
    return run_program({"sha256sum", file}).out.substr(0, 64);
}

TEST(Image, IsShownWithoutACamera)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string mfi = bench.mfi_image("A0001234");
    Bytes cut = read_file(image);
    cut.resize(9000);
    write_file(bench.path("cut"), cut);
    write_file(bench.path("text\n"), Bytes(100, 'x'));
    const struct {
        std::string file;
        int exit_code;
        Words lines;
    } cases[] = {
        {image,
         0,
         {"SHA-256             " + digest_of(image), "Contents            firmware (NXFW)",
          "Signature           'RO': NY6400, NY6410", "Version             0x0205",
          "Checks              length and checksums are right", "ROM that it names   65536 bytes",
          "Ends at             0x5A3C, before the places of"}},
        {mfi,
         0,
         {"Contents            MFi image", "MFi serial number   A0001234",
          "0x6020, 18 bytes: serial-number descriptor", "record of type 1"}},
        {bench.path("text\n"),
         0,
         {"/text?", "Contents            unknown", "'xx', of an unknown chip",
          "Version             unknown", "none is known for it",
          "unknown; 61440 bytes if it is no LARCH chip, else 61440"}},
        {bench.path("cut"), 7, {"Checks              truncated: it has 9000 of 23100 bytes"}},
        {"/dev/zero", 1, {}},
        {bench.path(""), 1, {}},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run_program({kNyxus, "image", c.file});
        EXPECT_EQ(outcome.exit_code, c.exit_code) << outcome.err;
        for (const std::string& line : c.lines)
            EXPECT_TRUE(contains(outcome.out, line)) << line << ":\n" << outcome.out;
    }
    const Json json = Json::parse(run_program({kNyxus, "image", "--json", mfi}).out);
    EXPECT_EQ(json["contents"], "mfi");
    EXPECT_EQ(json["version"], Json());
    EXPECT_EQ(json["mfi"]["mfi_serial"], "A0001234");
    EXPECT_EQ(json["mfi"]["parts"][1]["address"], 0x6020);
    EXPECT_EQ(json["cameras"].size(), 0u);
}

TEST(Image, FitsSomeOfTheCameras)
{
    const Bench bench;
    const Words cameras = {"rowan-spi,serial=A1", "cedar-spi,serial=B2", "hawthorn-eeprom"};
    const auto look = [&](const std::string& file) {
        return Json::parse(bench.nyxus(cameras, {"image", "--json", file}).out)["cameras"];
    };
    const Json firmware = look(bench.image("cedar-spi", "0x0205"));
    ASSERT_EQ(firmware.size(), 3u);
    EXPECT_EQ(firmware[0]["fits"], false);
    EXPECT_TRUE(contains(firmware[0]["reason"].text(), "needs 'RO'"));
    EXPECT_EQ(firmware[1]["fits"], true);
    EXPECT_EQ(firmware[1]["serial"], "B2");
    EXPECT_EQ(firmware[1]["reason"], Json());
    for (const Json& camera : look(bench.mfi_image("A0001234")))
        EXPECT_EQ(camera["fits"], true) << camera;
}

/// The file may become another one as soon as it has been read.
TEST(Image, IsReadOnceAndToldOfInResultsAndJournal)
{
    const Bench bench;
    const std::string image = bench.image(kModel, "0x0205");
    const std::string digest = digest_of(image);
    const Bytes expected = read_file(image);
    ASSERT_EQ(bench
                  .nyxus_with_rom(kModel, {"upgrade", bench.image(kModel, "0x0203"), "--mfi",
                                           bench.mfi_image("A0001234"), "--reset"})
                  .exit_code,
              0);
    const Outcome outcome = bench.shell(
        std::string(kModel) + ",rom=" + bench.rom_file(),
        "\"$NYXUS\" upgrade --json --reset \"$IMAGE\" >\"$OUT\" & pid=$!\n"
        "\"$WAIT_FOR\" 'from version 0x0203 to 0x0205, image with SHA-256 ' \"$OUT\" $pid\n"
        "echo another >\"$IMAGE\"; wait $pid; code=$?; tail -n 1 \"$OUT\"; exit $code",
        {{"IMAGE", image}, {"OUT", bench.path("out")}});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err << outcome.out;
    Bytes rom = read_file(bench.rom_file());
    rom.resize(expected.size());
    EXPECT_EQ(rom, expected);

    const Json result = events(outcome.out).back();
    EXPECT_EQ(result["sha256"], digest);
    EXPECT_EQ(result["version"], "0x0205");
    EXPECT_EQ(result["version_before"], "0x0203");
    EXPECT_EQ(result["version_after"], "0x0205");
    EXPECT_EQ(result["kept"], Json::List({"MFi image (256 bytes from 0x6000)"}));
    EXPECT_EQ(result["backup"], bench.backups().back().string());
    EXPECT_EQ(result["mfi_sha256"], Json());

    const std::string journal = (bench.backups().back().parent_path() / "journal.jsonl").string();
    const Bytes lines = read_file(journal);
    const Json line = events({lines.begin(), lines.end()}).back();
    EXPECT_EQ(line["step"], "started");
    EXPECT_EQ(line["file_sha256"], digest);
    EXPECT_EQ(line["kept"], result["kept"]);
    EXPECT_EQ(line["backup"], "000002");
    EXPECT_TRUE(line["running"].text().starts_with("0x0205 ")) << line;
}

TEST(Image, OfABatchIsToldOfWithEachCamera)
{
    const Bench bench;
    const Words cameras = {"rowan-spi,serial=A1", "rowan-spi,blank", "cedar-spi"};
    const std::string image = bench.image(kModel, "0x0205");
    const std::string digest = digest_of(image);
    const Outcome batch = bench.nyxus(cameras, {"upgrade", image, "--all", "--reset", "--json"});
    size_t results = 0;
    for (const Json& json : events(batch.out)) {
        if (json["event"] != "result")
            continue;
        ++results;
        const bool fits = json["product"] == "rowan-spi";
        EXPECT_EQ(json["sha256"], digest) << json;
        EXPECT_EQ(json["version_after"], fits ? Json("0x0205") : Json()) << json;
        EXPECT_EQ(json["version_before"], json["serial"] == "A1" || !fits ? "0x0100" : "mask ROM")
            << json;
        EXPECT_EQ(json["backup"] == Json(), json["serial"] != "A1") << json;
    }
    EXPECT_EQ(results, 3u) << batch.out << batch.err;
}

} // namespace
