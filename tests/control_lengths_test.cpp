// SPDX-License-Identifier: Apache-2.0
// How long transfers with a control are, when cameras of one table announce different lengths.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

#include "cameras/shipped.h"
#include "support/camera.h"

namespace {

constexpr uint16_t kShort = 11;
constexpr uint16_t kLong = 35;

/// The row of ZRV_XU_SENSOR: 35 bytes, and 11 as other_camera() announces it.
uvc_xu_ctrl& row()
{
    return uvc_xu_table_ver_0002[5];
}

bool asks_length_of(const sim::Setup& setup, uint8_t selector)
{
    return setup.type() == 1 && setup.request == UVC_GET_LEN && setup.selector() == selector;
}

void announce(sim::PluggedCamera& camera, uint16_t length)
{
    camera.set_fault([length](const sim::Setup& setup, uint64_t) {
        const std::vector<uint8_t> answer = {static_cast<uint8_t>(length),
                                             static_cast<uint8_t>(length >> 8)};
        return asks_length_of(setup, ZRV_XU_SENSOR) ? sim::Fault::answer(answer)
                                                    : sim::Fault::none();
    });
}

/// A second camera of the same generation, whose firmware has a shorter control.
sim::PluggedCamera& other_camera(Camera& first)
{
    sim::PluggedCamera& other = first.bed().plug(*sim::find_model(models::kRowan));
    announce(other, kShort);
    return other;
}

/// What a query of the control really asks for.
int sent_length(NyDevice* device, sim::PluggedCamera& camera)
{
    uint8_t bytes[UINT16_MAX] = {};
    camera.clear_transfers();
    EXPECT_EQ(UvcXuCtrlQueryNYXU(device, ZRV_XU_SENSOR, UVC_GET_CUR, bytes), 0) << nyxus_errmsg;
    const auto setup = camera.transfers().at(0).setup;
    const int length = setup[6] | setup[7] << 8;
    EXPECT_EQ(nyxus_control_length(device, ZRV_XU_SENSOR), length);
    return length;
}

} // namespace

TEST(ControlLengths, AnotherCameraChangesNoTransfer)
{
    const struct {
        const char* outcome;
        uint8_t request, selector; ///< where the probe of the other camera fails
        int length_in_table;
    } cases[] = {
        {"opens", 0, 0, kShort},
        {"fails in the length check, before the control", UVC_GET_LEN, ZRV_XU_FLASH_BLOCK, kLong},
        {"fails in the length check, behind the control", UVC_GET_LEN, ZRV_XU_MCU, kShort},
        {"fails later", UVC_GET_CUR, ZRV_XU_INT_FW_VER, kShort},
    };
    for (const auto& c : cases) {
        row().length = kLong;
        Camera camera{models::kRowan};
        NyDevice* device = camera.device();
        std::vector<uint8_t> expected(64), bytes(64);
        camera.listen();
        ASSERT_EQ(XuSensorRead(device, 0x100, 64, expected.data()), 0);
        const auto wire = camera.wire();

        sim::PluggedCamera& other = camera.bed().plug(*sim::find_model(models::kRowan));
        other.set_fault([&c](const sim::Setup& setup, uint64_t) {
            if (setup.type() == 1 && setup.request == c.request && setup.selector() == c.selector)
                return sim::Fault::stall();
            return asks_length_of(setup, ZRV_XU_SENSOR) ? sim::Fault::answer({kShort, 0})
                                                        : sim::Fault::none();
        });
        NyDevice* second = Camera::create(camera.usb_device_of(other));
        EXPECT_EQ(second != nullptr, c.request == 0) << c.outcome << ": " << nyxus_errmsg;
        EXPECT_EQ(row().length, c.length_in_table) << c.outcome;

        camera.listen();
        EXPECT_EQ(XuSensorRead(device, 0x100, 64, bytes.data()), 0) << c.outcome;
        EXPECT_EQ(camera.wire(), wire) << c.outcome;
        EXPECT_EQ(bytes, expected) << c.outcome;
        EXPECT_EQ(sent_length(device, camera.sim()), kLong) << c.outcome;
        if (second != nullptr) {
            EXPECT_EQ(sent_length(second, other), kShort) << c.outcome;
        }
        DEV_DeleteObject(second);
        EXPECT_EQ(sent_length(device, camera.sim()), kLong) << c.outcome << ", deleted";
    }
}

TEST(ControlLengths, TheHostsLengthIsObeyedByAll)
{
    row().length = 20; // a probe does not mind
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    EXPECT_EQ(sent_length(device, camera.sim()), kLong);
    row().length = 20;
    EXPECT_EQ(sent_length(device, camera.sim()), 20);

    sim::PluggedCamera& other = other_camera(camera);
    NyDevice* second = Camera::create(camera.usb_device_of(other));
    ASSERT_NE(second, nullptr) << nyxus_errmsg;
    const struct {
        const char* what;
        std::function<void()> act;
        int first, second;
    } steps[] = {
        {"probed", [] {}, kLong, kShort},
        {"the host's length", [] { row().length = 20; }, 20, 20},
        {"and one that a probe put there", [] { row().length = kShort; }, kLong, kShort},
        {"a table of the host's",
         [&] {
             static uvc_xu_ctrl table[] = {{"rom", ZRV_XU_SENSOR, 0, 30}};
             device->xu_table = table;
             device->xu_table_count = 1;
         },
         30, kShort},
        {"an exported table that no probe has corrected",
         [&] {
             device->xu_table = uvc_xu_table_ver_0101;
             device->xu_table_count = uvc_xu_table_ver_0101_count;
         },
         11, kShort},
        {"its own table once more",
         [&] {
             device->xu_table = uvc_xu_table_ver_0002;
             device->xu_table_count = uvc_xu_table_ver_0002_count;
         },
         kLong, kShort},
    };
    for (const auto& step : steps) {
        step.act();
        EXPECT_EQ(sent_length(device, camera.sim()), step.first) << step.what;
        EXPECT_EQ(sent_length(second, other), step.second) << step.what;
    }
    DEV_DeleteObject(second);
}

TEST(ControlLengths, AreAskedForAgain)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    sim::PluggedCamera& other = other_camera(camera);
    NyDevice* second = Camera::create(camera.usb_device_of(other));
    ASSERT_NE(second, nullptr) << nyxus_errmsg;

    camera.fail(UVC_GET_LEN, ZRV_XU_FLASH_BLOCK, sim::Fault::stall());
    EXPECT_EQ(DEV_Init(device), -16393);
    EXPECT_EQ(sent_length(device, camera.sim()), kLong) << "a failed probe keeps what is known";
    camera.heal();
    EXPECT_EQ(DEV_Init(device), 0) << nyxus_errmsg;
    EXPECT_EQ(row().length, kLong);
    EXPECT_EQ(sent_length(second, other), kShort);

    announce(other, 20);
    EXPECT_EQ(DEV_Init(second), 0) << nyxus_errmsg;
    EXPECT_EQ(sent_length(second, other), 20);

    announce(other, 25); // asked by the host
    EXPECT_EQ(requireXUSizeTable(second->usb_handle, NY_UNIT_VENDOR, second->xu_table,
                                 second->xu_table_count),
              0);
    EXPECT_EQ(row().length, 25);
    EXPECT_EQ(sent_length(second, other), 25);
    EXPECT_EQ(sent_length(device, camera.sim()), kLong);
    DEV_DeleteObject(second);
}

TEST(ControlLengths, ALengthIsToldWithoutAskingTheCamera)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.listen();
    EXPECT_EQ(nyxus_control_length(device, 0x100 | ZRV_XU_OSD), 18) << "the low byte counts";
    EXPECT_EQ(nyxus_control_length(device, ZRV_XU_DEV_STATUS), -1030);
    EXPECT_STREQ(nyxus_errtmp, "Invalid XU selector: 0x19");
    EXPECT_EQ(nyxus_control_length(nullptr, ZRV_XU_OSD), -1026);
    EXPECT_TRUE(camera.wire().empty());
    device->xu_table_count = 0;
    EXPECT_EQ(nyxus_control_length(device, ZRV_XU_OSD), -1030);
}

TEST(ControlLengths, ThreadsOpenAndUseCamerasOfOneTable)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uint8_t expected[64] = {};
    ASSERT_EQ(XuSensorRead(device, 0x100, 64, expected), 0);
    sim::PluggedCamera* others[] = {&other_camera(camera), &other_camera(camera)};
    const int lengths[] = {kShort, 20}; // so that every probe corrects the table
    announce(*others[1], 20);
    libusb_device* devices[] = {camera.usb_device_of(*others[0]), camera.usb_device_of(*others[1])};

    std::atomic<int> running = 2;
    std::thread threads[2];
    for (size_t i = 0; i < 2; ++i) {
        threads[i] = std::thread([&, i] {
            for (int round = 0; round < 10; ++round) {
                NyDevice* second = DEV_CreateObjectUsb(devices[i]);
                EXPECT_NE(second, nullptr) << nyxus_errmsg;
                if (second == nullptr)
                    break;
                EXPECT_EQ(sent_length(second, *others[i]), lengths[i]);
                EXPECT_EQ(DEV_Init(second), 0) << nyxus_errmsg;
                DEV_DeleteObject(second);
                std::free(second); // the library leaves it to callers that keep pointers
            }
            --running;
        });
    }
    int wrong_reads = 0;
    do {
        uint8_t bytes[64] = {};
        wrong_reads += XuSensorRead(device, 0x100, 64, bytes) != 0 ||
                       std::memcmp(bytes, expected, sizeof bytes) != 0;
        wrong_reads += sent_length(device, camera.sim()) != kLong;
        // The simulated cameras' locks order what lies between transfers; here is nothing between.
        for (int i = 0; i < 5000; ++i)
            wrong_reads += nyxus_control_length(device, ZRV_XU_SENSOR) != kLong;
    } while (running != 0);
    EXPECT_EQ(wrong_reads, 0);
    for (std::thread& thread : threads)
        thread.join();
}
