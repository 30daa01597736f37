/* SPDX-License-Identifier: Apache-2.0 */
#include <nyxus/nyxus.h>

#include <stdio.h>

int main(void)
{
    libusb_device** devices = NULL;
    if (libusb_init(NULL) != 0 || libusb_get_device_list(NULL, &devices) < 1)
        return 1;
    NyDevice* camera = DEV_CreateObjectUsb(devices[0]);
    if (camera == NULL) {
        fprintf(stderr, "%s\n", nyxus_errmsg);
        return 1;
    }
    printf("firmware 0x%04X\n", camera->wExtFwVer);
    DEV_DeleteObject(camera);
    libusb_free_device_list(devices, 1);
    libusb_exit(NULL);
    return 0;
}
