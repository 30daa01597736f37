// SPDX-License-Identifier: Apache-2.0
// Callbacks in the place of what the library prints, and for progress.
#include <gtest/gtest.h>

#include <unistd.h>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "support/all_functions.h"
#include "support/camera.h"

namespace {

struct Line {
    NyDevice* device;
    uint32_t kind;
    std::string text;
};
using TaggedLines = std::vector<Line>;

void keep_line(NyDevice* device, uint32_t kind, const char* text, size_t length, void* user)
{
    EXPECT_EQ(text[length], '\0');
    static_cast<TaggedLines*>(user)->push_back({device, kind, std::string(text, length)});
}

struct Step {
    NyDevice* device;
    uint64_t done;
    uint64_t total;
};
using Steps = std::vector<Step>;

void keep_step(NyDevice* device, uint64_t done, uint64_t total, void* user)
{
    static_cast<Steps*>(user)->push_back({device, done, total});
}

/// Process-wide callbacks for one test.
class Callbacks {
public:
    explicit Callbacks(TaggedLines& lines) { nyxus_set_line_callback(nullptr, keep_line, &lines); }
    explicit Callbacks(Steps& steps) { nyxus_set_progress_callback(nullptr, keep_step, &steps); }
    ~Callbacks()
    {
        nyxus_set_line_callback(nullptr, nullptr, nullptr);
        nyxus_set_progress_callback(nullptr, nullptr, nullptr);
    }
    Callbacks(const Callbacks&) = delete;
    Callbacks& operator=(const Callbacks&) = delete;
};

/// What differs from run to run: addresses and times.
std::string comparable(const std::string& text)
{
    static const std::regex kPointer("0x[0-9a-f]{6,}|\\(nil\\)");
    static const std::regex kTime(R"(\[ *\d+\. *\d+\])");
    return std::regex_replace(std::regex_replace(text, kPointer, "POINTER"), kTime, "[TIME]");
}

struct Printed {
    std::string output;
    std::string error;
};

void do_nothing(NyDevice*) {}

/// A probe, and every function with success and with every request refused.
Printed run_everything(std::string_view model,
                       const std::function<void(NyDevice*)>& begin = do_nothing)
{
    Captured output{STDOUT_FILENO};
    const NyConfig all_lines = {0xFFFFFFFF, 1, 1, 1};
    LIB_NyxusSetConfig(&all_lines);
    Camera camera{model};
    NyDevice* device = camera.device();
    begin(device);
    for (const bool refused : {false, true}) {
        if (refused)
            camera.sim().set_fault([](const sim::Setup&, uint64_t) { return sim::Fault::stall(); });
        for (const Function& function : all_functions) {
            if (std::string_view(function.name).ends_with("Reset"))
                continue; // the camera would be another one
            LIB_NyxusSetConfig(&all_lines);
            nyxus_fw_bin_size = 0;
            (void)function.call({device});
        }
    }
    LIB_NyxusSetConfig(&all_lines);
    stopVideoStream(device);
    camera.remove();
    ny_trace_param = 0;
    return {comparable(output.text()), comparable(camera.printed())};
}

} // namespace

TEST(LineCallback, ReceivesToTheByteWhatWouldHaveBeenPrinted)
{
    std::map<uint32_t, unsigned> kinds;
    for (const std::string_view model : {models::kRowan, models::kLarch}) {
        const Printed expected = run_everything(model);
        TaggedLines lines;
        const Callbacks callbacks(lines);
        const Printed left = run_everything(model);
        EXPECT_EQ(left.output, "") << model;
        EXPECT_EQ(left.error, "") << model;

        Printed received;
        for (const Line& line : lines) {
            (line.kind == NYXUS_LINE_OUTPUT ? received.output : received.error) += line.text;
            ++kinds[line.kind];
        }
        EXPECT_EQ(comparable(received.output), expected.output) << model;
        EXPECT_EQ(comparable(received.error), expected.error) << model;
    }
    for (const uint32_t kind : std::initializer_list<uint32_t>{
             NY_TRACE_ERROR, NY_TRACE_INFO, NY_TRACE_DEBUG, NY_TRACE_SPI, NY_TRACE_STEP,
             NYXUS_LINE_DUMP, NYXUS_LINE_MARKS, NYXUS_LINE_OUTPUT, NYXUS_LINE_LIBUVC,
             NYXUS_LINE_FAILURE})
        EXPECT_GT(kinds[kind], 0U) << std::hex << kind;
}

TEST(LineCallback, OfAnObjectReceivesAllThatItsFunctionsPrint)
{
    TaggedLines lines;
    TaggedLines others;
    NyDevice* camera = nullptr;
    const Callbacks callbacks(others);
    (void)run_everything(models::kRowan, [&](NyDevice* device) {
        camera = device;
        others.clear();
        nyxus_set_line_callback(device, keep_line, &lines);
    });
    for (const Line& line : lines)
        ASSERT_EQ(line.device, camera) << line.text;
    for (const Line& line : others)
        EXPECT_EQ(line.device, nullptr) << line.text;
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().text, "<INFO> Device object released \n");

    const size_t before = lines.size();
    ny_trace_param = NY_TRACE_ERROR;
    EXPECT_LT(MP_FwRevision(camera, nullptr, nullptr), 0);
    ny_trace_param = 0;
    EXPECT_EQ(lines.size(), before) << "the object's callback ends with it";
}

namespace {

/// Calls what fails, prints and transfers, from inside of a callback.
struct Meddler {
    NyDevice* other;
    unsigned calls = 0;
};

void meddle(NyDevice*, uint32_t, const char*, size_t, void* user)
{
    auto& meddler = *static_cast<Meddler*>(user);
    ++meddler.calls;
    EXPECT_EQ(LIB_NyxusGetVersion(nullptr), NYXUS_E_LIB_NULL);
    uint8_t byte = 0;
    EXPECT_LT(XuRegRead(meddler.other, 0x20, 1, &byte), 0);
}

} // namespace

TEST(LineCallback, MayCallTheLibraryWithoutDisturbingTheCallUnderWay)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    NyDevice other = {};
    Meddler meddler{&other};
    nyxus_set_line_callback(device, meddle, &meddler);
    camera.fail(UVC_GET_CUR, ZRV_XU_REG, sim::Fault::stall());
    ny_trace_param = NY_TRACE_ERROR;
    uint8_t value = 0;
    const std::string before = camera.printed();
    EXPECT_EQ(XU_LedStatusGet(device, 0, &value), -16393);
    EXPECT_EQ(camera.printed(), before);
    EXPECT_EQ(nyxus_errno, -16393);
    EXPECT_EQ(nyxus_rv, -16393);
    EXPECT_STREQ(nyxus_errtmp, "libusb_control_transfer() FAILED, Pipe error");
    EXPECT_EQ(meddler.calls, 3U) << "the failure, and the two calls that passed it on";
}

TEST(ProgressCallback, CountsTheBytesOfTheHostsCall)
{
    std::vector<uint8_t> memory(0x30000);
    const std::function<int32_t(NyDevice*)> upgrade = [&](NyDevice* device) {
        load_image(models::kRowan, 2048);
        nyxus_mfi_bin_size = 1024;
        return MP_FwUpgrade(device, nyxus_mfi_bin);
    };
    const struct {
        const char* name;
        std::string_view model;
        std::function<int32_t(NyDevice*)> call;
        uint64_t total;
        uint64_t exchanges;
    } cases[] = {
        {"upgrade", models::kRowan, upgrade, 1024 + 2048, (1024 + 2048) / 32},
        {"read", models::kRowan,
         [&](NyDevice* device) { return XuExtRomRead(device, 0x40, 1000, memory.data()); }, 1000,
         32},
        {"read of two blocks", models::kRowan,
         [&](NyDevice* device) { return XuExtRomRead(device, 0xFE00, 1024, memory.data()); }, 1024,
         32},
        {"registers", models::kRowan,
         [&](NyDevice* device) { return XuRegRead(device, 0, 512, memory.data()); }, 512, 64},
        {"less than a row", models::kRowan,
         [&](NyDevice* device) { return XuExtRomRead(device, 0, 511, memory.data()); }, 0, 0},
        {"by 512 bytes", models::kFi2,
         [&](NyDevice* device) { return XuExtRomRead512(device, 0, 1100, memory.data()); }, 1100,
         3},
        {"range erase", models::kRowan,
         [&](NyDevice* device) { return XU_ExtRomEraseDWORD(device, 0x100, 0xFE00); },
         0x10000 + 0x100 + 0x200, 0x10300 / 32},
    };
    for (const auto& c : cases) {
        Camera camera{c.model};
        NyDevice* device = camera.device();
        const size_t before = camera.printed().size();
        Steps steps;
        const Callbacks callbacks(steps);
        EXPECT_EQ(c.call(device), 0) << c.name;
        EXPECT_EQ(camera.printed().substr(before), "") << c.name << ": no marks";
        ASSERT_EQ(steps.size(), c.exchanges) << c.name;
        uint64_t done = 0;
        for (const Step& step : steps) {
            EXPECT_EQ(step.device, device);
            EXPECT_EQ(step.total, c.total) << c.name;
            EXPECT_GT(step.done, done) << c.name;
            done = step.done;
        }
        EXPECT_EQ(done, c.total) << c.name;
    }
}

TEST(ProgressCallback, StopsWhereTheTransferFails)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    Steps steps;
    nyxus_set_progress_callback(device, keep_step, &steps);
    camera.fail(UVC_GET_CUR, ZRV_XU_EXT_ROM, sim::Fault::stall(), 5);
    std::vector<uint8_t> memory(1024);
    EXPECT_EQ(XuExtRomRead(device, 0, 1024, memory.data()), -16393);
    ASSERT_EQ(steps.size(), 5U);
    EXPECT_EQ(steps.back().done, 5U * 32);
    EXPECT_EQ(XuExtRomRead(device, 0, 1024, memory.data()), 0);
    EXPECT_EQ(steps.at(5).done, 32U) << "each call counts from the start";
}
