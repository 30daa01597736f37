/* SPDX-License-Identifier: Apache-2.0 */
/* What the C examples share: opening the camera that is plugged in. */
#ifndef OPEN_CAMERA_H
#define OPEN_CAMERA_H

#include <nyxus/nyxus.h>

#include <stdio.h>
#include <stdlib.h>

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

/** Opens the first camera, or ends the program. Hand it to DEV_DeleteObject() at the end. */
static inline NyDevice* open_camera(void)
{
    libusb_device** devices;
    NyDevice* camera = NULL;
    int found = 0;

    check("libusb", libusb_init(NULL));
    ssize_t count = libusb_get_device_list(NULL, &devices);
    for (ssize_t i = 0; i < count && !found; ++i) {
        if (!is_camera(devices[i]))
            continue;
        found = 1;
        /* The object borrows the device: it keeps a reference until the program ends. */
        camera = DEV_CreateObjectUsb(libusb_ref_device(devices[i]));
    }
    if (count >= 0)
        libusb_free_device_list(devices, 1);
    if (camera == NULL) {
        fprintf(stderr, "%s\n",
                !found                    ? "no camera is plugged in"
                : nyxus_errmsg[0] != '\0' ? nyxus_errmsg
                                          : "the camera cannot be opened");
        exit(1);
    }
    return camera;
}

#endif
