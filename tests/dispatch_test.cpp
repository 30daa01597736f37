// SPDX-License-Identifier: Apache-2.0
// The USB transport and the choice and use of the control tables.
#include <gtest/gtest.h>

#include <cstring>

#include "support/camera.h"
#include "support/script.h"

namespace {

/// An object that shares the camera's USB handle and knows nothing yet.
NyDevice blank_object(Camera& camera)
{
    NyDevice object = {};
    object.usb_handle = camera.device()->usb_handle;
    return object;
}

std::vector<uint8_t> version_record(const char* prefix, uint16_t version, const char* tag)
{
    return {static_cast<uint8_t>(prefix[0]),
            static_cast<uint8_t>(prefix[1]),
            static_cast<uint8_t>(version),
            static_cast<uint8_t>(version >> 8),
            static_cast<uint8_t>(tag[0]),
            static_cast<uint8_t>(tag[1]),
            0x34,
            0x12,
            0,
            0,
            0};
}

} // namespace

TEST(Transport, TheSetupPacketFollowsTheRequest)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.listen();
    uint8_t data[11] = {};
    EXPECT_EQ(UvcXuCtrlQuery(device, 6, 0x1B, UVC_GET_CUR, 11, data), -16393);
    EXPECT_EQ(UvcXuCtrlQuery(device, 6, 0x04, UVC_GET_LEN, 2, data), 0);
    EXPECT_EQ(UvcXuCtrlQuery(device, 6, 0x04, UVC_SET_CUR, 1, data), 0);
    EXPECT_EQ(UvcXuCtrlQuery(device, 12, 0x0E, 10, 0x81, data), -16393);
    using Setup = std::array<uint8_t, 8>;
    const Setup expected[] = {
        {0xA1, 0x81, 0x00, 0x1B, 0x00, 0x06, 11, 0},
        {0xA1, 0x85, 0x00, 0x04, 0x00, 0x06, 2, 0},
        {0x21, 0x01, 0x00, 0x04, 0x00, 0x06, 1, 0},
        {0xA1, 0x0A, 0x00, 0x0E, 0x00, 0x0C, 0x81, 0},
    };
    const auto transfers = camera.sim().transfers();
    ASSERT_EQ(transfers.size(), std::size(expected));
    for (size_t i = 0; i < transfers.size(); ++i)
        EXPECT_EQ(transfers[i].setup, expected[i]) << i;
}

TEST(Transport, FailuresNameTheirOriginAndKind)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    const struct {
        sim::Fault fault;
        int32_t status;
        const char* detail;
    } cases[] = {
        {sim::Fault::stall(), -16393, "libusb_control_transfer() FAILED, Pipe error"},
        {sim::Fault::io_error(), -16385, "libusb_control_transfer() FAILED, Input/Output Error"},
        {sim::Fault::submit_error(12), -16385,
         "libusb_control_transfer() FAILED, Input/Output Error"},
    };
    for (const auto& c : cases) {
        camera.fail(UVC_GET_CUR, 0x04, c.fault);
        uint8_t flip = 0x5A;
        EXPECT_EQ(XuGetFlip(device, &flip), c.status) << c.detail;
        EXPECT_EQ(flip, 0x5A);
        EXPECT_EQ(nyxus_errno, c.status);
        EXPECT_EQ(nyxus_rv, c.status);
        EXPECT_EQ(std::string(nyxus_errtmp).substr(0, std::strlen(c.detail)), c.detail);
        EXPECT_EQ(std::string(nyxus_errmsg).substr(0, 14), "NYXuIoctl.cpp(");
        EXPECT_NE(std::strstr(nyxus_errmsg, "<ERROR_LIBUSB>"), nullptr);
    }
    EXPECT_EQ(xioctl_usb(nullptr, nullptr, nullptr), -16388);
    EXPECT_NE(std::strstr(nyxus_errtmp, "libusb_claim_interface() FAILED"), nullptr);
}

TEST(Transport, AnInterfaceHeldByAnotherIsAClaimFailure)
{
    Camera camera{models::kRowan};
    libusb_device_handle* other = nullptr;
    libusb_device_handle* mine = nullptr;
    ASSERT_EQ(libusb_open(camera.usb_device(), &other), 0);
    ASSERT_EQ(libusb_open(camera.usb_device(), &mine), 0);
    ASSERT_EQ(libusb_claim_interface(other, 0), 0);
    uint8_t data[2];
    const NyUsbPacket packet = {0xA1, UVC_GET_LEN, 0x0400, 0x0600, 2};
    EXPECT_EQ(xioctl_usb(mine, &packet, data), -16390);
    libusb_release_interface(other, 0);
    EXPECT_EQ(xioctl_usb(mine, &packet, data), 0);
    libusb_close(mine);
    libusb_close(other);
}

TEST(Transport, AShortAnswerIsASuccessThatKeepsTheRest)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.fail(UVC_GET_CUR, 0x0C, sim::Fault::short_answer(2));
    char text[12] = "xxxxxxxxxxx";
    EXPECT_EQ(XuGetSetfileVer(device, text), 0);
    EXPECT_EQ(std::string(text + 2), "xxxxxxxxx");
    camera.fail(UVC_GET_CUR, 0x04, sim::Fault::short_answer(0));
    uint8_t flip = 0xFF;
    EXPECT_EQ(XuGetFlip(device, &flip), 0);
    EXPECT_EQ(flip, 0x02);
}

TEST(Transport, APacketIsDumpedWhenDebugLinesAreTraced)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    camera.fail(UVC_SET_CUR, 0x04, sim::Fault::stall());
    ny_trace_param = NY_TRACE_DEBUG;
    EXPECT_EQ(XuSetFlip(device, 1), -16393);
    ny_trace_param = 0;
    const std::string printed = camera.printed();
    for (const char* line : {"xioctl_usb() FAILED, rv = -16393 \n", "packet.bmRequestType = 21 \n",
                             "      .bRequest      = 1 \n", "      .wValue        = 400 \n",
                             "      .wIndex        = 600 \n", "      .wLength       = 1 \n"})
        EXPECT_NE(printed.find(line), std::string::npos) << line << printed;
    EXPECT_NE(printed.find("      UvcXuCtrlQuery(0x"), std::string::npos) << printed;
}

TEST(Dispatch, TheVersionRecordChoosesTheTable)
{
    Camera camera{models::kRowan};
    NyDevice base = blank_object(camera);
    const struct {
        const char* name;
        std::vector<uint8_t> record;
        const uvc_xu_ctrl* table;
        int32_t count;
        bool feature_xu;
        bool feature_em;
    } cases[] = {
        {"0002", version_record("XU", 0x0002, "EM"), uvc_xu_table_ver_0002, 19, true, true},
        {"0003", version_record("XU", 0x0003, "EM"), uvc_xu_table_ver_0003, 17, true, true},
        {"0100", version_record("XU", 0x0100, "EM"), uvc_xu_table_ver_0100, 16, true, true},
        {"0101", version_record("XU", 0x0101, "EM"), uvc_xu_table_ver_0101, 15, true, true},
        {"FFFF", version_record("XU", 0xFFFF, "EM"), uvc_xu_table_ver_none, 15, true, true},
        {"no EM", version_record("XU", 0x0003, "--"), uvc_xu_table_ver_none, 15, false, false},
        {"no XU", version_record("FF", 0x0003, "EM"), uvc_xu_table_ver_none, 15, false, false},
        {"unknown", version_record("XU", 0x0004, "EM"), nullptr, 0, true, true},
        {"unknown, no EM", version_record("XU", 0x0004, "  "), uvc_xu_table_ver_none, 15, false,
         false},
    };
    for (const auto& c : cases) {
        camera.answer(UVC_GET_CUR, 0x16, c.record);
        NyDevice object = base;
        EXPECT_EQ(MP_QueryXuVersion(&object), 0) << c.name;
        EXPECT_EQ(object.xu_table, c.table) << c.name;
        EXPECT_EQ(object.xu_table_count, c.count) << c.name;
        EXPECT_EQ(object.xFeatureXU, c.feature_xu) << c.name;
        EXPECT_EQ(object.xFeatureEM, c.feature_em) << c.name;
        EXPECT_EQ(object.oXuCtrlVer.wExMemVer, 0x1234) << c.name;
    }
    EXPECT_NE(camera.printed().find("<ERROR> Cannot found appropriate XU table,Ver=0x0004\n"),
              std::string::npos);

    NyDevice unknown = base;
    camera.answer(UVC_GET_CUR, 0x16, version_record("XU", 0x0004, "EM"));
    MP_QueryXuVersion(&unknown);
    uint8_t byte = 0;
    EXPECT_EQ(UvcXuCtrlQueryNYXU(&unknown, ZRV_XU_FLIP, UVC_GET_CUR, &byte), -1030);

    camera.fail(UVC_GET_CUR, 0x16, sim::Fault::stall());
    NyDevice old = base;
    EXPECT_EQ(MP_QueryXuVersion(&old), 0);
    EXPECT_EQ(old.xu_table, uvc_xu_table_ver_none);
}

TEST(Dispatch, AControlThatTheTableLacksIsRefusedBeforeAnyTraffic)
{
    Camera camera{models::kLarch};
    NyDevice* device = camera.device();
    camera.listen();
    uint8_t data[64];
    EXPECT_EQ(UvcXuCtrlQueryNYXU(device, 0x19, UVC_GET_CUR, data), -1030);
    EXPECT_STREQ(nyxus_errtmp, "Invalid XU selector: 0x19");
    EXPECT_EQ(XuGetOsd(device, data), -1030);
    EXPECT_TRUE(camera.wire().empty());
    EXPECT_EQ(UvcXuCtrlQueryNYXU(device, 0x104, UVC_GET_CUR, data), 0) << "the low byte counts";
    EXPECT_EQ(camera.wire(), std::vector<std::string>{"GET 04:"});
}

TEST(Dispatch, LengthsAreLearntFromTheCamera)
{
    Camera camera{models::kCedar};
    EXPECT_EQ(uvc_xu_table_ver_0003[1].length, 0);
    camera.device();
    const struct {
        uint8_t selector;
        uint16_t length;
    } cases[] = {{0x02, 2}, {0x03, 35}, {0x04, 1}, {0x06, 11}, {0x08, 11}, {0x12, 11}, {0x19, 11}};
    for (const auto& c : cases) {
        for (int32_t i = 0; i < uvc_xu_table_ver_0003_count; ++i) {
            if (uvc_xu_table_ver_0003[i].selector == c.selector)
                EXPECT_EQ(uvc_xu_table_ver_0003[i].length, c.length) << int{c.selector};
        }
    }
    // A control that does not answer stops the check and keeps what was learnt.
    uvc_xu_ctrl table[3] = {{"a", 0x04, 0, 9}, {"b", 0x77, 0, 9}, {"c", 0x05, 0, 9}};
    EXPECT_EQ(requireXUSizeTable(camera.device()->usb_handle, 6, table, 3), -16393);
    EXPECT_EQ(table[0].length, 1);
    EXPECT_EQ(table[2].length, 9);
    EXPECT_EQ(requireXUSizeTable(nullptr, 6, nullptr, 0), 0);
}

TEST(Dispatch, ALongerControlTravelsWholeAndLeavesTheRecordInBounds)
{
    Camera camera{models::kRowan};
    NyDevice* device = camera.device();
    uvc_xu_ctrl flip = {"flip", 0x04, 0, 600};
    uvc_xu_ctrl osd = {"osd", 0x13, 0, 4096};
    uvc_xu_ctrl table[] = {flip, osd};
    device->xu_table = table;
    device->xu_table_count = 2;

    camera.answer(UVC_GET_CUR, 0x04, std::vector<uint8_t>(600, 0xFF));
    uint8_t bytes[3] = {0xEE, 0xEE, 0xEE};
    camera.listen();
    EXPECT_EQ(XuGetFlip(device, bytes), 0);
    EXPECT_EQ(bytes[0], 0x02);
    EXPECT_EQ(bytes[1], 0xEE);
    EXPECT_EQ(camera.sim().transfers().at(0).data.size(), 600u);

    camera.answer(UVC_GET_CUR, 0x13, std::vector<uint8_t>(4096, 0xAB));
    uint8_t reply[20];
    std::memset(reply, 0xEE, sizeof reply);
    EXPECT_EQ(XuGetOsd(device, reply), 0);
    EXPECT_EQ(reply[17], 0xAB);
    EXPECT_EQ(reply[18], 0xEE);

    camera.heal();
    camera.listen();
    uint8_t command[18] = {0x01, 0x01};
    XuSetOsd(device, command);
    const auto sent = camera.sim().transfers().at(0);
    EXPECT_EQ(sent.setup[6] | sent.setup[7] << 8, 4096);
    camera.remove(); // before its table goes
}
