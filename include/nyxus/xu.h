/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The vendor extension unit: its controls, the tables of the firmware generations, and the query
 * that goes through the camera's table.
 *
 * The camera decides how long a control is, and every object keeps what its camera announced when
 * it was probed. The tables are process-wide and hold the lengths of the camera that was probed
 * last. A transfer has the object's own length as long as the table holds one that a probe of
 * another camera, or requireXUSizeTable() on it, put there. Any other length in the table is
 * obeyed: this camera's, or one that the host wrote. nyxus_control_length() (nyxus/extensions.h)
 * tells which it is.
 *
 * Write to a table before other threads use the library: a probe may be correcting it.
 */
#ifndef NYXUS_XU_H
#define NYXUS_XU_H

#include <nyxus/usb.h>

NYXUS_BEGIN_DECLS

/** Controls of the vendor unit; the number is the selector. */
enum {
    ZRV_XU_FLASH_BLOCK = 0x02,
    ZRV_XU_EXT_ROM = 0x03,
    ZRV_XU_FLIP = 0x04,
    ZRV_XU_MIRROR = 0x05,
    ZRV_XU_REG = 0x06,
    ZRV_XU_SENSOR = 0x07,
    ZRV_XU_MCU = 0x08,
    ZRV_XU_INT_ROM = 0x09,
    ZRV_XU_HW_VER = 0x0A,
    ZRV_XU_EXT_ROM_TYPE = 0x0B,
    ZRV_XU_SETFILE_VER = 0x0C,
    ZRV_XU_INT_FW_VER = 0x0D,
    ZRV_XU_WRITE_PROTECT = 0x0E,
    ZRV_XU_ONE_WIRE = 0x0F,
    ZRV_XU_EXT_ROM_CHKSUM = 0x11,
    ZRV_XU_SPI_STATUS = 0x12,
    ZRV_XU_OSD = 0x13,
    ZRV_XU_JPG_GAIN = 0x15,
    ZRV_XU_VERSION = 0x16,
    ZRV_XU_Read_EXT_ROM_512 = 0x18,
    ZRV_XU_DEV_STATUS = 0x19,
    ZRV_XU_FLASH_INFO = 0x1B,
    ZRV_XU_FLASH_RD_ID = 0x1C,
};

/** One control of a table. */
typedef struct uvc_xu_ctrl {
    char name[32];    /**< NUL-terminated */
    uint8_t selector; /**< identifies the control in every call */
    uint8_t reserved; /**< 0 */
    uint16_t length;  /**< payload bytes; the probe overwrites it with what the camera says */
} uvc_xu_ctrl;

/** Controls of firmware without a version record. As with all of these tables, the probe corrects
 *  the lengths in place. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_ver_none[];
/** Rows of uvc_xu_table_ver_none. */
NYXUS_DATA int32_t uvc_xu_table_ver_none_count;
/** Controls of XU version 0x0002. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_ver_0002[];
/** Rows of uvc_xu_table_ver_0002. */
NYXUS_DATA int32_t uvc_xu_table_ver_0002_count;
/** Controls of XU version 0x0003. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_ver_0003[];
/** Rows of uvc_xu_table_ver_0003. */
NYXUS_DATA int32_t uvc_xu_table_ver_0003_count;
/** Controls of XU version 0x0100. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_ver_0100[];
/** Rows of uvc_xu_table_ver_0100. */
NYXUS_DATA int32_t uvc_xu_table_ver_0100_count;
/** Controls of XU version 0x0101. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_table_ver_0101[];
/** Rows of uvc_xu_table_ver_0101. */
NYXUS_DATA int32_t uvc_xu_table_ver_0101_count;

/** A generation and its table. */
typedef struct NyXuTable {
    uint16_t version;   /**< XU version; 0xFFFF: firmware without a version record */
    uvc_xu_ctrl* table; /**< its controls */
    int32_t count;      /**< rows of the table */
} NyXuTable;

/** Searched from the first row on. */
NYXUS_DATA NyXuTable xu_table_list[];
/** Rows of xu_table_list. */
NYXUS_DATA int32_t xu_table_list_count;

/** The two controls that are read without a table, always 11 bytes long. */
NYXUS_DATA uvc_xu_ctrl uvc_xu_ctrl_ver_info[2];

/** Record of ZRV_XU_VERSION as the camera sends it, little-endian. */
typedef struct __attribute__((packed)) NyXuVersion {
    uint16_t wPrefix;    /**< "XU", 0x5558 */
    uint16_t wVersion;   /**< key of xu_table_list */
    uint16_t wExMemTag;  /**< "EM", 0x4D45: the firmware has the memory extension */
    uint16_t wExMemVer;  /**< version of the memory extension */
    uint8_t reserved[3]; /**< not used */
} NyXuVersion;

/**
 * Read the XU version record.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param pRecord  receives 11 bytes
 * @return 0; -1026, -1036 for NULL; else the transfer's failure (older firmware stalls: -16393)
 *
 * Blocks for a transfer. One thread at a time per device.
 */
NYXUS_API int32_t XuGetVersion(NyDevice* pDevObj, NyXuVersion* pRecord);

/**
 * Read the internal firmware version, text that begins with the chip's signature.
 *
 * @param pDevObj  probed device, borrowed for the call
 * @param pText    receives 11 bytes; without terminator when the text is 11 characters long
 * @return 0; -1026, -1036 for NULL; else the transfer's failure
 *
 * Blocks for a transfer. One thread at a time per device.
 */
NYXUS_API int32_t XuGetIntFwVer(NyDevice* pDevObj, char* pText);

/**
 * Read the XU version and choose the camera's control table (part of the probe).
 *
 * Fills oXuCtrlVer, xFeatureXU, xFeatureEM and the table of the object. A camera without a version
 * record, or without the memory extension, gets uvc_xu_table_ver_none. An unknown version with the
 * memory extension leaves the table of the object as it was.
 *
 * @return 0; -1026 for NULL
 *
 * Blocks for a transfer. One thread at a time per device.
 */
NYXUS_API int32_t MP_QueryXuVersion(NyDevice* pDevObj);

/**
 * Ask the camera for the length of every control of a table, and correct the table (part of the
 * probe). Stops at the first control that the camera does not answer for. Objects of other cameras
 * go on with the lengths that their own cameras announced.
 *
 * @param handle  open USB handle
 * @param bUnit   extension unit
 * @param table   rows to correct, in writable memory: any exported table is, a host's may not be
 * @param count   number of rows; below 1: nothing to do
 * @return 0; the failure of xioctl_usb(); -1036 for a NULL table
 *
 * Blocks for count transfers. Thread-safe as libusb is; other threads may use the same table for
 * cameras of theirs.
 */
NYXUS_API int32_t requireXUSizeTable(libusb_device_handle* handle, uint8_t bUnit,
                                     uvc_xu_ctrl* table, int32_t count);

/**
 * One request to a vendor control, checked and sized by the camera's table.
 *
 * @param pDevObj    probed device, borrowed for the call
 * @param bSelector  ZRV_XU_*; only the low byte counts
 * @param bRequest   UVC_GET_CUR or UVC_SET_CUR
 * @param pData      exactly as many bytes as nyxus_control_length() says: the *camera* decides, and
 *                   pDevObj->xu_table may hold the length of another one
 * @return 0; -1030 when the table lacks the control (nothing is sent); -1026, -1036 for NULL; else
 *         the transfer's failure
 *
 * Blocks for a transfer. One thread at a time per device.
 */
NYXUS_API int32_t UvcXuCtrlQueryNYXU(NyDevice* pDevObj, int32_t bSelector, uint8_t bRequest,
                                     uint8_t* pData);

/**
 * Print a table on standard error when failures are traced (NY_TRACE_ERROR).
 *
 * Thread-safe.
 */
NYXUS_API void print_xu_table(const uvc_xu_ctrl* table, int32_t count);

NYXUS_END_DECLS

#endif
