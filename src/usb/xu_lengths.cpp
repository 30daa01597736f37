// SPDX-License-Identifier: Apache-2.0
#include <nyxus/xu.h>

#include <endian.h>

#include "trace/failure.h"
#include "unit.h"

int32_t requireXUSizeTable(libusb_device_handle* handle, uint8_t bUnit, uvc_xu_ctrl* table,
                           int32_t count)
{
    if (count < 1)
        return 0;
    NY_REQUIRE(table);
    for (int32_t i = 0; i < count; ++i) {
        uvc_xu_ctrl& row = table[i];
        const NyUsbPacket packet = {
            .bmRequestType = 0xA1,
            .bRequest = UVC_GET_LEN,
            .wValue = static_cast<uint16_t>(row.selector << 8),
            .wIndex = static_cast<uint16_t>(bUnit << 8),
            .wLength = 2,
        };
        uint16_t answer = 0xFFFF;
        const int32_t rv = xioctl_usb(handle, &packet, reinterpret_cast<uint8_t*>(&answer));
        if (rv < 0) {
            nyxus_rv = rv;
            NY_TRACE(NY_TRACE_DEBUG, "xioctl_uvc(UVCIOC_CTRL_QUERY) FAILED\n");
            return rv;
        }
        const uint16_t length = le16toh(answer);
        if (length != row.length) {
            NY_TRACE(NY_TRACE_DEBUG, "Update XU control(%s) length from %d to %d\n", row.name,
                     row.length, length);
            row.length = length;
        }
    }
    return 0;
}

void print_xu_table(const uvc_xu_ctrl* table, int32_t count)
{
    for (int32_t i = 0; table != nullptr && i < count; ++i) {
        NY_TRACE(NY_TRACE_ERROR, "%22s   0x%02X  %d \n", table[i].name, table[i].selector,
                 table[i].length);
    }
}
