// SPDX-License-Identifier: Apache-2.0
// The commands for single features: what they print, refuse and leave behind.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>
#include <algorithm>

using namespace test;

namespace {

/// A call, and what is expected of it: a part of its output, or for a failure of its message.
struct Step {
    const char* arguments; ///< as a shell takes them
    int exit_code;
    const char* text;
};

/// Runs all steps on one camera, one call after the other, and compares each with its row.
void run_steps(const char* camera, const std::vector<Step>& steps,
               const std::map<std::string, std::string>& environment = {})
{
    std::string script;
    for (const Step& step : steps)
        script += "\"$NYXUS\" " + std::string(step.arguments) + " 2>&1; echo \"<$?>\"\n";
    RunOptions options;
    options.environment = environment;
    options.environment["NYXUS"] = kNyxus;
    const Outcome outcome = run_program(
        {kSimulator, "run", "--speed", "fast", "--camera", camera, "--", "sh", "-c", script},
        options);
    ASSERT_EQ(outcome.exit_code, 0) << outcome.out << outcome.err;
    size_t begin = 0;
    for (const Step& step : steps) {
        const size_t end = outcome.out.find(">\n", begin);
        ASSERT_NE(end, std::string::npos) << outcome.out;
        const std::string part = outcome.out.substr(begin, end + 1 - begin);
        EXPECT_TRUE(part.ends_with("<" + std::to_string(step.exit_code) + ">"))
            << camera << ": " << step.arguments << "\n"
            << part;
        EXPECT_NE(part.find(step.text), std::string::npos)
            << camera << ": " << step.arguments << "\n"
            << part;
        begin = end + 2;
    }
}

TEST(Features, SettingsChangeAndAreReadBack)
{
    run_steps("rowan-spi", {
                               {"flip on", 0, "flip: off -> on\n"},
                               {"flip", 0, "flip: on\n"},
                               {"flip off", 0, "flip: on -> off\n"},
                               {"mirror on", 0, "mirror: off -> on\n"},
                               {"mirror", 0, "mirror: on\n"},
                               {"gain 63", 0, "-> 63\n"},
                               {"gain", 0, "gain: 63\n"},
                               {"led 3 0x48", 0, "led 3: 0x00 -> 0x48\n"},
                               {"led 3", 0, "led 3: 0x48\n"},
                               {"gpio 9 high", 0, "gpio 9: not driven -> high\n"},
                               {"gpio", 0, "gpio 9: high\n"},
                               {"gpio 9 low", 0, "gpio 9: high -> low\n"},
                               {"gpio 010 high", 0, "gpio 10: not driven -> high\n"},
                               {"gain 010", 0, "gain: 63 -> 10\n"},
                               {"motion set 1 2 3 0xFE", 0, "00 00 00 00 -> 01 02 03 FE\n"},
                               {"motion get", 0, "motion setting: 01 02 03 FE\n"},
                               {"motion poll", 0, "motion: no\n"},
                               // Bit 0 of the last byte is the alarm; a poll clears it.
                               {"motion set 1 2 3 1", 0, "-> 01 02 03 01\n"},
                               {"motion poll", 0, "motion: yes\n"},
                               {"motion poll", 0, "motion: no\n"},
                               {"motion poll --watch --count 2", 0, "polls: 2\nalarms: 0\n"},
                           });
}

TEST(Features, BytesOfTheMemoriesAreWrittenAndReadBack)
{
    run_steps("rowan-spi", {
                               {"reg write 0xB00 1 0xFE", 0, "0x0B00: 00 00 -> 01 FE\n"},
                               {"reg read 0xB00 2", 0, "0x0B00: 01 FE\n"},
                               {"sensor write 0x100 7 8 9", 0, "-> 07 08 09\n"},
                               {"sensor read 0x102", 0, "0x0102: 09\n"},
                               {"mcu write 0x80 5", 0, "0x0080: 00 -> 05\n"},
                               {"mcu write 0128 6", 0, "0x0080: 05 -> 06\n"},
                               {"mcu write 0x80 05", 0, "0x0080: 06 -> 05\n"},
                               {"mcu read 0x80", 0, "0x0080: 05\n"},
                               {"mcu read 0xF0 16", 0, "0x00F0: "},
                               {"i2c config 096", 0, "i2c configuration: 0x00 -> 0x60\n"},
                               {"i2c set 0x10 1 2 3", 0, "0x010: 00 00 00 -> 01 02 03\n"},
                               {"i2c get 0x11 2", 0, "0x011: 02 03\n"},
                               // The bus's only device is the sensor: its registers are the same.
                               {"sensor read 0x12", 0, "0x0012: 03\n"},
                               {"i2c config 0x42", 0, "0x60 -> 0x42\n"},
                               {"i2c get 0x11 2", 0, "0x011: FF FF\n"}, // nobody answers
                           });
}

TEST(Features, OsdIsSetAndReset)
{
    run_steps("rowan-spi",
              {
                  {"osd enable on", 0, "osd: off -> on\n"},
                  {"osd datetime set 2026-05-01T12:00:00 --column 3", 0, "-> 2026-05-01T12:00:0"},
                  {"osd datetime set now", 0, "-> 20"},
                  {"osd datetime show on", 0, "osd datetime: off -> on\n"},
                  {"osd datetime", 0, "column: 3\nrow: 1\nshown: on\n"},
                  {"osd string 7 'Front door'", 0, "string 7:  -> Front door\n"},
                  {"osd string 7 ''", 0, "string 7: Front door -> \n"},
                  {"osd string 0 1234567890123456", 0, "-> 1234567890123456\n"},
                  {"osd window 1 2 3 4 5 1", 0, "-> 01 02 03 04 05 01 00 00 00\n"},
                  {"osd window", 0, "window: 01 02 03 04 05 01 00 00 00\n"},
                  {"osd color white '#000000' 81,90,240", 0,
                   "-> text #FFFFFF, background #000000, windows #FF0000\n"},
                  {"osd color green 1,2,3 123456", 0,
                   "background #000000, windows #FF0000 -> text #00FF00, background #"},
                  {"osd transparent on", 0, "osd transparent: off -> on\n"},
                  {"osd reset", 0, "osd: reset\n"},
                  {"osd enable", 0, "osd: off\n"},
                  {"osd string 0", 0, "string 0: \n"},
              });
}

TEST(Features, EncoderIsSetInTheStandardOrder)
{
    run_steps("rowan-spi",
              {
                  {"h264 rate-control vbr", 0, "rate control: cbr -> vbr\n"},
                  {"h264 bitrate 3000000 1000000", 0, "-> peak 3000000, average 1000"},
                  {"h264 bitrate", 0, "bitrate: peak 3000000, average 1000000 bit/s\n"},
                  {"h264 qp 1 10 20", 0, "-> frame types 1, 10 to 20\n"},
                  {"h264 iframe-period 33", 0, "-> 33\n"},
                  {"h264 iframe-period", 0, "iframe period: 33\n"},
                  {"h264 format 1", 0, "format: 0 -> 1\n"},
                  {"h264 next-frame idr", 0, "next frame: idr\n"},
                  {"h264 version", 0, "version: 1.00\n"},
                  {"h264 --layer 2 rate-control cbr", 0, ": vbr (layer 0) -> cbr\n"},
                  {"h264 rate-control", 0, "rate control: cbr (layer 2)\n"},
                  {"h264 reset", 0, "encoder: reset\n"},
                  {"h264 rate-control", 0, "rate control: cbr\n"},
                  {"h264 --published-order version", 12, "no such H.264 control"},
              });
    run_steps("cedar-swapped", {{"h264 --published-order version", 0, "version: 1.00\n"}});
}

TEST(Features, FingerprintBoardObeys)
{
    const Bench bench;
    Bytes pages(70); // begins and ends within a page
    for (size_t i = 0; i < pages.size(); ++i)
        pages[i] = static_cast<uint8_t>(i);
    write_file(bench.path("in"), pages);
    run_steps("fi2-board",
              {
                  {"sg write 0x2410 \"$IN\"", 0, "70 bytes written at 0x2410\n"},
                  {"sg read 0x240F 3", 0, "0x240F: FF 00 01\n"},
                  {"sg read 0x2454 3", 0, "0x2454: 44 45 FF\n"},
                  {"sg power on", 0, "power: on\n"},
                  {"sg led off", 0, "led: off\n"},
                  {"sg reset", 0, "sensor: reset"},
                  {"sg reset-pin", 0, "sensor: reset"},
                  {"sg touch", 0, "touch: 0\n"},
                  {"sg speed", 0, "speed: "},
                  {"sg mode snapshot", 0, "sensor: waits"},
                  {"sg trigger", 0, "triggered\n"},
                  {"sg mode stream", 0, "sensor: streams\n"},
              },
              {{"IN", bench.path("in")}});
}

TEST(Features, CamerasWithoutAFeatureSaySo)
{
    run_steps("fi2-board", {
                               {"osd enable on", 12, "has no such control in its firmware"},
                               {"osd transparent on", 12, "has no such control in its firmware"},
                           });
    run_steps("rowan-spi", {{"sg read 0x2400 1", 12, "the fingerprint boards have an EEPROM"}});
}

TEST(Features, JsonHoldsTheValues)
{
    const Bench bench;
    const auto parsed = [&](const Words& arguments) {
        const Outcome outcome = bench.nyxus({kModel}, arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return Json::parse(outcome.out);
    };
    EXPECT_EQ(parsed({"flip", "--json"}), (Json::Members{{"flip", false}}));
    EXPECT_EQ(parsed({"flip", "on", "--json"}), (Json::Members{{"flip", true}, {"before", false}}));
    EXPECT_EQ(parsed({"mcu", "read", "0x80", "3", "--json"})["0x0080"].size(), 3U);
    EXPECT_EQ(parsed({"h264", "bitrate", "--json"})["bitrate"]["peak_bit_per_s"], 4000000);
    EXPECT_EQ(parsed({"led", "0", "0x08", "--json"}), (Json::Members{{"led_0", 8}, {"before", 0}}));
    EXPECT_EQ(parsed({"gpio", "5", "--json"}), (Json::Members{{"gpio_5", "not driven"}}));
    EXPECT_EQ(parsed({"osd", "datetime", "--json"})["shown"], false);
    EXPECT_NE(parsed({"-V", "--json"})["libusb"].text(), "");
    EXPECT_EQ(parsed({"help", "flip", "--json"})["arguments"][0]["name"], "STATE");
}

/// No camera is connected: what is refused is refused before one is looked for.
TEST(Features, OutOfRangeIsRefusedWithTheRange)
{
    struct {
        Words arguments;
        const char* range;
    } const cases[] = {
        {{"flip", "sideways"}, "none of on, off"},
        {{"gain", "0"}, "1 to 63 except 32"},
        {{"gain", "32"}, "1 to 63 except 32"},
        {{"gain", "64"}, "1 to 63 except 32"},
        {{"led", "256"}, "0 to 255"},
        {{"led", "0", "0x01"}, "any sum of 0x08, 0x10 and 0x40"},
        {{"gpio", "16", "high"}, "0 to 15"},
        {{"osd", "color", "white", "black", "1,2"}, "is no colour"},
        {{"osd", "color", "white", "black", "1,2,256"}, "is no colour"},
        {{"osd", "color", "white", "black", "#12345"}, "is no colour"},
        {{"i2c", "get", "0x200"}, "0x0000 to 0x01FF"},
        {{"i2c", "get", "0", "9"}, "1 to 8"},
        {{"i2c", "set", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}, "9"},
        {{"reg", "read", "0x10000"}, "0x0000 to 0xFFFF"},
        {{"reg", "read", "0xFFFF", "2"}, "0x0000 to 0xFFFF"},
        {{"reg", "write", "0", "256"}, "0 to 255"},
        {{"mcu", "read", "0x100"}, "0x0000 to 0x00FF"},
        {{"motion", "set", "1", "2", "3"}, "4"},
        {{"osd", "string", "8"}, "0 to 7"},
        {{"osd", "string", "0", "12345678901234567"}, "0 to 16"},
        {{"osd", "string", "0", "T\xC3\xBCr"}, "printable ASCII"},
        {{"osd", "window", "4", "0", "0", "0", "0", "0"}, "0 to 3"},
        {{"osd", "datetime", "set", "2026-02-29T00:00:00"}, "2000-01-01T00:00:00 to 2099-12-31"},
        {{"osd", "datetime", "set", "2026-13-01T00:00:00"}, "2000-01-01T00:00:00 to 2099-12-31"},
        {{"h264", "rate-control", "best"}, "none of cbr, vbr, constant-qp"},
        {{"h264", "qp", "1", "0", "52"}, "0 to 51"},
        {{"h264", "iframe-period", "0"}, "1 to 65535"},
        {{"h264", "format", "2"}, "0 to 1"},
        {{"h264", "--layer", "1", "qp"}, "a setting of a layer that is made"},
        {{"h264", "--layer", "1", "format", "1"}, "a setting of a layer that is made"},
        {{"sg", "read", "0x23FF", "1"}, "0x2400 to 0x7FFF"},
        {{"sg", "read", "0x7FFF", "2"}, "0x2400 to 0x7FFF"},
    };
    for (const auto& [arguments, range] : cases) {
        Words command = {kNyxus};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = run_program(command);
        EXPECT_EQ(outcome.exit_code, 2) << outcome.err;
        EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1) << outcome.err;
        EXPECT_NE(outcome.err.find(range), std::string::npos) << outcome.err;
    }
}

} // namespace

TEST(Features, ASnapshotGivesUpWhenNoFrameIsComplete)
{
    Bench bench;
    bench.set_faults(R"(fault = [{when = {}, do = "truncate", bytes = 1000}])");
    const Outcome outcome =
        bench.nyxus({kModel}, {"snapshot", bench.path("shot.png"), "--wait", "2"});
    EXPECT_EQ(outcome.exit_code, 10) << outcome.err;
    EXPECT_EQ(outcome.err,
              "nyxus: no complete frame within 2 s; try a longer --wait or a smaller "
              "--size\n");
    EXPECT_TRUE(read_file(bench.path("shot.png")).empty());

    const Outcome told =
        bench.nyxus({kModel}, {"snapshot", bench.path("shot.png"), "--wait", "1", "--json"});
    EXPECT_EQ(told.exit_code, 10) << told.err;
    EXPECT_EQ(Json::parse(told.out)["error"]["exit_code"], 10);
}

/// It may be in its snapshot mode, in which it sends a picture each time that it is asked to.
TEST(Features, ASnapshotAsksABoardThatIsSilentForAPicture)
{
    Bench bench;
    bench.set_faults(R"(fault = [{when = {}, do = "truncate", bytes = 1000}])");
    const Outcome outcome =
        bench.shell("fi2-board", "\"$NYXUS\" snapshot \"$SHOT\" --wait 3; \"$SIM\" state",
                    {{"SHOT", bench.path("shot.png")}});
    EXPECT_TRUE(contains(outcome.err, "no complete frame within 3 s")) << outcome.err;
    const auto triggers = Json::parse(outcome.out)[0]["snapshot_triggers"];
    EXPECT_TRUE(triggers == 2 || triggers == 3) << outcome.out;
}

TEST(Features, PicturesAndVideoReachTheirFiles)
{
    for (const char* camera : {"rowan-spi", "rowan-iso"}) {
        run_steps(camera,
                  {
                      {"snapshot \"${TMPDIR:-/tmp}/nyxus-$$.png\" --size 320x240 && "
                       "head -c 4 \"${TMPDIR:-/tmp}/nyxus-$$.png\" | tail -c 3 && "
                       "rm \"${TMPDIR:-/tmp}/nyxus-$$.png\"",
                       0, "PNG"},
                      {"snapshot /no/such/folder/shot.png", 1, "/no/such/folder/shot.png"},
                      {"snapshot shot.png --size 124x45", 12, "cannot stream 124x45"},
                      {"stream --size 1280x720 --count 2", 0, "frames: 2"},
                      {"stream --size 1280x720 --fps 30 --count 2", 12, "(rates: 10, 5, 2), and"},
                      {"stream --size 320x240 --count 3 --raw \"${TMPDIR:-/tmp}/nyxus-$$.raw\" && "
                       "wc -c < \"${TMPDIR:-/tmp}/nyxus-$$.raw\" && "
                       "rm \"${TMPDIR:-/tmp}/nyxus-$$.raw\"",
                       0, "460800"},
                      {"stream --size 320x240 --count 2 --json", 0, "\"frames\": 2"},
                  });
    }
}

TEST(Features, AStreamThatIsInterruptedTellsWhatItHasReceived)
{
    const struct {
        const char* options;
        int exit_code;
        size_t lines; ///< of JSON: what was received, and whether something is missing
    } cases[] = {{"", 0, 6}, {"--count 1000000", 130, 7}};
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome = bench.shell(
            std::string(kModel) + ",driver=uvcvideo",
            "mkfifo \"$FIFO\"; \"$NYXUS\" stream --size 320x240 --json --raw \"$FIFO\" " +
                std::string(c.options) +
                " & pid=$!\n"
                "{ head -c 1; kill -TERM $pid; cat; } <\"$FIFO\" >\"$RAW\"; wait $pid; code=$?\n"
                "\"$NYXUS\" doctor >&2; exit $code",
            {{"FIFO", bench.path("fifo")}, {"RAW", bench.path("raw")}});
        EXPECT_EQ(outcome.exit_code, c.exit_code) << outcome.err;
        EXPECT_NE(outcome.err.find("the kernel's video driver has it"), std::string::npos)
            << outcome.err;
        EXPECT_EQ(static_cast<size_t>(std::ranges::count(outcome.out, '\n')), c.lines);
        const Json received = Json::parse(outcome.out.substr(0, outcome.out.find("}\n") + 1));
        EXPECT_EQ(received["frames"].number() * 320 * 240 * 2, read_file(bench.path("raw")).size());
    }
}

TEST(Features, AStreamWithoutACameraLeavesTheFileAlone)
{
    const Bench bench;
    write_file(bench.path("raw"), {1, 2, 3});
    const Outcome outcome =
        bench.nyxus({kModel}, {"stream", "-c", "nobody", "--raw", bench.path("raw")});
    EXPECT_EQ(outcome.exit_code, 3) << outcome.err;
    EXPECT_EQ(read_file(bench.path("raw")).size(), 3U);
}

/// libuvc never ends a stream whose transfers do not all fit into what the kernel lends; and the
/// simulated camera's first frame comes just when that is used up.
TEST(Features, StreamsEndWhereTheKernelLendsLittle)
{
    const struct {
        const char* camera;
        std::vector<std::string> options;
    } cases[] = {
        {"rowan-spi", {"--size", "640x480"}},
        {"rowan-spi", {"--size", "1280x720"}},
        {"rowan-iso", {"--size", "640x480"}},
        {"maple-mjpeg", {"--size", "1280x720"}},
        {"maple-mjpeg", {"--size", "1920x1080", "--format", "mjpeg"}},
        {"maple-iso", {"--size", "1920x1080"}},
    };
    for (const auto& [camera, options] : cases) {
        std::vector<std::string> line = {kSimulator,       "run",     "--camera", camera,
                                         "--usbfs-memory", "16",      "--",       kNyxus,
                                         "stream",         "--count", "3"};
        line.insert(line.end(), options.begin(), options.end());
        const Outcome outcome = run_program(line);
        EXPECT_EQ(outcome.exit_code, 0) << camera << ' ' << options[1] << ' ' << outcome.err;
        EXPECT_NE(outcome.out.find("frames: 3"), std::string::npos) << outcome.out;
    }
}

TEST(Features, FormatsAndControlsAreThoseOfTheCamera)
{
    run_steps(
        "maple-mjpeg",
        {
            {"formats", 0, "MJPEG   1920x1080  30, 15 frames per second\n"},
            {"formats --json", 0, "\"format\": \"YUYV\""},
            {"stream --format h264", 12, "streams no 'h264'; it streams YUYV, MJPEG\n"},
            {"stream --size 64x64", 12, "(sizes: 640x480, "},
            {"control list", 0, "white_balance           4600    2800 to 6500 in steps of 10"},
            {"control set brightness -20", 0, "brightness: 0 -> -20\n"},
            {"control set zoom 205", 0, "zoom: 100 -> 200\n"}, // a step
            {"control get brightness", 0, "brightness: -20\n"},
            {"control get zoom --json", 0, "{\n  \"zoom\": 200\n}\n"},
            {"control set zoom 401", 2, "zoom is a number from 100 to 400, not '401'"},
            {"control set zoom 1x", 2, "not '1x'"},
            {"control get zom", 12, "did you mean 'zoom'?"},
            {"control", 2, "list"},
        });
    run_steps("rowan-spi", {{"control get zoom", 12, "has no control 'zoom'"},
                            {"control set brightness 256", 2, "from 0 to 255"}});
}

/// Each picture is what the name of its file says.
TEST(Features, AFrameBecomesAJpegOrAPng)
{
    const Bench bench;
    const struct {
        const char* model;
        const char* file;
        std::vector<std::string> options;
        int exit_code;
        std::string begins_with; ///< of a failure: a part of what is said
    } cases[] = {
        {"maple-mjpeg", "a.jpg", {}, 0, "\xFF\xD8\xFF"},
        {"maple-mjpeg", "a.png", {}, 0, "\x89PNG"},
        {"maple-mjpeg", "b.PNG", {"--format", "mjpeg"}, 0, "\x89PNG"},
        {"maple-mjpeg", "picture", {"--format", "MJPEG"}, 0, "\xFF\xD8\xFF"},
        {"maple-iso", "a.png", {}, 0, "\x89PNG"},
        {"rowan-spi", "c.jpg", {}, 0, "\xFF\xD8\xFF"},
        {"maple-mjpeg", "c.jpg", {"--format", "yuyv"}, 0, "\xFF\xD8\xFF"},
        {"maple-mjpeg", "d", {"--type", "jpeg", "--format", "yuyv"}, 0, "\xFF\xD8\xFF"},
        {"maple-mjpeg", "d.jpg", {"--type", "png"}, 0, "\x89PNG"},
        {"rowan-spi", "picture", {}, 0, "\x89PNG"},
        {"maple-mjpeg", "q.jpg", {"--quality", "5", "--format", "mjpeg"}, 0, "\xFF\xD8\xFF"},
        {"rowan-spi", "q.png", {"--quality", "5"}, 2, "--quality is for a JPEG"},
        {"rowan-spi", "e.JPG", {}, 0, "\xFF\xD8\xFF"},
        {"rowan-spi", "e.gif", {"--type", "png"}, 0, "\x89PNG"},
        {"rowan-spi", "e.gif", {}, 2, "e.gif': a picture is saved as .png or .jpg"},
        {"maple-mjpeg",
         "c.png",
         {"--format", "nv12"},
         12,
         "streams no 'nv12'; it streams YUYV, MJPEG"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> line = {"snapshot", bench.path(c.file)};
        line.insert(line.end(), c.options.begin(), c.options.end());
        const Outcome outcome = bench.nyxus({c.model}, line);
        EXPECT_EQ(outcome.exit_code, c.exit_code) << c.file << outcome.err;
        if (c.exit_code != 0) {
            EXPECT_NE(outcome.err.find(c.begins_with), std::string::npos) << outcome.err;
            continue;
        }
        const auto bytes = read_file(bench.path(c.file));
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()).substr(0, c.begins_with.size()),
                  c.begins_with)
            << c.file;
    }
}

TEST(Features, APoorerPictureTakesFewerBytes)
{
    Bench bench;
    std::vector<size_t> sizes;
    for (const char* quality : {"5", "50", "100"}) {
        const std::string file = bench.path(std::string(quality) + ".jpg");
        const Outcome outcome =
            bench.nyxus({"maple-mjpeg"}, {"snapshot", file, "--quality", quality});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        sizes.push_back(read_file(file).size());
    }
    EXPECT_LT(sizes[0], sizes[1]);
    EXPECT_LT(sizes[1], sizes[2]);
}

TEST(Features, ABrokenJpegIsNoPicture)
{
    Bench bench;
    bench.set_faults(R"(fault = [{when = {}, do = "truncate", bytes = 3000}])");
    const Outcome outcome =
        bench.nyxus({"maple-iso"}, {"snapshot", bench.path("shot.png"), "--format", "mjpeg"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "nyxus: the camera sent a broken picture; try again\n");
    EXPECT_TRUE(read_file(bench.path("shot.png")).empty());
}
