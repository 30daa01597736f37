// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/extensions.h>

#include "session_state.h"
#include "trace/failure.h"
#include "unit.h"

static_assert(sizeof(NyUsbPacket) == 8 && offsetof(NyUsbPacket, wLength) == 6);

int32_t xioctl_usb(libusb_device_handle* handle, const NyUsbPacket* packet, uint8_t* pData)
{
    if (handle == nullptr)
        return NY_FAIL_LIBUSB(LIBUSB_ERROR_NO_DEVICE, "libusb_claim_interface");
    NY_REQUIRE(packet);
    if (packet->wLength > 0)
        NY_REQUIRE(pData);

    // Claimed before every transfer: a reset or another user may have taken the claim away.
    const int claimed = libusb_claim_interface(handle, 0);
    if (claimed < 0)
        return NY_FAIL_LIBUSB(claimed, "libusb_claim_interface");

    const int moved =
        libusb_control_transfer(handle, packet->bmRequestType, packet->bRequest, packet->wValue,
                                packet->wIndex, pData, packet->wLength, 0);
    if (moved < 0)
        return NY_FAIL_LIBUSB(moved, "libusb_control_transfer");
    return 0; // a short answer counts as success
}

void nyxus::note_whether_gone(NyDevice* pDevObj, int32_t rv)
{
    if (pDevObj->usb_handle != nullptr)
        pDevObj->device_gone = rv == NYXUS_E_LIBUSB(LIBUSB_ERROR_NO_DEVICE);
}

int32_t nyxus_mark_device_gone(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    pDevObj->device_gone = 1;
    return 0;
}

static void trace_packet(const NyDevice* pDevObj, const NyUsbPacket& packet, const uint8_t* data,
                         int32_t rv)
{
    static constexpr char kQuery[] = "UvcXuCtrlQuery";
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "xioctl_usb() FAILED, rv = %d \n", rv);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "packet.bmRequestType = %X \n",
                      packet.bmRequestType);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "      .bRequest      = %X \n",
                      packet.bRequest);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "      .wValue        = %X \n",
                      packet.wValue);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "      .wIndex        = %X \n",
                      packet.wIndex);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "      .wLength       = %X \n",
                      packet.wLength);
    nyxus::trace_line(NY_TRACE_DEBUG, kQuery, pDevObj, "pData                = %p \n",
                      static_cast<const void*>(data));
}

int32_t UvcXuCtrlQuery(NyDevice* pDevObj, uint8_t bUnit, uint8_t bSelector, uint8_t bRequest,
                       uint16_t wLength, uint8_t* pData)
{
    NY_REQUIRE_DEVICE(pDevObj);
    const NyUsbPacket packet = {
        .bmRequestType = static_cast<uint8_t>(bRequest == UVC_SET_CUR ? 0x21 : 0xA1),
        .bRequest = bRequest,
        .wValue = static_cast<uint16_t>(bSelector << 8),
        .wIndex = static_cast<uint16_t>(bUnit << 8),
        .wLength = wLength,
    };
    const bool usable = pDevObj->session_closed != nyxus::kSessionBroken;
    const int32_t rv = xioctl_usb(usable ? pDevObj->usb_handle : nullptr, &packet, pData);
    nyxus::note_whether_gone(pDevObj, rv);
    if (rv < 0) {
        nyxus_rv = rv;
        if (nyxus::traces(NY_TRACE_DEBUG))
            trace_packet(pDevObj, packet, pData, rv);
    }
    return rv;
}
