/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The libuvc session of a camera, and its video.
 */
#ifndef NYXUS_VIDEO_H
#define NYXUS_VIDEO_H

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/** A stream as the caller wants it; caller-owned. */
typedef struct VideoStreamParam {
    uint32_t reserved;  /**< not read by the library */
    uint32_t width;     /**< pixels */
    uint32_t height;    /**< pixels */
    uint32_t fps;       /**< frames per second; 0: the first rate that the camera offers */
    uvc_frame_t* frame; /**< filled by a snapshot */
} VideoStreamParam;

/** Frame callback; runs on libuvc's streaming thread. The frame is borrowed for the call. */
typedef void (*NyFrameCallback)(uvc_frame_t* frame, VideoStreamParam* param);

/** What a running callback stream needs; owned by the device object. */
typedef struct StreamCallbackRecord {
    VideoStreamParam* param;  /**< the caller's */
    NyFrameCallback callback; /**< the caller's */
} StreamCallbackRecord;

/** libuvc handle supplied by the application, or NULL. */
NYXUS_DATA uvc_device_handle_t* devh_global;
/** For the application; the library never touches it. */
NYXUS_DATA uvc_stream_ctrl_t ctrl;

/**
 * Open the camera of pDevObj->usb_device through a libuvc context of its own. Fills uvc_context and
 * uvc_handle and zeroes stream_ctrl; after close_libuvc() also usb_handle. DEV_CreateObjectUsb()
 * calls it.
 *
 * uvc_handle stays NULL on failure. libuvc reports that on standard error, except for a device that
 * it does not list (just unplugged, or no camera), which is reported nowhere; a NULL usb_device is
 * reported on standard output.
 *
 * Starts libuvc's event thread. One thread at a time per device.
 */
NYXUS_API void init_uvc_video(NyDevice* pDevObj);

/**
 * Hand over a libuvc handle that the application opened. It is process-wide, used by
 * get_libusb_handle() and closed by the next close_libuvc(), whichever device that closes.
 *
 * Thread-safe. An application with several cameras leaves it alone, and uses the uvc_handle of each
 * object: the handle would be closed with whichever object is deleted next.
 */
NYXUS_API void setLibuvcHandleForNYXUS(uvc_device_handle_t* devh);

/**
 * The USB handle inside the application's libuvc handle.
 *
 * @param out  receives the handle, NULL when the application has set none; a NULL out is recorded
 * as -258 in nyxus_errno
 *
 * Thread-safe; the handle is valid until the application's is closed.
 */
NYXUS_API void get_libusb_handle(libusb_device_handle** out);

/**
 * Start a YUYV stream with a callback per complete frame; incomplete frames are dropped.
 *
 * @param pDevObj   probed device, borrowed for the call
 * @param callback  called on libuvc's streaming thread
 * @param param     size and rate; borrowed until the stream is stopped, and handed to the callback
 * @return the libuvc result: 0 or positive, or a negative uvc_error (also printed by libuvc);
 *         -1026, -1036 for NULL
 *
 * While a stream runs, another start returns -6 (busy), and the stream goes on. Call
 * stopVideoStream() after a failure, too. Blocks for the negotiation's transfers. One thread at a
 * time per device.
 */
NYXUS_API int32_t startVideoStream(NyDevice* pDevObj, NyFrameCallback callback,
                                   VideoStreamParam* param);

/**
 * Take one complete YUYV frame. The stream is left running: stop it with stopVideoStream().
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param unused   ignored
 * @param param    size and rate; its frame is set on success and points into libuvc's buffer, valid
 *                 until the stream is stopped
 * @return 0; a negative uvc_error when the stream cannot be started or the camera is gone; -1026,
 *         -1036 for NULL
 *
 * Waits 1 s per attempt; after a bad frame it restarts the stream and triggers a new snapshot
 * (register 0x0B78) without a limit. One thread at a time per device.
 */
NYXUS_API int32_t startVideoStream_snapshot(NyDevice* pDevObj, void* unused,
                                            VideoStreamParam* param);

/**
 * Stop the stream. Calling it again is harmless.
 *
 * No call of the frame callback is under way or follows, and what was given to the stream may be
 * freed: it waits for a call that is under way, so never call it from the callback. The stream of a
 * camera that is gone is abandoned; one that goes during the call costs half a second at most. When
 * the stream of a camera that is there does not end, it is abandoned after 5 s, and the object is
 * of no use any more. One thread at a time per device.
 */
NYXUS_API void stopVideoStream(NyDevice* pDevObj);

/**
 * Close the application's libuvc handle if it set one, else the object's, then the object's libuvc
 * context. A stream that runs is stopped first, as by stopVideoStream(). A second call does
 * nothing, and so does the call on a camera that is gone, or goes meanwhile (its handle is
 * abandoned). DEV_DeleteObject() calls it.
 *
 * devh_global is NULL afterwards. The handles in the object keep their values and are no longer
 * valid, usb_handle included, so make no transfer until init_uvc_video() has opened the camera
 * again.
 *
 * @return 0; -1026 for NULL
 *
 * May wait for libuvc's event thread to end. One thread at a time per device.
 */
NYXUS_API int32_t close_libuvc(NyDevice* pDevObj);

NYXUS_END_DECLS

#endif
