/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The lowest layer: one control request to an extension unit of the camera.
 *
 * Data buffers are sent and filled as they are; the camera's byte order (little-endian unless said
 * otherwise) is the caller's business. A camera that answers with fewer bytes than asked counts as
 * success: the rest of the buffer keeps what it held.
 */
#ifndef NYXUS_USB_H
#define NYXUS_USB_H

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h> /* UVC_SET_CUR, UVC_GET_CUR, UVC_GET_LEN ... */
#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** Extension units of the camera. */
enum {
    NY_UNIT_VENDOR = 6, /**< vendor controls, guid_velkalink */
    NY_UNIT_H264 = 12,  /**< H.264 encoder, guid_h264 */
};

/** GUID of the vendor unit in memory order. The library addresses units by number only. */
NYXUS_DATA const uint8_t guid_velkalink[16];
/** GUID of the H.264 unit in memory order. */
NYXUS_DATA const uint8_t guid_h264[16];

/** The five fields of a USB setup packet. */
typedef struct NyUsbPacket {
    uint8_t bmRequestType; /**< 0x21 to the camera (SET_CUR), 0xA1 from it */
    uint8_t bRequest;      /**< UVC request code */
    uint16_t wValue;       /**< control selector << 8 */
    uint16_t wIndex;       /**< unit << 8, interface 0 */
    uint16_t wLength;      /**< data bytes */
} NyUsbPacket;

/**
 * Claim interface 0 (before every transfer, so that a reset of the claim never matters) and perform
 * one control transfer. The interface is not released.
 *
 * @param handle  open USB handle
 * @param packet  the request, borrowed for the call
 * @param pData   packet->wLength bytes, sent or filled; may be NULL when wLength is 0
 * @return 0; -(0x4000 + n) when libusb refused the claim or the transfer (-16388 for a NULL
 * handle); -1036 for another NULL
 *
 * Blocks for a transfer. Thread-safe as libusb is.
 */
NYXUS_API int32_t xioctl_usb(libusb_device_handle* handle, const NyUsbPacket* packet,
                             uint8_t* pData);

/**
 * One request to a control of an extension unit, without looking at any control table.
 *
 * @param pDevObj    device object with an open USB handle
 * @param bUnit      extension unit
 * @param bSelector  control
 * @param bRequest   UVC request code; 0x01 (SET_CUR) sends, all others receive
 * @param wLength    data bytes
 * @param pData      wLength bytes, sent or filled
 * @return 0; the failure of xioctl_usb(); -1026 for a NULL device
 *
 * Blocks for a transfer. One thread at a time per device.
 */
NYXUS_API int32_t UvcXuCtrlQuery(NyDevice* pDevObj, uint8_t bUnit, uint8_t bSelector,
                                 uint8_t bRequest, uint16_t wLength, uint8_t* pData);

NYXUS_END_DECLS

#endif
