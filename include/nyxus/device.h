/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The device object: one probed camera.
 *
 * One thread at a time per device; the object holds no lock. Threads may create, use and delete
 * objects of different cameras at the same time. What they share is to be set up before and then
 * left alone: the settings (nyxus/config.h), the trace mask, the catalogues, a libuvc handle of the
 * application (nyxus/video.h). The images (nyxus/image.h) and the execution timer (nyxus/trace.h)
 * serve one thread at a time. Control lengths belong to the object: nyxus/xu.h.
 */
#ifndef NYXUS_DEVICE_H
#define NYXUS_DEVICE_H

#include <nyxus/chip.h>
#include <nyxus/flash.h>
#include <nyxus/usb.h>
#include <nyxus/video.h>
#include <nyxus/xu.h>

NYXUS_BEGIN_DECLS

/** External ROM types (bExtRomType). Smaller values are EEPROMs, in units of 128 bytes. */
enum { EXTROM_TYPE_SPI = 0xFF };

/**
 * The per-camera record. Read any field; the library owns and writes them. Programs may make one of
 * their own for DEV_Init(): all of it 0 at first. It has 1024 bytes (on 64-bit machines) in every
 * libNYXUS.so.2 from 1.0.0 of the product on.
 */
struct NyDevice {
    uint8_t state;                         /**< 1 since creation */
    int32_t index;                         /**< -1 */
    libusb_device* usb_device;             /**< as given to DEV_CreateObjectUsb() */
    libusb_device_handle* usb_handle;      /**< used by every transfer */
    uvc_context_t* uvc_context;            /**< of this object alone */
    uvc_device_handle_t* uvc_handle;       /**< NULL when libuvc could not open the camera */
    uvc_stream_ctrl_t stream_ctrl;         /**< negotiated by the start functions */
    StreamCallbackRecord* stream_callback; /**< set by startVideoStream(); invalid after
                                                 stopVideoStream(), though not cleared */
    char szIntFwVer[11];                   /**< internal firmware version; may lack a terminator */
    NyBackend oBackend;                    /**< matched row of backend_list */
    NyXuVersion oXuCtrlVer;                /**< as the camera sent it */
    uint8_t xFeatureXU;                    /**< firmware has an XU version record */
    uint8_t xFeatureEM;                    /**< firmware has the memory extension */
    uvc_xu_ctrl* xu_table;                 /**< the control table; shared with other objects */
    int32_t xu_table_count;                /**< its rows */
    NyFirmwareStatus oFwStatus;            /**< read by the probe */
    uint16_t wExtSensorApId;               /**< sensor application id */
    uint16_t wExtFwVer;                    /**< external firmware version */
    char szSetfileVer[11];                 /**< set-file version; may lack a terminator */
    NyFlashInfo oFlashInfo;                /**< identified SPI flash */
    uint8_t xSpiMode;                      /**< 1: SPI flash, 0: I2C EEPROM */
    uint8_t xModuleMode;                   /**< 1: external firmware or set-file present */
    uint8_t bExtRomType;   /**< EXTROM_TYPE_SPI or EEPROM size / 128, at most 0x80 */
    uint32_t dwExtRomSize; /**< bytes: 0x10000 for SPI flash, at most 0x8000 else */

    uint8_t device_gone;              /**< private: the latest claim or transfer said NO_DEVICE */
    uint8_t stream_record_owned;      /**< private: who frees what stream_callback leads to */
    uint8_t session_closed;           /**< private: libuvc's handle has been closed or abandoned */
    uint8_t stream_running;           /**< private: libuvc streams */
    uint8_t control_length_known[32]; /**< private: bit per selector: the camera announced one */
    uint16_t control_lengths[256];    /**< private: announced lengths, by selector */

    /** private: see nyxus/extensions.h */
    void (*line_callback)(NyDevice*, uint32_t, const char*, size_t, void*);
    void* line_user; /**< private: for line_callback */
    /** private: see nyxus/extensions.h */
    void (*progress_callback)(NyDevice*, uint64_t, uint64_t, void*);
    void* progress_user; /**< private: for progress_callback */
    /** private: whose events the application handles; NULL where libuvc's thread does */
    libusb_context* usb_context;
    uint64_t reserved[23]; /**< private: room for more, so that the record keeps its size */
};

/**
 * Open and probe a camera.
 *
 * The camera is opened through libuvc, so that video and controls share one USB handle; a kernel
 * driver is detached for as long as the object lives.
 *
 * @param device  from libusb_get_device_list(); borrowed, keep a reference while the object lives
 * @return the probed object, NULL on failure. To learn why, set nyxus_rv and nyxus_errno to 0
 * before. A nyxus_rv that is not 0 then is the probe's status: see DEV_Init(). Otherwise
 * nyxus_errno tells of the driver type, of memory, or of libusb. With both 0, libuvc could not open
 * the device (another program has it, no permission: libuvc says so on standard error) or does not
 * list it (just unplugged, or no camera); libusb_open() and libusb_claim_interface() of interface 0
 * tell which
 *
 * The memory of an object that was handed out is never freed, not even by DEV_DeleteObject(): 1024
 * bytes a camera.
 * Blocks for about 30 transfers. Thread-safe for different cameras.
 */
NYXUS_API NyDevice* DEV_CreateObjectUsb(libusb_device* device);

/**
 * Probe a camera whose USB handle is open. DEV_CreateObjectUsb() does this; call it yourself only
 * on an object that you set up by hand, for instance with oFlashInfo.bCmdRDID preset to 0x9F to
 * reach a camera whose ROM is blank.
 *
 * @return 0 or positive; 3 for an unknown chip (a failure); -1026 for NULL; -1030 when the ROM
 *         holds no firmware and the flash's read-ID command is unknown, or when the camera's table
 *         lacks a control of the probe (the message tells which); -1029 for a preset bCmdRDID that
 *         is no read-ID command; -9 (bare) for a read-ID command that does not end; else a
 *         transfer's failure
 *
 * Calling it again asks the camera for everything again, the lengths of its controls included;
 * where the check of the lengths fails half way, the others stay as they were.
 *
 * Blocks for about 30 transfers. One thread at a time per device.
 */
NYXUS_API int32_t DEV_Init(NyDevice* pDevObj);

/**
 * Close a camera. NULL is allowed. Do not use the object afterwards, but for looking at what the
 * probe found.
 *
 * The register XDATA_SG_SNAPSHOT_MODE is set to 1 before. Stop a stream yourself: the record behind
 * stream_callback is not freed otherwise. What is cleared: devh_global, whose handle is closed in
 * the place of the object's own when the application has set one, and the callbacks of the object
 * (nyxus/extensions.h). usb_handle, uvc_handle and uvc_context keep their values and are no longer
 * valid; usb_device is the caller's to unreference.
 *
 * A stream that runs is stopped, as by stopVideoStream(). When the camera is gone (unplugged), or
 * goes meanwhile, libuvc's handle is abandoned instead of closed: libuvc and libusb would abort the
 * process.
 *
 * Blocks for a transfer, and until libuvc's event thread has ended. One thread at a time per
 * device; one thread at a time where devh_global is set.
 */
NYXUS_API void DEV_DeleteObject(NyDevice* pDevObj);

NYXUS_END_DECLS

#endif
