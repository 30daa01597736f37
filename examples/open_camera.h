/* SPDX-License-Identifier: Apache-2.0 */
/* What the C examples share: opening the camera that is plugged in. */
#ifndef OPEN_CAMERA_H
#define OPEN_CAMERA_H

#include <nyxus/nyxus.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Other devices of these makers have it, too; the probe finds out. */
#define CAMERA_VENDOR 0x1162

static inline int is_camera(libusb_device* device)
{
    struct libusb_device_descriptor descriptor;
    return libusb_get_device_descriptor(device, &descriptor) == 0 &&
           descriptor.idVendor == CAMERA_VENDOR;
}

/** Ends the program when a call has failed. Few failures come without a message. */
static inline void check(const char* doing, int32_t status)
{
    if (status >= 0)
        return;
    fprintf(stderr, "%s: %s (%d)\n", doing, nyxus_errno == status ? nyxus_errmsg : "failed",
            (int)status);
    exit(1);
}

/** Whether the camera has this serial number; any has that of NULL. */
static inline int has_serial(libusb_device* device, const char* serial)
{
    struct libusb_device_descriptor descriptor;
    libusb_device_handle* handle;
    unsigned char text[128] = "";

    if (serial == NULL)
        return 1;
    if (libusb_get_device_descriptor(device, &descriptor) != 0 || libusb_open(device, &handle) != 0)
        return 0;
    libusb_get_string_descriptor_ascii(handle, descriptor.iSerialNumber, text, sizeof text);
    libusb_close(handle);
    return strcmp((char*)text, serial) == 0;
}

/** DEV_CreateObjectUsb(), which says nothing of a camera that libuvc cannot open: says why. */
static inline NyDevice* open_device(libusb_device* device)
{
    libusb_device_handle* handle;

    nyxus_errno = 0;
    NyDevice* camera = DEV_CreateObjectUsb(device);
    if (camera != NULL)
        return camera;
    if (nyxus_errno != 0) {
        fprintf(stderr, "cannot open the camera: %s\n", nyxus_errmsg);
        return NULL;
    }
    int status = libusb_open(device, &handle);
    if (status == 0) {
        libusb_set_auto_detach_kernel_driver(handle, 1);
        status = libusb_claim_interface(handle, 0);
        libusb_close(handle);
    }
    fprintf(stderr, "cannot open the camera: %s\n",
            status == 0 ? "it is none that this library knows" : libusb_strerror(status));
    return NULL;
}

/** Opens the camera of this serial number, of NULL the first one that is listed, or ends the
 * program. Hand it to DEV_DeleteObject() at the end. */
static inline NyDevice* open_camera(const char* serial)
{
    libusb_device** devices;
    libusb_device* chosen = NULL;

    check("libusb", libusb_init(NULL));
    ssize_t count = libusb_get_device_list(NULL, &devices); /* in no particular order */
    check("listing the devices", (int32_t)count);
    for (ssize_t i = 0; i < count && chosen == NULL; ++i) {
        if (is_camera(devices[i]) && has_serial(devices[i], serial))
            chosen = libusb_ref_device(devices[i]); /* the object borrows it, to the end */
    }
    libusb_free_device_list(devices, 1);
    if (chosen == NULL)
        fprintf(stderr, "no such camera is plugged in\n");
    NyDevice* camera = chosen == NULL ? NULL : open_device(chosen);
    if (camera == NULL)
        exit(1);
    return camera;
}

#endif
