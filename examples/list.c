/* SPDX-License-Identifier: Apache-2.0 */
/* Lists the cameras and says what each of them is and runs.
 *
 *     cc list.c -o list $(pkg-config --cflags --libs nyxus)
 */
#include "open_camera.h"

static void identify(libusb_device* device)
{
    printf("camera %d:%d  ", libusb_get_bus_number(device), libusb_get_device_address(device));
    fflush(stdout);
    NyDevice* camera = open_device(device);
    if (camera == NULL)
        return;
    printf("%s (%s), ", camera->oBackend.name, IC_FAMILY_STR[camera->oBackend.family]);
    /* Version texts of 11 bytes need not end with a zero. */
    printf("internal firmware %.11s, ", camera->szIntFwVer);
    if (camera->oFwStatus.xExtFwExist)
        printf("runs external firmware 0x%04X, ", camera->wExtFwVer);
    if (camera->xSpiMode) {
        printf("SPI flash %.32s\n", camera->oFlashInfo.szName);
    } else {
        printf("EEPROM of %u bytes\n", camera->dwExtRomSize);
    }
    DEV_DeleteObject(camera);
}

int main(void)
{
    libusb_device** devices;
    int cameras = 0;

    check("libusb", libusb_init(NULL));
    ssize_t count = libusb_get_device_list(NULL, &devices);
    check("listing the devices", (int32_t)count);
    for (ssize_t i = 0; i < count; ++i) {
        if (!is_camera(devices[i]))
            continue;
        identify(devices[i]);
        ++cameras;
    }
    libusb_free_device_list(devices, 1);
    libusb_exit(NULL);
    return cameras > 0 ? 0 : 1;
}
