// SPDX-License-Identifier: Apache-2.0
// Images: which are taken, and why others are not.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <fstream>
#include "bench.h"

namespace {

using engine::Reason;

TEST(EngineImages, FilesThatAreNoneAreRefusedWithTheReason)
{
    const TemporaryFolder folder;
    const struct {
        std::string path;
        Reason reason;
        const char* message;
    } cases[] = {
        {folder.file("empty", {}), Reason::kWrongImage, "is empty"},
        {folder.file("huge", std::vector<uint8_t>(32769, 0x5A)), Reason::kWrongImage,
         "is too large for a firmware image: 32769 bytes, at most 32768 are possible"},
        {folder.file("blank", std::vector<uint8_t>(4096, 0xFF)), Reason::kWrongImage,
         "is no firmware image: only 1 bytes before the erased rest"},
        {folder.file("short", std::vector<uint8_t>(0x41, 0x52)), Reason::kWrongImage,
         "is no firmware image: only 65 bytes"},
        {folder.path() / "missing\n", Reason::kFile, "missing?': No such file or directory"},
        {folder.path(), Reason::kFile, "it is a folder"},
        {"/dev/null", Reason::kFile, "it is not a plain file"},
    };
    for (const auto& c : cases) {
        const auto image = engine::Firmware::load(c.path);
        EXPECT_EQ(image.status().reason(), c.reason) << c.message;
        EXPECT_NE(image.status().message().find(c.message), std::string::npos)
            << image.status().message();
    }
    const std::string rom = folder.file("rom", std::vector<uint8_t>(0x10000, 0xFF));
    EXPECT_NE(engine::Firmware::load_rom(rom).status().message().find(
                  "holds no firmware: 1 bytes before the erased rest; 66 are the least"),
              std::string::npos);
    EXPECT_EQ(engine::load_image(rom, 0x10000)->size(), 1u);
}

TEST(EngineImages, ThoseForAnotherCameraAreRefusedBeforeAnythingIsSent)
{
    const sim::CameraModel& rowan = *sim::find_model(models::kRowan);
    const auto firmware = [&](uint32_t size,
                              const std::function<void(std::vector<uint8_t>&)>& change) {
        std::vector<uint8_t> bytes = image_bytes(rowan, size);
        change(bytes);
        sim::put_header(bytes);
        return *engine::Firmware::from(bytes);
    };
    const auto mfi = *engine::Mfi::from(sim::make_mfi_image(1, "A0001234"));
    const struct {
        engine::Images images;
        const char* message;
    } cases[] = {
        {{firmware(9000, [](auto& b) { b[0x40] = 'C', b[0x41] = 0x1B; })},
         "its signature is 'C?', but this camera (NY6410) needs 'RO'; nothing was written"},
        {{firmware(9000, [](auto& b) { b[0x46] = 0x40; })}, "made for a ROM of 32 KiB, but"},
        {{firmware(30000, [](auto&) {}), mfi}, "ends at 0x7530 and would overwrite the MFi image"},
    };
    Bench bench{rowan};
    engine::Camera camera = bench.open();
    bench.simulated.listen();
    for (const auto& c : cases) {
        const engine::Report report = bench.upgrade(camera, c.images);
        EXPECT_EQ(report.status.reason(), Reason::kWrongImage) << c.message;
        EXPECT_NE(report.status.message().find(c.message), std::string::npos)
            << report.status.message();
    }
    EXPECT_TRUE(bench.simulated.wire().empty());
}

TEST(EngineImages, ASerialNumberFitsOrLeavesTheImageAlone)
{
    const std::vector<uint8_t> original = sim::make_mfi_image(1, "VELKA_0001_LINK");
    auto image = *engine::Mfi::from(original);
    for (const char* serial : {"", "VELKA_0002_LIN", "VELKA_0002_LINKS", "VELKA 0002 LINK"})
        EXPECT_EQ(image.set_serial(serial).reason(), Reason::kWrongImage) << serial;
    EXPECT_EQ(copy(image.bytes()), original);
    EXPECT_FALSE(image.is_for_one_camera());
    ASSERT_TRUE(image.set_serial("VELKA_0002_LINK"));
    EXPECT_TRUE(image.is_for_one_camera());
    std::vector<uint8_t> patched = original;
    patched.resize(NYXUS_MFI_BIN_CAPACITY, 0xFF);
    ASSERT_EQ(MP_BinSetSerialNum(patched.data(), "VELKA_0002_LINK"), 0);
    patched.resize(original.size());
    EXPECT_EQ(copy(image.bytes()), patched) << "as the library writes it";

    // Wherever the header says that its parts lie, and whatever they overlap.
    size_t overlaps = 0;
    for (const size_t field : {size_t{0x02}, size_t{0x04}, size_t{0x0E}, size_t{0x10}}) {
        for (size_t address = 0x5FF0; address < 0x6010 + original.size(); ++address) {
            std::vector<uint8_t> moved = original;
            moved[field] = static_cast<uint8_t>(address >> 8);
            moved[field + 1] = static_cast<uint8_t>(address);
            auto other = *engine::Mfi::from(moved);
            const engine::Status status = other.set_serial("VELKA_0002_LINK");
            overlaps += status.message().find("overlap") != std::string::npos ? 1 : 0;
            EXPECT_EQ(copy(other.bytes()) == moved, !status) << field << " " << address;
        }
    }
    EXPECT_GT(overlaps, 0u);
}

/// Any byte that is changed, and any that is missing, is noticed before a camera is.
TEST(EngineImages, AnImageThatDescribesItselfIsRefusedUnlessItIsWhole)
{
    const std::vector<uint8_t> good = image_bytes(*sim::find_model(models::kRowan), 9000);
    const auto whole = engine::Firmware::from(good);
    ASSERT_TRUE(whole) << whole.status().text();
    EXPECT_EQ(whole->kind()->bytes, 9000u);
    EXPECT_EQ(whole->version(), "0x0205");
    for (size_t at = 4; at < good.size(); at += at < 0x80 ? 1 : 97) {
        std::vector<uint8_t> bad = good;
        bad[at] ^= 0x20;
        const auto damaged = engine::Firmware::from(bad, "it");
        EXPECT_EQ(damaged.status().reason(), Reason::kWrongImage) << at;
        EXPECT_EQ(damaged.status().message().find("it (NXFW) is damaged: "), 0u) << at;
    }
    for (size_t size = 0x42; size < good.size(); size += 97) {
        const auto cut =
            engine::Firmware::from({good.begin(), good.begin() + static_cast<long>(size)});
        EXPECT_EQ(cut.status().message(), "the image (NXFW) is truncated: it has " +
                                              std::to_string(size) + " of 9000 bytes");
    }
    std::vector<uint8_t> other = good;
    other[0] = 'X'; // nobody knows whether it is whole
    EXPECT_TRUE(engine::Firmware::from(other));
    EXPECT_EQ(engine::Firmware::from(other)->version(), std::nullopt);
    EXPECT_TRUE(engine::Firmware::from_rom({good.begin(), good.begin() + 5000}));
}

TEST(EngineImages, AreKnownByTheDigestOfWhatWasReadOnce)
{
    const TemporaryFolder folder;
    std::vector<uint8_t> bytes(66, 'R');
    const std::string file = folder.file("image", bytes);
    const auto firmware = engine::Firmware::load(file);
    const auto mfi = engine::Mfi::load(file);
    constexpr char kDigest[] = "3ef6dcc4099a1cfecec106b19c4f77c879883e3658bb1fbe80beb50ce1d1d629";
    std::filesystem::resize_file(file, 1); // neither is read again
    EXPECT_EQ(firmware->digest(), kDigest);
    EXPECT_EQ(mfi->digest(), kDigest);
    EXPECT_EQ(copy(firmware->bytes()), bytes);
    bytes.resize(100, 0xFF);
    const auto padded = engine::Firmware::from(bytes);
    EXPECT_NE(padded->digest(), kDigest) << "the file is another one";
    EXPECT_EQ(copy(padded->bytes()), copy(firmware->bytes())) << "the image is not";

    const std::string fifo = (folder.path() / "fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_symlink("loop", folder.path() / "loop");
    std::filesystem::create_symlink("image", folder.path() / "link");
    std::ofstream(folder.path() / "sparse");
    std::filesystem::resize_file(folder.path() / "sparse", uint64_t{1} << 40);
    const struct {
        std::string path;
        const char* message;
    } cases[] = {{fifo, "it is not a plain file"},
                 {"/dev/zero", "it is not a plain file"},
                 {(folder.path() / "loop").string(), "Too many levels of symbolic links"},
                 {(folder.path() / "sparse").string(), "is too large for "}};
    for (const auto& c : cases) {
        for (const engine::Status& status :
             {engine::Firmware::load(c.path).status(), engine::Firmware::load_rom(c.path).status(),
              engine::Mfi::load(c.path).status(), engine::inspect_image(c.path).status()})
            EXPECT_NE(status.message().find(c.message), std::string::npos) << status.message();
    }
    EXPECT_TRUE(engine::inspect_image((folder.path() / "link").string()));
}

TEST(EngineImages, AreLookedAtWithoutACamera)
{
    using Contents = engine::ImageFacts::Contents;
    const TemporaryFolder folder;
    const auto with = [](std::vector<uint8_t> bytes, size_t at, const std::vector<uint8_t>& more,
                         size_t size) {
        bytes.resize(std::max(size, at + more.size()), 0xFF);
        std::ranges::copy(more, bytes.begin() + static_cast<long>(at));
        return bytes;
    };
    const std::vector<uint8_t> rowan = image_bytes(*sim::find_model(models::kRowan), 9000);
    const std::vector<uint8_t> larch = image_bytes(*sim::find_model("larch-spi"), 31000);
    const std::vector<uint8_t> mfi = sim::make_mfi_image(1, "A0001234");
    std::vector<uint8_t> unknown_kind = larch;
    unknown_kind[0] = 'X';
    std::vector<uint8_t> lost_mfi = mfi;
    lost_mfi[0x10] = 0; // its descriptor is nowhere
    std::vector<uint8_t> text(200, 'x');
    text[0x46] = 1;
    text[0x56] = 2;
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
        Contents contents;
        std::vector<std::string> chips;
        uint32_t rom_bytes, larch_rom_bytes, end;
        const char* version;
        const char* serial;
    } cases[] = {
        {"firmware",
         rowan,
         Contents::kFirmware,
         {"NY6400", "NY6410"},
         0x10000,
         0,
         9000,
         "0x0205",
         ""},
        {"padded",
         with(rowan, 0, {}, 0x8000),
         Contents::kFirmware,
         {"NY6400", "NY6410"},
         0x10000,
         0,
         9000,
         "0x0205",
         ""},
        {"larch", unknown_kind, Contents::kFirmware, {"NY6300"}, 0, 0x10000, 31000, "", ""},
        {"backup",
         with(rowan, 0x6000, mfi, 0x10000),
         Contents::kRom,
         {"NY6400", "NY6410"},
         0x10000,
         0,
         9000,
         "0x0205",
         "A0001234"},
        {"unknown backup",
         with(with(unknown_kind, 0x5FF0, std::vector<uint8_t>(16, 0xFF), 0), 0x6000, mfi, 0x10000),
         Contents::kRom,
         {"NY6300"},
         0,
         0x10000,
         0x6000,
         "",
         "A0001234"},
        {"mfi", mfi, Contents::kMfi, {}, 0, 0, 0, "", "A0001234"},
        {"lost mfi", lost_mfi, Contents::kUnknown, {}, 0, 0, 0, "", ""},
        {"text", text, Contents::kUnknown, {}, 512, 1024, 200, "", ""},
        {"one byte", {0xFF}, Contents::kUnknown, {}, 0, 0, 0, "", ""},
    };
    for (const auto& c : cases) {
        const auto facts = engine::inspect_image(folder.file("image", c.bytes));
        ASSERT_TRUE(facts) << c.name << facts.status().text();
        EXPECT_EQ(facts->bytes, c.bytes.size()) << c.name;
        EXPECT_EQ(facts->contents, c.contents) << c.name;
        EXPECT_EQ(facts->kind ? facts->kind->version : "", c.version) << c.name;
        EXPECT_EQ(facts->mfi ? facts->mfi->serial : "", c.serial) << c.name;
        if (c.contents == Contents::kUnknown && c.end == 0)
            continue; // an MFi image without its descriptor may be anything
        EXPECT_EQ(facts->chips, c.chips) << c.name;
        EXPECT_EQ(facts->rom_bytes, c.rom_bytes) << c.name;
        EXPECT_EQ(facts->larch_rom_bytes, c.larch_rom_bytes) << c.name;
        EXPECT_EQ(facts->firmware_end, c.end) << c.name;
    }
    const auto facts = engine::inspect_image(folder.file("image", mfi));
    uint32_t end = NYXUS_MFI_ROM_ADDR;
    for (const engine::MfiPart& part : facts->mfi->parts) {
        EXPECT_EQ(part.address, end) << part.name;
        end += part.size;
    }
    EXPECT_EQ(end, NYXUS_MFI_ROM_ADDR + mfi.size() - 1) << "a last byte closes the image";
}

} // namespace
