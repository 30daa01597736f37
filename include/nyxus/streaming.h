/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Video of every format, and the standard controls of the picture: additions to the published
 * interface.
 *
 *     NyStreamRequest request = {NYXUS_FOURCC_MJPEG, 1920, 1080, 0};
 *     NyStream* stream = NULL;
 *     if (nyxus_stream_start(camera, &request, NULL, NULL, &stream) == 0) {
 *         NyStreamFrame frame;
 *         while (nyxus_stream_next(stream, 2000, &frame) == 0)
 *             take(frame.data, frame.size);
 *         nyxus_stream_free(stream);
 *     }
 *
 * A camera has one stream at a time, whichever function started it. Unlike startVideoStream(), this
 * one takes the payload size that the camera offers, or a smaller one where all its transfers
 * together would take more than an eighth of what the kernel lends to USB transfers
 * (usbfs_memory_mb), so that several cameras stream side by side.
 */
#ifndef NYXUS_STREAMING_H
#define NYXUS_STREAMING_H

#include <nyxus/export.h>

NYXUS_BEGIN_DECLS

/**
 * @name Formats
 * @{
 */

/** Four characters as a number, the first one in the lowest byte. */
#define NYXUS_FOURCC(a, b, c, d) \
    ((uint32_t)(a) | (uint32_t)(b) << 8 | (uint32_t)(c) << 16 | (uint32_t)(d) << 24)

/** Two bytes a pixel, row after row. Cameras announce it as "YUY2". */
#define NYXUS_FOURCC_YUYV NYXUS_FOURCC('Y', 'U', 'Y', 'V')
/** A JPEG file a frame. */
#define NYXUS_FOURCC_MJPEG NYXUS_FOURCC('M', 'J', 'P', 'G')

/** The most rates of a size that are listed. */
enum { NYXUS_MOST_INTERVALS = 32 };

/** A size of a format, with its rates. Intervals are the time of a frame in units of 100 ns. */
typedef struct NyStreamFormat {
    uint32_t fourcc;         /**< NYXUS_FOURCC_*, or as the camera announces it: "NV12", "H264" */
    uint32_t width;          /**< pixels */
    uint32_t height;         /**< pixels */
    uint32_t interval_count; /**< of intervals; 0: any from interval_min to interval_max */
    uint32_t intervals[NYXUS_MOST_INTERVALS]; /**< in the camera's order */
    uint32_t interval_min;                    /**< the shortest */
    uint32_t interval_max;                    /**< the longest */
    uint32_t interval_step;                   /**< 0 where there are single intervals */
} NyStreamFormat;

/**
 * What the camera streams, by its descriptors, in their order.
 *
 * @param pDevObj   probed device, borrowed for the call
 * @param formats   receives up to capacity records; may be NULL when that is 0
 * @param capacity  records
 * @return how many there are, which may be more than capacity; -1026, -1036 for NULL; -4 when the
 *         camera is not open
 *
 * Does not block, and asks the camera nothing. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_list_formats(NyDevice* pDevObj, NyStreamFormat* formats, uint32_t capacity);

/** @} */

/**
 * @name Streams
 * @{
 */

/** A stream as the caller wants it. */
typedef struct NyStreamRequest {
    uint32_t fourcc;   /**< one of a NyStreamFormat */
    uint32_t width;    /**< pixels */
    uint32_t height;   /**< pixels */
    uint32_t interval; /**< 100 ns; the nearest one is taken, within 1 %. 0: the first that the
                            camera offers */
} NyStreamRequest;

/** A frame that came. YUYV is complete, MJPEG begins as a JPEG file does; all others are as the
 *  camera sent them. */
typedef struct NyStreamFrame {
    const uint8_t* data; /**< borrowed: see who hands it out */
    size_t size;         /**< bytes */
    uint32_t fourcc;     /**< as in the request */
    uint32_t width;      /**< pixels */
    uint32_t height;     /**< pixels */
    uint32_t sequence;   /**< a gap tells of frames that were lost or dropped */
    uint64_t time_us;    /**< CLOCK_MONOTONIC when it had come as a whole, microseconds */
} NyStreamFrame;

/** What a stream has settled on, and what became of its frames. */
typedef struct NyStreamStatus {
    uint32_t interval;      /**< 100 ns */
    uint32_t payload_bytes; /**< of a transfer (bulk), or of a packet at most (isochronous) */
    uint64_t frames;        /**< that were good */
    uint64_t incomplete;    /**< that were dropped: too short, or no JPEG */
    uint64_t late;          /**< that were good, and dropped since nobody took them in time */
} NyStreamStatus;

/** A stream; opaque. */
typedef struct NyStream NyStream;

/** Receives a frame, on libuvc's streaming thread; the frame is borrowed for the call. It must
 *  neither stop the stream nor throw. */
typedef void (*NyStreamCallback)(const NyStreamFrame* frame, void* user);

/**
 * Start a stream.
 *
 * @param pDevObj   probed device, borrowed until the stream is stopped
 * @param request   borrowed for the call
 * @param callback  called for each frame; NULL: take them with nyxus_stream_next()
 * @param user      handed to the callback; has to live until the stream is stopped
 * @param stream    receives the stream, NULL on failure; to be freed with nyxus_stream_free()
 * @return 0; -1026, -1036 for NULL; else a negative uvc_error, with more about it in nyxus_errmsg:
 *         -51 (invalid mode) for what the camera does not offer, -11 (no memory) where the kernel
 *         lends too little for it (the message tells what to do), -6 (busy) while the camera
 *         streams, -4 (no device) when it is gone or not open
 *
 * Blocks for the negotiation's transfers. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_stream_start(NyDevice* pDevObj, const NyStreamRequest* request,
                                     NyStreamCallback callback, void* user, NyStream** stream);

/**
 * Wait for the next frame. Up to 4 wait for being taken; when one more comes, the oldest is dropped
 * and counted as late.
 *
 * @param stream      started without a callback
 * @param timeout_ms  the longest wait, milliseconds; 0: what is there
 * @param frame       filled on success; its data is valid until the next call for this stream, or
 *                    nyxus_stream_free()
 * @return 0; bare: -7 (time-out) when none came, -4 when the camera is gone, -10 (interrupted) when
 *         the stream has been stopped; -1036 for NULL, or for a stream with a callback
 *
 * May be called by one thread while another uses the device, or stops the stream: the wait ends
 * then.
 */
NYXUS_API int32_t nyxus_stream_next(NyStream* stream, uint32_t timeout_ms, NyStreamFrame* frame);

/**
 * How a stream does; also after its end.
 *
 * @return 0; -1036 for NULL
 *
 * Thread-safe, as long as the stream is not freed.
 */
NYXUS_API int32_t nyxus_stream_status(NyStream* stream, NyStreamStatus* status);

/**
 * Stop a stream; its last frame and its status may still be looked at. stopVideoStream(),
 * close_libuvc() and DEV_DeleteObject() do the same to the stream of their camera. Calling it
 * again, or for NULL, does nothing.
 *
 * No call of the callback is under way or follows, and the camera may go at any moment: see
 * stopVideoStream(), also for how long it may take. One thread at a time per device.
 */
NYXUS_API void nyxus_stream_stop(NyStream* stream);

/**
 * Stop a stream and free it; no call for it may be under way. NULL is allowed. The device object
 * may have been deleted before. Of a stream whose camera went, a few hundred bytes are never freed.
 *
 * One thread at a time per device.
 */
NYXUS_API void nyxus_stream_free(NyStream* stream);

/** @} */

/**
 * @name Standard controls
 * Those that USB cameras have in common: of the camera terminal and of the processing unit.
 * @{
 */

/** Standard controls; units are those of the USB video class. */
enum {
    NYXUS_CONTROL_BRIGHTNESS,
    NYXUS_CONTROL_CONTRAST,
    NYXUS_CONTROL_CONTRAST_AUTO, /**< 0 or 1 */
    NYXUS_CONTROL_HUE,           /**< 1/100 degree */
    NYXUS_CONTROL_HUE_AUTO,      /**< 0 or 1 */
    NYXUS_CONTROL_SATURATION,
    NYXUS_CONTROL_SHARPNESS,
    NYXUS_CONTROL_GAMMA,                    /**< 1/100 */
    NYXUS_CONTROL_WHITE_BALANCE,            /**< kelvin */
    NYXUS_CONTROL_WHITE_BALANCE_AUTO,       /**< 0 or 1 */
    NYXUS_CONTROL_WHITE_BALANCE_BLUE,       /**< of the components */
    NYXUS_CONTROL_WHITE_BALANCE_RED,        /**< of the components */
    NYXUS_CONTROL_WHITE_BALANCE_PARTS_AUTO, /**< of the components: 0 or 1 */
    NYXUS_CONTROL_BACKLIGHT_COMPENSATION,
    NYXUS_CONTROL_GAIN,
    NYXUS_CONTROL_POWER_LINE_FREQUENCY, /**< 0 off, 1 50 Hz, 2 60 Hz, 3 automatic */
    NYXUS_CONTROL_DIGITAL_ZOOM,
    NYXUS_CONTROL_DIGITAL_ZOOM_LIMIT,
    NYXUS_CONTROL_EXPOSURE_MODE,     /**< 1 manual, 2 automatic, 4 shutter, 8 aperture priority; the
                                          step is the sum of those that there are */
    NYXUS_CONTROL_EXPOSURE_PRIORITY, /**< 0 constant rate, 1 the rate may change */
    NYXUS_CONTROL_EXPOSURE_TIME,     /**< 100 microseconds */
    NYXUS_CONTROL_FOCUS,             /**< millimetres */
    NYXUS_CONTROL_FOCUS_AUTO,        /**< 0 or 1 */
    NYXUS_CONTROL_IRIS,              /**< 1/100 of the f-number */
    NYXUS_CONTROL_ZOOM,
    NYXUS_CONTROL_PAN,     /**< seconds of arc */
    NYXUS_CONTROL_TILT,    /**< seconds of arc */
    NYXUS_CONTROL_ROLL,    /**< degrees */
    NYXUS_CONTROL_PRIVACY, /**< 0 or 1 */
    NYXUS_CONTROL_COUNT
};

/** A control, as the camera has it now. */
typedef struct NyControl {
    uint32_t id;           /**< NYXUS_CONTROL_* */
    const char* name;      /**< such as "white_balance"; the library's, for ever */
    int64_t minimum;       /**< smallest value */
    int64_t maximum;       /**< largest value */
    int64_t step;          /**< distance of values, at least 1 */
    int64_t default_value; /**< after a start of the camera */
    int64_t value;         /**< as it is */
} NyControl;

/**
 * The name of a standard control: that of NyControl, without a camera.
 *
 * @param id  NYXUS_CONTROL_*
 * @return the library's, for ever; NULL for a number that names none
 *
 * Does not block. Thread-safe.
 */
NYXUS_API const char* nyxus_control_name(uint32_t id);

/**
 * The standard controls that the camera announces and answers for.
 *
 * @param pDevObj   probed device, borrowed for the call
 * @param controls  receives up to capacity records; may be NULL when that is 0
 * @param capacity  records; NYXUS_CONTROL_COUNT are always enough
 * @return how many there are, which may be more than capacity; -1026, -1036 for NULL; -16388 when
 *         the camera is gone or not open
 *
 * Blocks for up to 5 transfers a control. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_list_controls(NyDevice* pDevObj, NyControl* controls, uint32_t capacity);

/**
 * One standard control.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param id       NYXUS_CONTROL_*
 * @param control  filled on success
 * @return 0; -1026, -1036 for NULL; -1036 for a control that the camera lacks; else the transfer's
 *         failure
 *
 * Blocks for up to 5 transfers. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_get_control(NyDevice* pDevObj, uint32_t id, NyControl* control);

/**
 * Set a standard control. The camera may take the next value that it has.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param id       NYXUS_CONTROL_*
 * @param value    minimum to maximum of nyxus_get_control(); -1036 beyond them, with both in
 *                 nyxus_errmsg
 * @return as nyxus_get_control(); -16393 also where the camera refuses it in its present mode
 *
 * Blocks for up to 6 transfers. One thread at a time per device.
 */
NYXUS_API int32_t nyxus_set_control(NyDevice* pDevObj, uint32_t id, int64_t value);

/** @} */

NYXUS_END_DECLS

#endif
