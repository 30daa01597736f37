// SPDX-License-Identifier: Apache-2.0
// Images: which are taken, and why others are not.
#include <gtest/gtest.h>
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

} // namespace
