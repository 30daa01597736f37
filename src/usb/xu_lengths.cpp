// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>

#include <endian.h>

#include "control_lengths.h"
#include "trace/failure.h"
#include "unit.h"

static constexpr char kRequire[] = "requireXUSizeTable";

static int32_t ask_length(libusb_device_handle* handle, uint8_t unit, uint8_t selector,
                          uint16_t* length)
{
    const NyUsbPacket packet = {
        .bmRequestType = 0xA1,
        .bRequest = UVC_GET_LEN,
        .wValue = static_cast<uint16_t>(selector << 8),
        .wIndex = static_cast<uint16_t>(unit << 8),
        .wLength = 2,
    };
    uint16_t answer = 0xFFFF;
    const int32_t rv = xioctl_usb(handle, &packet, reinterpret_cast<uint8_t*>(&answer));
    *length = le16toh(answer);
    return rv;
}

/// `keeper` is the object that asks, if one does.
static int32_t correct_table(libusb_device_handle* handle, uint8_t unit, uvc_xu_ctrl* table,
                             int32_t count, NyDevice* keeper)
{
    for (int32_t i = 0; i < count; ++i) {
        uvc_xu_ctrl& row = table[i];
        uint16_t length = 0;
        const int32_t rv = ask_length(handle, unit, row.selector, &length);
        if (rv < 0) {
            nyxus_rv = rv;
            if (nyxus::traces(NY_TRACE_DEBUG)) {
                nyxus::trace_line(NY_TRACE_DEBUG, kRequire,
                                  "xioctl_uvc(UVCIOC_CTRL_QUERY) FAILED\n");
            }
            return rv;
        }
        if (keeper != nullptr)
            nyxus::keep_length(keeper, row.selector, length);
        const uint16_t before = nyxus::correct_row(row, length, handle);
        if (length != before && nyxus::traces(NY_TRACE_DEBUG)) {
            nyxus::trace_line(NY_TRACE_DEBUG, kRequire,
                              "Update XU control(%s) length from %d to %d\n", row.name, before,
                              length);
        }
    }
    return 0;
}

int32_t nyxus::learn_control_lengths(NyDevice* pDevObj)
{
    if (pDevObj->xu_table == nullptr) { // which says so
        return requireXUSizeTable(pDevObj->usb_handle, NY_UNIT_VENDOR, nullptr,
                                  pDevObj->xu_table_count);
    }
    return correct_table(pDevObj->usb_handle, NY_UNIT_VENDOR, pDevObj->xu_table,
                         pDevObj->xu_table_count, pDevObj);
}

int32_t requireXUSizeTable(libusb_device_handle* handle, uint8_t bUnit, uvc_xu_ctrl* table,
                           int32_t count)
{
    if (count < 1)
        return 0;
    NY_REQUIRE(table);
    return correct_table(handle, bUnit, table, count, nullptr);
}

void print_xu_table(const uvc_xu_ctrl* table, int32_t count)
{
    for (int32_t i = 0; table != nullptr && i < count; ++i) {
        NY_TRACE(NY_TRACE_ERROR, "%22s   0x%02X  %d \n", table[i].name, table[i].selector,
                 nyxus::row_length(table[i]));
    }
}
