/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Additions to the published interface. Each changes nothing until it is used.
 *
 * Callbacks take the place of what the library prints, and tell how far a long transfer is:
 *
 *     static void show(NyDevice* camera, uint32_t kind, const char* text, size_t length, void* log)
 *     {
 *         append_to_log(log, text, length);
 *     }
 *     nyxus_set_line_callback(NULL, show, log);
 *
 * A callback runs on the thread whose call prints or transfers, before that call goes on, so it
 * should be quick. It may call the library, but makes no transfer to the camera that it is called
 * for and does not delete its object: that camera is in the middle of something. What it calls
 * reaches no callback and prints nothing, and nyxus_errno and the other variables of nyxus/error.h
 * are as they were when it returns. It must not throw, nor leave by longjmp().
 *
 * Set callbacks while no other call of the library runs that they would be called from. The
 * process-wide ones serve every object that has none of its own, and what belongs to no object.
 */
#ifndef NYXUS_EXTENSIONS_H
#define NYXUS_EXTENSIONS_H

#include <nyxus/export.h>

#include <libusb-1.0/libusb.h>

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
NYXUS_API int32_t nyxus_control_length(NyDevice* pDevObj, int32_t bSelector);

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

/**
 * Say whether objects that this thread opens from now on have libuvc's event thread. With it, as at
 * first, each transfer wakes that thread, which wakes the caller. Without it, the caller's thread
 * handles the events of its own transfers, and the object is for control transfers only: starting
 * a stream fails.
 *
 * @param bEventThread  0: without it; else with it
 * @return what this thread had chosen before, 1 or 0, for those who choose it back
 *
 * Concerns DEV_CreateObjectUsb() and init_uvc_video(). Does not block. Per thread.
 */
NYXUS_API int32_t nyxus_set_event_thread(int32_t bEventThread);

/**
 * The libusb context of an object without libuvc's event thread, for asynchronous transfers on its
 * handle: libusb_handle_events_completed() completes them.
 *
 * @param pDevObj  device, borrowed for the call
 * @return the context, which lives until the object is closed; NULL where libuvc's thread handles
 *         its events, and for NULL
 *
 * Does not block. One thread at a time per device.
 */
NYXUS_API libusb_context* nyxus_usb_context(const NyDevice* pDevObj);

/** @} */

/**
 * @name Callbacks
 * @{
 */

/** Kinds of text besides the masks of nyxus/trace.h (NY_TRACE_ERROR and so on), which are kinds,
 *  too: those of the lines that they gate. The kinds here ignore the mask. */
enum {
    NYXUS_LINE_FAILURE = 1, /**< a failure on standard error */
    NYXUS_LINE_DUMP = 2,    /**< a row of NyPrintBuf(), its header included */
    NYXUS_LINE_MARKS = 3,   /**< one or more progress marks: a part of a row, or its end */
    NYXUS_LINE_OUTPUT = 4,  /**< a line on standard output */
    NYXUS_LINE_LIBUVC = 5,  /**< why libuvc refused something, as its uvc_perror() says it */
};

/**
 * Receives what the library would have printed.
 *
 * @param pDevObj  the object whose operation prints it, which may still be under construction;
 *                 NULL where it belongs to none
 * @param kind     NYXUS_LINE_* or NY_TRACE_*
 * @param text     what would have been printed, to the byte: with its line end, where it has one
 *                 (progress marks and one time-out of the SPI channel have none); NUL-terminated,
 *                 and borrowed for the call
 * @param length   bytes of text without the terminator; characters from a camera may be 0, too
 * @param user     as given to nyxus_set_line_callback()
 */
typedef void (*NyLineCallback)(NyDevice* pDevObj, uint32_t kind, const char* text, size_t length,
                               void* user);

/**
 * Let a callback receive every line that the library prints, in the place of standard output and
 * standard error. ny_trace_param decides as ever which lines there are. What libuvc and libusb
 * print by themselves is not the library's, and stays where it goes.
 *
 * @param pDevObj   object whose lines it receives until DEV_DeleteObject(), whose own lines are the
 *                  last; NULL: process-wide
 * @param callback  NULL: none, as at first
 * @param user      handed to the callback; has to live as long as the callback is set
 *
 * One thread at a time per device; one thread at a time when it is process-wide. Does not block.
 */
NYXUS_API void nyxus_set_line_callback(NyDevice* pDevObj, NyLineCallback callback, void* user);

/**
 * Receives how far a transfer is. Called after each exchange with the camera (of 8, 32 or 512
 * bytes); done equals total when all of it has succeeded.
 *
 * @param pDevObj  the object whose operation transfers
 * @param done     bytes so far
 * @param total    bytes in all: those of the call that the host made, for instance of all three
 *                 parts that MP_FwUpgrade() writes; at least 512, shorter transfers are not
 *                 reported
 * @param user     as given to nyxus_set_progress_callback()
 */
typedef void (*NyProgressCallback)(NyDevice* pDevObj, uint64_t done, uint64_t total, void* user);

/**
 * Let a callback follow long transfers. Progress marks are not printed while it is set; a line
 * callback receives them all the same.
 *
 * Arguments and thread words are those of nyxus_set_line_callback().
 */
NYXUS_API void nyxus_set_progress_callback(NyDevice* pDevObj, NyProgressCallback callback,
                                           void* user);

/** @} */

NYXUS_END_DECLS

#endif
