// SPDX-License-Identifier: Apache-2.0
// Exported tables in the hands of functions that write.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "support/camera.h"

TEST(ExportedTables, CanAllBeCorrected)
{
    Camera camera{models::kRowan};
    libusb_device_handle* handle = camera.device()->usb_handle;
    camera.sim().set_fault([](const sim::Setup& setup, uint64_t) {
        return setup.request == UVC_GET_LEN ? sim::Fault::answer({0x23, 0x01}) : sim::Fault::none();
    });
    std::vector<std::pair<uvc_xu_ctrl*, int32_t>> tables = {
        {uvc_xu_table_h264, uvc_xu_table_h264_count}, {uvc_xu_ctrl_ver_info, 2}};
    for (int32_t i = 0; i < xu_table_list_count; ++i)
        tables.emplace_back(xu_table_list[i].table, xu_table_list[i].count);
    for (const auto& [table, count] : tables) {
        const std::vector<uvc_xu_ctrl> before(table, table + count);
        EXPECT_EQ(requireXUSizeTable(handle, NY_UNIT_H264, table, count), 0) << table->name;
        for (int32_t i = 0; i < count; ++i)
            EXPECT_EQ(table[i].length, 0x0123) << table[i].name;
        std::copy(before.begin(), before.end(), table);
    }
}

TEST(ExportedTables, ACorrectedH264TableLeavesPayloadsInBounds)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.sim().set_fault([](const sim::Setup& setup, uint64_t) {
        return setup.type() == 1 && setup.index >> 8 == NY_UNIT_H264
                   ? sim::Fault::answer(std::vector<uint8_t>(255, 0xA5))
                   : sim::Fault::none();
    });
    const std::vector<uvc_xu_ctrl> before(uvc_xu_table_h264, uvc_xu_table_h264 + 6);
    for (uvc_xu_ctrl& control : std::span(uvc_xu_table_h264, 6))
        control.length = 255;
    for (const uint8_t standard_order : {uint8_t{0}, uint8_t{1}}) {
        nyxus_h264_standard_order = standard_order;
        const struct {
            int32_t (*get)(NyDevice*, uint8_t*);
            int32_t (*set)(NyDevice*, const uint8_t*);
            size_t received;
            size_t sent;
        } cases[] = {
            {H264GetRateCtrlMode, H264SetRateCtrlMode, 3, 3},
            {H264GetVersion, H264Reset, 2, 2},
            {H264GetQpSteps, H264SetQpSteps, 5, 5},
            {H264GetVersion, H264SetNextFrameType, 2, 4},
        };
        for (const auto& c : cases) {
            uint8_t payload[255];
            std::memset(payload, 0x11, sizeof payload);
            EXPECT_EQ(c.get(device, payload), 0);
            EXPECT_EQ(std::count(payload, payload + 255, 0xA5), static_cast<ptrdiff_t>(c.received));
            EXPECT_EQ(payload[c.received], 0x11);
            const std::vector<uint8_t> whole(c.sent, 0x11); // the sanitizer sees a read behind it
            EXPECT_EQ(c.set(device, whole.data()), 0);
        }
        H264BitrateLayers bitrate = {};
        EXPECT_EQ(H264GetBitrate(device, &bitrate), 0);
        EXPECT_EQ(bitrate.dwAverageBitrate, 0xA5A5A5A5u);
        EXPECT_EQ(H264SetBitrate(device, &bitrate), 0);
    }
    nyxus_h264_standard_order = 0;
    std::copy(before.begin(), before.end(), uvc_xu_table_h264);
}

TEST(ExportedTables, AReadOnlyCatalogueRowIsRefused)
{
    auto* row = const_cast<NyFlashInfo*>(&spi_flash_table[41]);
    for (const std::string_view model : {models::kRowan, models::kCedar}) {
        Camera camera{model};
        NyDevice* device = camera.device();
        camera.listen();
        EXPECT_EQ(XU_SpiGetFlashInfo(device, row), -1036) << model;
        EXPECT_STREQ(nyxus_errtmp, "'pFlashInfo' is a read-only row of spi_flash_table");
        EXPECT_TRUE(camera.wire().empty());
        const bool marks_the_record = model == models::kCedar;
        EXPECT_EQ(XU_SpiSetFlashInfo(device, row), marks_the_record ? -1036 : 0) << model;
        NyFlashInfo copy = *row;
        EXPECT_EQ(XU_SpiSetFlashInfo(device, &copy), 0) << model;
        EXPECT_EQ(XU_SpiGetFlashInfo(device, &copy), 0) << model;
    }
}
