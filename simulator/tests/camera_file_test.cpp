// SPDX-License-Identifier: Apache-2.0
// Camera descriptions: what a file says is what the camera is, and mistakes are told.
#include "cameras/camera_file.h"
#include "cameras/film_file.h"
#include "cameras/shipped.h"

#include "usb/jpeg.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>

namespace sim {
namespace {

const std::string kMinimal = "internal_version = \"RO2-1.0\"\n";
const std::string kIso = "video = \"isochronous\"\n";
const std::string kYuyv = "format = [{ pixels = \"YUYV\", sizes = [";
const std::string kFlash = "[flash]\nid = [0xEF, 0x30, 0x12]\nsize_bytes = 0x40000\n";

std::string mistakes_in(const std::string& text)
{
    try {
        (void)parse_camera_file(text, "my.toml");
        return "";
    } catch (const DescriptionError& error) {
        return error.what();
    }
}

TEST(CameraFile, AShortOneGetsSensibleDefaults)
{
    const CameraModel old = parse_camera_file(kMinimal + kFlash, "some/folder/my cam.toml");
    EXPECT_EQ(old.name, "my-cam");
    EXPECT_FALSE(old.has_xu_version);
    EXPECT_FALSE(old.has_memory_extension);
    EXPECT_TRUE(old.gpio0_is_wp) << "older firmware has no other lock";
    EXPECT_FALSE(old.size_at_alternative_byte);
    EXPECT_EQ(old.usb_latency_us, 125u);
    EXPECT_EQ(old.usb_wire_us, 25u);
    EXPECT_EQ(old.flash.read_id_command, 0x9F);
    EXPECT_EQ(old.flash.info_param, 0x31);
    EXPECT_EQ(old.flash.chip_erase_command, 0xC7);
    EXPECT_EQ(old.flash.block_erase_bytes, 0x10000u);
    EXPECT_EQ(old.factory_firmware_bytes, 0x4000u);

    const CameraModel newer =
        parse_camera_file(kMinimal + "xu_version = 0x0002\n" + kFlash, "my.toml");
    EXPECT_TRUE(newer.has_memory_extension);
    EXPECT_FALSE(newer.gpio0_is_wp);

    const CameraModel larch = parse_camera_file(
        "internal_version = \"LE-1\"\neeprom = \"24C04\"\nwrite_protect = \"gpio0\"\n", "my.toml");
    EXPECT_TRUE(larch.size_at_alternative_byte);
    EXPECT_TRUE(larch.gpio0_protects_eeprom);
    EXPECT_FALSE(larch.gpio0_is_wp);
    EXPECT_EQ(larch.factory_firmware_bytes, 256u) << "fits into 512 bytes";
}

TEST(CameraFile, EveryKeyReachesTheCamera)
{
    const CameraModel model = parse_camera_file(R"(
name = "my-camera_1.0"
description = "All there is"
internal_version = "CB-2.3.1"
bond = 3
xu_version = 0x0003
memory_extension = false
usb_vendor_id = 0x1234
usb_product_id = 0x0777
usb_manufacturer = "Acme Inc."
usb_product = "Door camera 2"
usb_latency_us = 250
usb_wire_us = 30
video = "isochronous"
h264_any_order = true
write_protect = "gpio0"
size_byte = 22
firmware = { version = 0x0203, size_bytes = 0x1234, seed = 9 }
bulk_payload_bytes = 4096
iso_packet_bytes = [128, 1024, 2048, 3072]
first_frame_ms = 7
format = [{ pixels = "MJPEG", sizes = ["1920x1080: 30, 15", "640x480: 240"] },
          { pixels = "YUYV", sizes = ["320x240: 7"] }]
controls = { hue = { min = -90, max = 90, step = 5, default = 10 }, zoom = { min = 1, max = 65535 } }
[flash]
name = "MAKER PART"
id = [0x12, 0x34]
size_bytes = 0x80_000
read_id_command = 0xAB
chip_erase_command = 0x60
block_erase_command = 0x52
block_erase_bytes = 0x4000
sector_erase_command = 0xD7
program_us = 1
sector_erase_us = 2
block_erase_us = 3
chip_erase_us = 4
status_write_us = 5
controller_params = [9, 8, 7]
)",
                                                "my.toml");
    EXPECT_EQ(model.name, "my-camera_1.0");
    EXPECT_EQ(model.description, "All there is");
    EXPECT_EQ(model.internal_version, "CB-2.3.1");
    EXPECT_EQ(model.bond, 3);
    EXPECT_TRUE(model.has_xu_version);
    EXPECT_EQ(model.xu_version, 3);
    EXPECT_FALSE(model.has_memory_extension);
    EXPECT_EQ(model.usb_vendor_id, 0x1234);
    EXPECT_EQ(model.usb_product_id, 0x0777);
    EXPECT_EQ(model.usb_manufacturer, "Acme Inc.");
    EXPECT_EQ(model.usb_product, "Door camera 2");
    EXPECT_EQ(model.iso_packet_bytes, (std::vector<uint32_t>{128, 1024, 2048, 3072}));
    EXPECT_EQ(model.usb_latency_us, 250u);
    EXPECT_EQ(model.usb_wire_us, 30u);
    EXPECT_TRUE(model.streams_isochronously);
    EXPECT_TRUE(model.tolerates_swapped_h264);
    EXPECT_TRUE(model.gpio0_is_wp);
    EXPECT_TRUE(model.size_at_alternative_byte);
    EXPECT_EQ(model.factory_firmware_version, 0x0203);
    EXPECT_EQ(model.factory_firmware_bytes, 0x1234u);
    EXPECT_EQ(model.factory_firmware_seed, 9u);
    EXPECT_EQ(model.bulk_payload_bytes, 4096u);
    EXPECT_EQ(model.first_frame_ms, 7u);
    ASSERT_EQ(model.formats.size(), 2u);
    EXPECT_EQ(model.formats[0].pixels, PixelFormat::kMjpeg);
    ASSERT_EQ(model.formats[0].sizes.size(), 2u);
    EXPECT_EQ(model.formats[0].sizes[0].width, 1920);
    EXPECT_EQ(model.formats[0].sizes[0].height, 1080);
    EXPECT_EQ(model.formats[0].sizes[0].intervals_100ns, (std::vector<uint32_t>{333333, 666666}));
    EXPECT_EQ(model.formats[1].pixels, PixelFormat::kYuyv);
    EXPECT_FALSE(model.controls[kBrightness]) << "only what is named";
    const ControlRange hue = model.controls[kHue].value();
    EXPECT_EQ((std::array{hue.least, hue.most, hue.step, hue.standard}),
              (std::array{-90, 90, 5, 10}));
    EXPECT_EQ(model.controls[kZoom].value().standard, 1) << "min by itself";
    const FlashPart& flash = model.flash;
    EXPECT_EQ(flash.name, "MAKER PART");
    EXPECT_EQ(flash.id, (std::array<uint8_t, 3>{0x12, 0x34, 0}));
    EXPECT_EQ(flash.id_length, 2);
    EXPECT_EQ(flash.size_bytes, 0x80000u);
    EXPECT_EQ(flash.read_id_command, 0xAB);
    EXPECT_EQ(flash.info_param, 0x24) << "follows from the command";
    EXPECT_EQ(flash.chip_erase_command, 0x60);
    EXPECT_EQ(flash.block_erase_command, 0x52);
    EXPECT_EQ(flash.block_erase_bytes, 0x4000u);
    EXPECT_EQ(flash.sector_erase_command, 0xD7);
    EXPECT_EQ(flash.program_us, 1u);
    EXPECT_EQ(flash.sector_erase_us, 2u);
    EXPECT_EQ(flash.block_erase_us, 3u);
    EXPECT_EQ(flash.chip_erase_us, 4u);
    EXPECT_EQ(flash.status_write_us, 5u);
    EXPECT_EQ(flash.controller_params, (std::array<uint8_t, 3>{9, 8, 7}));
}

TEST(CameraFile, SaysWhatGoesWrongWithTheCamera)
{
    const std::string fault = "[[fault]]\nwhen.transfer = [3]\ndo = \"stall\"\n";
    const FaultPlan plan = parse_camera_file(kMinimal + kFlash + fault, "my.toml").faults;
    ASSERT_EQ(plan.size(), 1u);
    EXPECT_EQ(plan[0].when.transfer->from, 3u);
    EXPECT_EQ(plan[0].text, "fault 1 of camera 'my' (\"stall\", line 5)");
    EXPECT_EQ(mistakes_in(kMinimal + kFlash + fault + "ms = 5\n"),
              "my.toml:8:1: fault 1: 'ms' means nothing to \"stall\"");
    EXPECT_EQ(mistakes_in(kMinimal + kFlash + fault + "when.camera = 2\n"),
              "my.toml:8:6: fault 1: 'camera' has no meaning in the description of one");
}

TEST(CameraFile, MistakesAreToldWithTheirPlace)
{
    const struct {
        std::string text;
        std::string_view message;
    } cases[] = {
        {kMinimal + kFlash + "program_us = \"slow\"\n",
         "my.toml:5:1: 'program_us' must be a whole number from 0 to 10000000, not a text"},
        {kMinimal + "nmae = \"x\"\n" + kFlash,
         "my.toml:2:1: there is no key 'nmae' here; did you mean 'name'?"},
        {kMinimal + "colour = \"x\"\n" + kFlash,
         "my.toml:2:1: there is no key 'colour' here; 'nyxus-sim describe' lists them"},
        {kMinimal + kFlash + "chip_erase_time = 5\n",
         "my.toml:5:1: there is no key 'chip_erase_time' here; did you mean 'chip_erase_us'?"},
        {kFlash,
         "my.toml: 'internal_version' is missing: a text of 2 to 11 plain characters "
         "(Version text of the firmware in the chip)"},
        {kMinimal + "[flash]\nsize_bytes = 0x1000\n",
         "my.toml:2:1: [flash] 'id' is missing: a list of 2 to 3 bytes, each from 0x00 to 0xFF "
         "(Identification bytes: maker, then device)"},
        {kMinimal,
         "my.toml: the ROM is missing: either 'flash' or 'eeprom', the name of a part or a table"},
        {kMinimal + "eeprom = \"24C256\"\n" + kFlash,
         "my.toml:3:2: a camera has one ROM: there is both 'flash' and 'eeprom'"},
        {kMinimal + "flash = \"MXIC MX25L1006\"\n",
         "my.toml:2:1: there is no flash part of that name; did you mean \"MXIC MX25L1006E\"?"},
        {kMinimal + "eeprom = \"nothing\"\n",
         "my.toml:2:1: there is no eeprom part of that name; "
         "'nyxus-sim describe --eeprom-parts' lists them"},
        {kMinimal + "flash = 5\n",
         "my.toml:2:1: 'flash' must be the name of a part or a table [flash], not 5"},
        {kMinimal + "xu_version = 65536\n" + kFlash,
         "my.toml:2:1: 'xu_version' must be a whole number from 0x00 to 0xFFFF, not 0x10000"},
        {kMinimal + "bond = -1\n" + kFlash,
         "my.toml:2:1: 'bond' must be a whole number from 0x00 to 0xFF, not -1"},
        {kMinimal + "usb_latency_us = 1.5\n" + kFlash,
         "my.toml:2:1: 'usb_latency_us' must be a whole number from 0 to 1000000, not a number "
         "with a decimal point"},
        {kMinimal + "video = \"bluk\"\n" + kFlash,
         "my.toml:2:1: 'video' must be \"bulk\" or \"isochronous\", not \"bluk\""},
        {kMinimal + "size_byte = 7\n" + kFlash, "my.toml:2:1: 'size_byte' must be 6 or 22, not 7"},
        {kMinimal + "name = \"a b\"\n" + kFlash,
         "my.toml:2:1: 'name' must be a text of 1 to 40 letters, digits, '-', '_' and '.', not "
         "\"a b\""},
        {kMinimal + "description = \"\\u0007\"\n" + kFlash,
         "my.toml:2:1: 'description' must be a text of at most 120 plain characters, not a text "
         "with other characters"},
        {"internal_version = \"RO2-1.0.12345\"\n" + kFlash,
         "my.toml:1:1: 'internal_version' must be a text of 2 to 11 plain characters, not a text "
         "of 13"},
        {kMinimal + "[flash]\nid = [1, 2, 300]\nsize_bytes = 0x1000\n",
         "my.toml:3:1: 'id' must be a list of 2 to 3 bytes, each from 0x00 to 0xFF, not a list "
         "with 300"},
        {kMinimal + "[flash]\nid = [1]\nsize_bytes = 0x1000\n",
         "my.toml:3:1: 'id' must be a list of 2 to 3 bytes, each from 0x00 to 0xFF, not a list of "
         "1"},
        {kMinimal + "[flash]\nid = [1, 2, 3]\nsize_bytes = 0x2000000\n",
         "my.toml:4:1: 'size_bytes' must be a power of two from 0x1000 to 0x1000000, not "
         "0x2000000"},
        {kMinimal + "[flash]\nid = [1, 2, 3]\nsize_bytes = 100000\n",
         "my.toml:4:1: 'size_bytes' must be a power of two from 0x1000 to 0x1000000, not 0x186A0"},
        {kMinimal + kFlash + "block_erase_bytes = 0x80000\n",
         "my.toml:5:1: 'block_erase_bytes' is more than the 'size_bytes' of the flash"},
        {kMinimal + "memory_extension = true\n" + kFlash,
         "my.toml:2:1: 'memory_extension' is part of the version record, which a camera without "
         "'xu_version' does not have"},
        {kMinimal + "xu_prefix = \"FF\"\n" + kFlash,
         "my.toml:2:1: 'xu_prefix' is part of the version record, which a camera without "
         "'xu_version' does not have"},
        {kMinimal + "eeprom = \"24C04\"\nfirmware.size_bytes = 0x400\n",
         "my.toml:3:10: the firmware is larger than the ROM, which has 512 bytes"},
        {kMinimal + "firmware = 0x0100\n" + kFlash,
         "my.toml:2:1: 'firmware' must be a table, not 256"},
        {kMinimal + "format = 1\n" + kFlash, "my.toml:2:1: 'format' must be 1 to 4 tables, not 1"},
        {kMinimal + "format = []\n" + kFlash,
         "my.toml:2:1: 'format' must be 1 to 4 tables, not a list"},
        {kMinimal + kIso + "iso_packet_bytes = [1024, 512]\n" + kFlash,
         "my.toml:3:1: 'iso_packet_bytes' must be a list of 1 to 16 whole numbers from 64 to 3072 "
         "that rise, not a list"},
        {kMinimal + kIso + "iso_packet_bytes = [1025, 3000]\n" + kFlash,
         "my.toml:3:1: 1025 bytes are not 2 equal packets"},
        {kMinimal + "iso_packet_bytes = [1024]\n" + kFlash,
         "my.toml:2:1: 'iso_packet_bytes' means nothing to a bulk camera"},
        {kMinimal + kIso + kYuyv + "\"640x480: 30\", \"1280x720: 30\"] }]\n" + kFlash,
         "my.toml:3:54: YUYV of 1280x720 at 30 a second takes 55.5 MB/s, and the isochronous pipe "
         "carries 24.6 MB/s"},
        {kMinimal + kIso + "iso_packet_bytes = [1024]\n" + kYuyv + "\"640x480: 30\"] }]\n" + kFlash,
         "my.toml:4:39: YUYV of 640x480 at 30 a second takes 18.7 MB/s, and the isochronous pipe "
         "carries 8.2 MB/s"},
        {kMinimal + "video = \"isochronous\"\niso_packet_bytes = [2048]\n" + kFlash,
         "my.toml:3:1: YUYV of 640x480 at 30 a second takes 18.5 MB/s, and the isochronous pipe "
         "carries 16.4 MB/s\nmy.toml:3:1: YUYV of 1280x720 at 10 a second takes 18.5 MB/s, and the "
         "isochronous pipe carries 16.4 MB/s"},
        {kMinimal + kYuyv + "\"4096x4096: 2\"] }]\n" + kFlash,
         "my.toml:2:39: YUYV of 4096x4096 at 2 a second takes 67.1 MB/s, and the bulk pipe carries "
         "53.2 MB/s"},
        {kMinimal + "format = [{ pixels = \"MJPEG\", file = \"a\", sizes = [\"64x64: 1\"] }]\n" +
             kFlash,
         "my.toml:2:31: 'file' belongs to a format of H264"},
        {kMinimal + "format = [{ pixels = \"H264\", sizes = [\"64x64: 1\", \"32x32: 1\"] }]\n" +
             kFlash,
         "my.toml:2:11: [format] 'file' is missing: the name of a file\n"
         "my.toml:2:30: H264 has one size, that of its file"},
        {kMinimal + "format = [{ pixels = \"H264\", file = \"/none\", sizes = [\"64x64: 1\"] }]\n" +
             kFlash,
         "my.toml:2:37: cannot read '/none': No such file or directory"},
        {kMinimal + "picture = \"a.png\"\n" + kFlash,
         "my.toml:2:1: 'picture' must be a table, not a text"},
        {kMinimal + "picture.file = \"/none.png\"\n" + kFlash,
         "my.toml:2:16: cannot read '/none.png': No such file or directory"},
        {kMinimal + "picture = { file = \"a\", raw_size = \"3x3\" }\n" + kFlash,
         "my.toml:2:20: cannot read 'a': No such file or directory\n"
         "my.toml:2:25: 'raw_size' must be a text such as \"640x480\", with an even width, not a "
         "text"},
        {kMinimal + "controls.zoom = 5\n" + kFlash, "my.toml:2:10: 'zoom' must be a table, not 5"},
        {kMinimal + "controls.hue = { min = 0, max = 9, default = 10 }\n" + kFlash,
         "my.toml:2:10: 'hue' needs min, default and max in this order"},
        {kMinimal + "controls.hue = { min = -1, max = 40000 }\n" + kFlash,
         "my.toml:2:10: 'hue' has 16 bits, which hold up to 65535, or from -32768 to 32767"},
        {kMinimal + "controls.focus_auto = { min = 0, max = 256 }\n" + kFlash,
         "my.toml:2:10: 'focus_auto' has 8 bits, which hold up to 255, or from -128 to 127"},
        {kMinimal + "controls.exposure_mode = { min = 1, max = 8, step = 9, default = 2 }\n" +
             kFlash,
         "my.toml:2:10: 'exposure_mode' has the bits of its modes in 'step', and one of them as "
         "'default'"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(mistakes_in(c.text), c.message) << c.text;
    EXPECT_EQ(mistakes_in("x = 1\nvideo = 2\n" + kMinimal + kFlash),
              "my.toml:1:1: there is no key 'x' here; 'nyxus-sim describe' lists them\n"
              "my.toml:2:1: 'video' must be \"bulk\" or \"isochronous\", not 2")
        << "all of them at once";
}

TEST(CameraFile, SizesAreTextsWithRates)
{
    for (const char* sizes :
         {"[]", "5", "[5]", "\"640x480: 30\"", "[\"640x480\"]", "[\"640x480:\"]",
          "[\"640x480: 0\"]", "[\"640x480: 241\"]", "[\"640x480: 15, 30\"]", "[\"640x480: 30,\"]",
          "[\"640x480: -5\"]", "[\"641x480: 30\"]", "[\"-640x480: 30\"]", "[\"30x480: 30\"]",
          "[\"640x4097: 30\"]", "[\"640x480: 30 \"]", "[\"640x480: 30\", \"\"]"}) {
        const std::string text =
            kMinimal + "format = [{ pixels = \"YUYV\", sizes = " + sizes + " }]\n" + kFlash;
        EXPECT_NE(mistakes_in(text).find("'sizes' must be a list of 1 to 16 texts such as"),
                  std::string::npos)
            << sizes << ' ' << mistakes_in(text);
    }
}

/// A stream in Annex B of these units, each with its type and some bytes of content.
std::vector<uint8_t> annex_b(std::initializer_list<uint8_t> types)
{
    std::vector<uint8_t> stream;
    for (const uint8_t type : types)
        stream.insert(stream.end(), {0, 0, 0, 1, type, 0x88, 0x11, 0x22});
    return stream;
}

TEST(CameraFile, AnH264FilmIsCutIntoItsPictures)
{
    constexpr uint8_t kSequence = 0x67, kPicture = 0x68, kIdr = 0x65, kSlice = 0x41, kDelimiter = 9;
    const Film film = h264_film(annex_b({kDelimiter, kSequence, kPicture, kIdr, kSlice, kDelimiter,
                                         kSlice, kSequence, kPicture, kIdr}),
                                100);
    const size_t starts[] = {0, 4 * 8, 5 * 8, 7 * 8};
    ASSERT_EQ(film.starts, std::vector<size_t>(std::begin(starts), std::end(starts)));
    EXPECT_EQ(film.frame(1).size(), 8U);
    EXPECT_EQ(film.frame(7).data(), film.frame(3).data()) << "it begins again";
    // The second slice of a picture does not begin with macroblock 0.
    std::vector<uint8_t> slices = annex_b({kSequence, kPicture, kIdr, kIdr});
    slices[3 * 8 + 5] = 0x40;
    EXPECT_EQ(h264_film(slices, 100).starts.size(), 1U);

    const std::pair<std::vector<uint8_t>, std::string_view> refused[] = {
        {{}, "is no H.264 stream in Annex B"},
        {{0, 0, 1}, "ends before its first picture"},
        {{1, 0, 0, 1, 0x65, 0x88}, "is no H.264 stream in Annex B"},
        {annex_b({kSequence, kPicture}), "ends before its first picture"},
        {annex_b({kSequence, kPicture, kIdr, kDelimiter}), "ends before its last picture"},
        {annex_b({kSequence, kPicture, kSlice}),
         "cannot begin again: it needs its parameter sets and an IDR picture first"},
        {annex_b({kIdr}),
         "cannot begin again: it needs its parameter sets and an IDR picture first"},
        {annex_b({kSequence, kPicture, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, kIdr}),
         "has a frame of 104 bytes, more than its size has room for"},
    };
    for (const auto& [bytes, message] : refused) {
        try {
            (void)h264_film(bytes, 100);
            ADD_FAILURE() << message;
        } catch (const DescriptionError& error) {
            EXPECT_EQ(error.what(), message);
        }
    }
}

TEST(CameraFile, HostileTextsAreRefused)
{
    const std::string many(15000, '[');
    std::string tables;
    for (int i = 0; i < 8000; ++i)
        tables += "{a=";
    std::string dotted = "a";
    std::string half_dotted = "a";
    for (int i = 0; i < 15000; ++i)
        (i < 1900 ? half_dotted : dotted) += ".a";
    const std::string texts[] = {
        "",
        "\xFF\xFE\x00\x01",
        std::string(1000, '\0'),
        "a = " + many,
        "a = " + tables,
        dotted + " = 1",
        half_dotted + " = 1",
        "[" + half_dotted + "]",
        "name = \"unfinished",
        "flash = ",
        kMinimal + "flash = \"MXIC MX25L1006E\"\n" + kFlash,
        kMinimal + kMinimal + kFlash,
        kMinimal + "bond = 99999999999999999999\n" + kFlash,
        "\"\x1b[31m\" = 1\n",
    };
    for (const std::string& text : texts) {
        const std::string message = mistakes_in(text);
        EXPECT_EQ(message.substr(0, 7), "my.toml") << text.substr(0, 40);
        EXPECT_LT(message.size(), 600u);
        EXPECT_EQ(message.find('\x1b'), std::string::npos);
    }
}

TEST(CameraFile, FilesThatAreNoneAreRefused)
{
    const auto folder = std::filesystem::temp_directory_path() / "nyxus-camera-file-test";
    std::filesystem::create_directories(folder);
    const std::string large = folder / "large.toml";
    std::ofstream(large) << std::string(40000, '#');
    for (const std::string& path :
         {large, folder.string(), (folder / "none.toml").string(), std::string("/dev/zero")})
        EXPECT_THROW((void)read_camera_file(path), DescriptionError) << path;
    const std::string good = folder / "good.toml";
    std::ofstream(good) << kMinimal << kFlash;
    EXPECT_EQ(read_camera_file(good).name, "good");
    std::filesystem::remove_all(folder);
}

TEST(CameraFile, FilesAreFoundBesideTheDescription)
{
    const auto folder = std::filesystem::temp_directory_path() / "nyxus-film-test";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder / "films");
    const auto write = [](const std::filesystem::path& path, const auto& bytes) {
        std::ofstream(path).write(reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<std::streamsize>(bytes.size()));
    };
    const auto describe = [&](const std::string& file) {
        return kMinimal + "format = [{ pixels = \"H264\", sizes = [\"64x64: 30\"], file = \"" +
               file + "\" }]\n" + kFlash;
    };
    const std::vector<uint8_t> stream = annex_b({0x67, 0x68, 0x65, 0x41});
    write(folder / "films/clip.h264", stream);
    write(folder / "my.toml", describe("films/clip.h264"));
    const CameraModel model = read_camera_file(folder / "my.toml");
    EXPECT_EQ(model.formats[0].pixels, PixelFormat::kH264);
    EXPECT_EQ(model.formats[0].film->bytes, stream);

    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    write(folder / "text", std::string("hello"));
    for (const auto& [file, message] :
         {std::pair{"films", "' is no plain file"},
          {"fifo", "' is no plain file"},
          {"/dev/zero", "'/dev/zero' is no plain file"},
          {"text", "' is no H.264 stream in Annex B"},
          {"none/x", "': No such file or directory"},
          {"a\\u0000b", "'file' must be the name of a file, not a text"}}) {
        const std::string text = describe(file);
        write(folder / "my.toml", text);
        try {
            (void)read_camera_file(folder / "my.toml");
            ADD_FAILURE() << file;
        } catch (const DescriptionError& error) {
            EXPECT_NE(std::string(error.what()).find("my.toml:2:"), std::string::npos);
            EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
        }
    }
    std::filesystem::remove_all(folder);
}

std::string refusal(std::vector<uint8_t> bytes, const FrameSize& raw_size = {})
{
    try {
        (void)scene(std::move(bytes), raw_size);
        return "";
    } catch (const DescriptionError& error) {
        return error.what();
    }
}

TEST(CameraFile, PicturesAreKnownByTheirFirstBytes)
{
    // A PNG of 3x2 pixels: the first row red, green, blue, the other white; its third column goes.
    const std::vector<uint8_t> png = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
        0x52, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x02, 0x08, 0x02, 0x00, 0x00, 0x00, 0x12,
        0x16, 0xf1, 0x4d, 0x00, 0x00, 0x00, 0x11, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0xf8,
        0xcf, 0xc0, 0xc0, 0x00, 0xc1, 0xff, 0x61, 0x00, 0x00, 0x59, 0xba, 0x0b, 0xf5, 0xa5, 0x42,
        0x8a, 0x6a, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};
    const Film still = scene(png, {});
    EXPECT_EQ(still.kind, Film::Kind::kYuyv);
    EXPECT_EQ(still.width, 2U);
    EXPECT_EQ(still.bytes, (std::vector<uint8_t>{82, 72, 144, 137, 235, 128, 235, 128}));

    std::vector<uint8_t> grey(64 * 32 * 2, 128);
    for (size_t at = 0; at < grey.size(); at += 2)
        grey[at] = 200;
    const std::vector<uint8_t> jpeg = encode_jpeg(64, 32, grey, Levels::kFull);
    std::vector<uint8_t> two = jpeg;
    two.insert(two.end(), 100, 0); // padding
    two.insert(two.end(), jpeg.begin(), jpeg.end());
    const Film film = scene(two, {});
    EXPECT_EQ(film.kind, Film::Kind::kJpeg);
    EXPECT_EQ(film.starts, (std::vector<size_t>{0, jpeg.size() + 100}));
    const YuyvPicture shown = decode_jpeg(film.frame(1)).value();
    EXPECT_EQ(shown.width, 64U);
    EXPECT_NEAR(shown.yuyv[0], 200, 1) << "black and white are where they were";
    EXPECT_NEAR(shown.yuyv[1], 128, 1);

    const Film raw = scene(std::vector<uint8_t>(3 * 64 * 32 * 2), {64, 32, {}});
    EXPECT_EQ(raw.starts.size(), 3U);

    const std::string broken = "ends, or is broken, in the middle of its picture";
    for (const size_t size : {3UL, 20UL, 200UL, jpeg.size() - 1}) {
        EXPECT_EQ(refusal({jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(size)}),
                  broken);
    }
    for (const size_t size : {4UL, 8UL, 20UL, 33UL, 50UL, png.size() - 16}) {
        EXPECT_NE(refusal({png.begin(), png.begin() + static_cast<std::ptrdiff_t>(size)}), "")
            << size;
    }
    two.resize(two.size() - 1);
    EXPECT_EQ(refusal(two), broken + " 2");
    two = encode_jpeg(32, 64, grey);
    two.insert(two.begin(), jpeg.begin(), jpeg.end());
    EXPECT_EQ(refusal(two), "has a picture 2 of 32x64, unlike the first, which has 64x32");
    std::vector<uint8_t> spoilt = jpeg;
    const std::array<uint8_t, 2> huffman_table = {0xFF, 0xC4};
    const auto table =
        std::search(spoilt.begin(), spoilt.end(), huffman_table.begin(), huffman_table.end());
    std::fill_n(table + 5, 16, 0xFF);
    EXPECT_EQ(refusal(spoilt),
              "has a JPEG that is broken, larger than 4096 pixels to a side, or neither in YCbCr "
              "nor grey");
    EXPECT_EQ(refusal({}), "is neither a PNG nor a JPEG; frames of YUYV need their 'raw_size'");
    EXPECT_EQ(refusal(std::vector<uint8_t>(4097), {64, 32, {}}),
              "has 4097 bytes, which are no whole frames of 64x32, 4096 bytes each");
    EXPECT_NE(refusal({}, {64, 32, {}}), "");
}

TEST(CameraFile, ShippedFilesNameTheirCameras)
{
    ASSERT_EQ(models().size(), 14u);
    EXPECT_EQ(models().front().name, "rowan-spi");
    for (const CameraModel& model : models()) {
        EXPECT_NE(model_file(model.name), "") << "the file is named after the camera";
        EXPECT_EQ(find_model(model.name), &model);
    }
    for (size_t control = 0; control < kPictureControls; ++control)
        EXPECT_TRUE(find_model("alder-studio")->controls[control]) << control;
    EXPECT_EQ(find_model("rowan"), nullptr);
    EXPECT_EQ(model_file("rowan"), "");
}

} // namespace
} // namespace sim
