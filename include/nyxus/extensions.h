/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Extensions under names of their own. They change nothing until they are used.
 * nyxus_h264_standard_order, in nyxus/h264.h, is one, too.
 */
#ifndef NYXUS_EXTENSIONS_H
#define NYXUS_EXTENSIONS_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/**
 * @name The device object
 * @{
 */

/**
 * The length that transfers with a vendor control have, and so the buffer that UvcXuCtrlQueryNYXU()
 * takes: what this object's camera announced, whichever camera was probed last, unless the host has
 * written another length into the table (nyxus/xu.h).
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bSelector  ZRV_XU_*; only the low byte counts
 * @return bytes, 0 to 65535; -1030 when the object's table lacks the control; -1026 for NULL
 *
 * Does not block, and asks the camera nothing. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_control_length(const NyDevice* pDevObj, int32_t bSelector);

/**
 * Tell an object that its camera is gone, when the application learns that by itself: from a
 * hot-plug event of libusb or udev, for instance.
 *
 * The object is marked as it is by a transfer that libusb refuses with "no such device":
 * stopVideoStream(), close_libuvc() and DEV_DeleteObject() abandon libuvc's handle and context
 * instead of entering them, which would abort the process or hang. Nothing is sent, freed or closed
 * now. The mark is no lock: transfers still go to libusb, and one that reaches the camera clears it
 * (the one of DEV_DeleteObject() does, too), so that a camera that was thought gone is closed as
 * usual.
 *
 * @param pDevObj  device, borrowed for the call
 * @return 0; -1026 for NULL
 *
 * Does not block. One thread at a time per device: from the callback of a hot-plug event, leave a
 * note for the thread that uses the device.
 */
NYXUS_API int32_t nyxus_mark_device_gone(NyDevice* pDevObj);

/** @} */

NYXUS_END_DECLS

#endif
