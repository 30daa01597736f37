// SPDX-License-Identifier: Apache-2.0
// Planned faults as a host sees them, through unmodified libusb.
#include "bus/bed.h"
#include "bus/virtual_time.h"
#include "camera_events.h"
#include "cameras/shipped.h"
#include "faults/fault_file.h"
#include "usb/descriptors.h"

#include <gtest/gtest.h>
#include <libusb.h>

#include <memory>
#include <string>
#include <thread>

namespace {

constexpr uint8_t kSetCur = 0x01;
constexpr uint8_t kGetCur = 0x81;
constexpr uint8_t kGetLen = 0x85;
constexpr uint8_t kRegisters = 0x06;
constexpr int kRegisterBytes = 11;
constexpr unsigned kTimeoutMs = 1000;

struct ContextDeleter {
    void operator()(libusb_context* context) const { libusb_exit(context); }
};
struct HandleDeleter {
    void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
};
using Handle = std::unique_ptr<libusb_device_handle, HandleDeleter>;

class Faults : public testing::Test {
protected:
    Faults()
    {
        libusb_context* context = nullptr;
        EXPECT_EQ(libusb_init(&context), 0);
        context_.reset(context);
    }

    void plan(const std::string& text) { bed_.set_faults(sim::parse_faults(text, "plan")); }
    /// nullptr when it is not on the list.
    Handle open(const sim::PluggedCamera& camera)
    {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context_.get(), &list);
        libusb_device_handle* handle = nullptr;
        for (ssize_t i = 0; i < count; ++i) {
            if (libusb_get_bus_number(list[i]) == camera.bus() &&
                libusb_get_device_address(list[i]) == camera.address())
                (void)libusb_open(list[i], &handle);
        }
        libusb_free_device_list(list, 1);
        return Handle(handle);
    }
    int get(const Handle& handle, uint8_t request, uint16_t room, unsigned timeout_ms = kTimeoutMs)
    {
        std::fill(std::begin(data_), std::end(data_), uint8_t{0xEE});
        return libusb_control_transfer(handle.get(), 0xA1, request, kRegisters << 8,
                                       sim::kVendorUnit << 8, data_, room, timeout_ms);
    }

    void pass_ms(uint64_t duration_ms) { sim::sleep_virtually(clock_, duration_ms * 1000); }
    int restart(const Handle& handle) { return set_register(handle, 0x26, 0x10); }
    int set_register(const Handle& handle, uint8_t address, uint8_t value)
    {
        uint8_t record[kRegisterBytes] = {0x81, 0x00, address, value};
        return libusb_control_transfer(handle.get(), 0x21, kSetCur, kRegisters << 8,
                                       sim::kVendorUnit << 8, record, kRegisterBytes, kTimeoutMs);
    }

    sim::VirtualClock clock_;
    sim::InstalledVirtualClock installed_{clock_};
    sim::TestBed bed_{clock_};
    sim::PluggedCamera& camera_ = bed_.plug(sim::models().front(), {.serial = "S1"});
    std::unique_ptr<libusb_context, ContextDeleter> context_;
    uint8_t data_[64] = {};
};

TEST_F(Faults, OfTransfersReachTheCaller)
{
    const Handle handle = open(camera_);
    ASSERT_EQ(get(handle, kGetCur, kRegisterBytes), kRegisterBytes);
    const struct {
        const char* effect;
        uint8_t request;
        uint16_t room;
        int result;
    } cases[] = {
        {R"("stall")", kGetCur, kRegisterBytes, LIBUSB_ERROR_PIPE},
        {R"("io-error")", kGetCur, kRegisterBytes, LIBUSB_ERROR_IO},
        {R"("timeout")", kGetCur, kRegisterBytes, LIBUSB_ERROR_IO},
        {R"("no-answer")", kGetCur, kRegisterBytes, LIBUSB_ERROR_TIMEOUT},
        {R"("short", bytes = 3)", kGetCur, kRegisterBytes, 3},
        {R"("wrong-length", bytes = 4)", kGetCur, kRegisterBytes, 4},
        {R"("wrong-length", bytes = 20)", kGetCur, 32, 20},
        {R"("wrong-length", bytes = 33)", kGetCur, 32, LIBUSB_ERROR_OVERFLOW},
        {R"("wrong-length", bytes = 513)", kGetLen, 2, 2},
        {R"("late", ms = 1)", kGetCur, kRegisterBytes, kRegisterBytes},
        {R"("late", ms = 100000)", kGetCur, kRegisterBytes, LIBUSB_ERROR_TIMEOUT},
        {R"("unplug")", kGetCur, kRegisterBytes, LIBUSB_ERROR_NO_DEVICE},
    };
    for (const auto& c : cases) {
        plan(std::string(R"(fault = [{when = {unit = 6}, times = 1, do = )") + c.effect + "}]");
        EXPECT_EQ(get(handle, c.request, c.room), c.result) << c.effect;
        if (c.request == kGetLen) {
            EXPECT_EQ(data_[0] | data_[1] << 8, 513) << c.effect;
        }
        EXPECT_EQ(data_[c.room], 0xEE) << "beyond the room";
        EXPECT_EQ(bed_.fault_strikes(), std::vector<uint64_t>{1}) << c.effect;
        if (c.result != LIBUSB_ERROR_NO_DEVICE) {
            EXPECT_EQ(get(handle, kGetCur, kRegisterBytes), kRegisterBytes) << "healed";
        }
    }
}

// It was asked for all the same; a host that cancels the transfer changes nothing.
TEST_F(Faults, ARestartComesThoughItsAnswerIsLateOrCancelled)
{
    const struct {
        const char* ms;
        int result;
    } cases[] = {{"1", kRegisterBytes}, {"100000", LIBUSB_ERROR_TIMEOUT}};
    for (const auto& [ms, result] : cases) {
        const unsigned before = camera_.address();
        const Handle handle = open(camera_);
        plan(std::string(R"(fault = [{when = {unit = 6}, times = 1, do = "late", ms = )") + ms +
             "}]");
        EXPECT_EQ(restart(handle), result);
        bed_.settle();
        EXPECT_NE(camera_.address(), before) << ms;
    }
}

TEST_F(Faults, ACameraThatIsUnpluggedDoesNotComeBackByARestart)
{
    plan(R"(fault = [{when = {unit = 6, request = "GET_CUR"}, do = "unplug"}])");
    while (bed_.fault_strikes().front() == 0) { // unless the restart was faster
        const Handle handle = open(camera_);
        EXPECT_EQ(restart(handle), kRegisterBytes);
        EXPECT_EQ(get(handle, kGetCur, kRegisterBytes), LIBUSB_ERROR_NO_DEVICE);
        bed_.settle();
    }
    EXPECT_FALSE(camera_.is_plugged());
}

TEST_F(Faults, MayStrikeOnceTheCameraHasObeyed)
{
    constexpr uint8_t kRegister = 0x60;
    const Handle handle = open(camera_);
    const struct {
        const char* effect;
        int result;
    } cases[] = {{"io-error", LIBUSB_ERROR_IO},
                 {"timeout", LIBUSB_ERROR_IO},
                 {"no-answer", LIBUSB_ERROR_TIMEOUT},
                 {"unplug", LIBUSB_ERROR_NO_DEVICE}};
    uint8_t value = 0;
    for (const auto& [effect, result] : cases) {
        camera_.controller()->set_reg(kRegister, value++);
        plan(std::string(R"(fault = [{when = {unit = 6}, after = true, do = ")") + effect + "\"}]");
        EXPECT_EQ(set_register(handle, kRegister, value), result) << effect;
        EXPECT_EQ(camera_.controller()->reg(kRegister), value) << effect;
    }
}

TEST_F(Faults, AnAnswerIsLateOnTheClockToo)
{
    const Handle handle = open(camera_);
    plan(R"(fault = [{when = {transfer = 1}, do = "late", ms = 50}])");
    const uint64_t before_us = clock_.now_us();
    EXPECT_EQ(get(handle, kGetLen, 2, 10'000), 2);
    EXPECT_GE(clock_.now_us() - before_us, 50'000U);
    EXPECT_EQ(camera_.transfers().back().status, 0);
}

void note_end(libusb_transfer* transfer)
{
    *static_cast<bool*>(transfer->user_data) = true;
}

TEST_F(Faults, ALateAnswerHoldsUpNobodyElse)
{
    sim::PluggedCamera& other = bed_.plug(*sim::find_model("rowan-spi"), {.serial = "S2"});
    const Handle handle = open(camera_);
    const Handle other_handle = open(other);
    plan(R"(fault = [{when = {camera = "S1", transfer = 1}, do = "late", ms = 3600000}])");

    uint8_t buffer[10];
    bool ended = false;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    libusb_fill_control_setup(buffer, 0xA1, kGetLen, kRegisters << 8, sim::kVendorUnit << 8, 2);
    libusb_fill_control_transfer(transfer, handle.get(), buffer, note_end, &ended, 0);
    ASSERT_EQ(libusb_submit_transfer(transfer), 0);
    EXPECT_EQ(get(other_handle, kGetLen, 2), 2);
    EXPECT_EQ(get(handle, kGetLen, 2), 2) << "a later one on the same camera";
    EXPECT_FALSE(ended);

    pass_ms(3'600'000);
    while (!ended)
        ASSERT_EQ(libusb_handle_events(context_.get()), 0);
    EXPECT_EQ(transfer->status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(transfer->actual_length, 2);
    libusb_free_transfer(transfer);
}

TEST_F(Faults, ALateAnswerOfACameraThatWentNeverComes)
{
    const Handle handle = open(camera_);
    plan(R"(fault = [{when = {transfer = 1}, do = "late", ms = 3600000}])");
    sim::CameraEvents events(camera_);
    std::thread puller([&] {
        EXPECT_TRUE(events.wait_for([](const auto& seen) { return seen.strikes == 1; }));
        bed_.unplug(camera_);
    });
    EXPECT_EQ(get(handle, kGetLen, 2, 0), LIBUSB_ERROR_NO_DEVICE);
    puller.join();
}

TEST_F(Faults, TheCameraLeavesAtItsTimeAndComesBack)
{
    for (const char* effect : {R"("unplug")", R"("unplug", announced = false)", R"("power-cut")"}) {
        const Handle handle = open(camera_);
        const unsigned before = camera_.address();
        // It comes back when as much time has passed on the machine, too: an hour, which has not.
        plan(std::string(R"(fault = [{when = {time_ms = 2500}, replug_ms = 3600000, do = )") +
             effect + "}]");
        pass_ms(2'400);
        EXPECT_EQ(get(handle, kGetLen, 2), 2) << effect;
        pass_ms(100);
        EXPECT_EQ(get(handle, kGetLen, 2), LIBUSB_ERROR_NO_DEVICE) << effect;
        EXPECT_EQ(camera_.address(), before) << effect;
        pass_ms(3'600'000);
        EXPECT_NE(camera_.address(), before) << effect;
        EXPECT_EQ(get(open(camera_), kGetLen, 2), 2) << effect;
    }
}

TEST_F(Faults, ATransferTooNoticesTheTime)
{
    const Handle handle = open(camera_);
    plan(R"(fault = [{when = {time_ms = 10}, do = "unplug"}])");
    int answered = 0;
    while (get(handle, kGetLen, 2) == 2)
        ++answered;
    const auto expected = 10'000 / sim::models().front().usb_latency_us;
    EXPECT_EQ(answered, static_cast<int>(expected)) << "the clock advances with each one";
    EXPECT_EQ(bed_.fault_strikes(), std::vector<uint64_t>{1});
}

TEST_F(Faults, ABackThatIsAtOnceStillChangesTheAddress)
{
    const Handle handle = open(camera_);
    const unsigned before = camera_.address();
    plan(R"(fault = [{when = {transfer = 2}, do = "unplug", replug_ms = 0}])");
    EXPECT_EQ(get(handle, kGetLen, 2), 2);
    EXPECT_EQ(get(handle, kGetLen, 2), LIBUSB_ERROR_NO_DEVICE);
    pass_ms(1);
    EXPECT_NE(camera_.address(), before);
    EXPECT_EQ(get(open(camera_), kGetLen, 2), 2);
}

TEST_F(Faults, APlanIsAboutCamerasThatAreThere)
{
    EXPECT_THROW(plan(R"(fault = [{when = {camera = 2}, do = "stall"}])"), std::invalid_argument);
    EXPECT_THROW(plan(R"(fault = [{when = {camera = "S2"}, do = "stall"}])"),
                 std::invalid_argument);
}

TEST_F(Faults, EachCameraCountsForItself)
{
    sim::PluggedCamera& other = bed_.plug(*sim::find_model("rowan-spi"), {.serial = "S2"});
    const Handle first = open(camera_);
    const Handle second = open(other);
    plan(
        R"(fault = [{when = {transfer = 2}, do = "stall"}, {when = {transfer = 3, camera = 2}, do = "io-error"}])");
    for (const int expected : {2, static_cast<int>(LIBUSB_ERROR_PIPE), 2})
        EXPECT_EQ(get(first, kGetLen, 2), expected);
    for (const int expected :
         {2, static_cast<int>(LIBUSB_ERROR_PIPE), static_cast<int>(LIBUSB_ERROR_IO)})
        EXPECT_EQ(get(second, kGetLen, 2), expected);
    EXPECT_EQ(bed_.fault_strikes(), (std::vector<uint64_t>{2, 1}));
}

TEST(FaultsInRealTime, HappenByThemselves)
{
    sim::RealClock clock;
    sim::TestBed bed(clock);
    sim::PluggedCamera& camera = bed.plug(sim::models().front());
    sim::CameraEvents events(camera);
    const unsigned before = camera.address();
    bed.set_faults(sim::parse_faults(
        R"(fault = [{when = {time_ms = 5}, do = "unplug", replug_ms = 5}])", "plan"));
    EXPECT_TRUE(events.wait_for([](const auto& seen) { return seen.arrivals == 2; }));
    EXPECT_NE(camera.address(), before);
    EXPECT_EQ(bed.fault_strikes(), std::vector<uint64_t>{1});
}

} // namespace
