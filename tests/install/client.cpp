// SPDX-License-Identifier: Apache-2.0
#include <nyxus/nyxus.h>

#include <cstdio>
#include <memory>

int main()
{
    libusb_device** devices = nullptr;
    if (libusb_init(nullptr) != 0 || libusb_get_device_list(nullptr, &devices) < 1)
        return 1;
    {
        const std::unique_ptr<NyDevice, decltype(&DEV_DeleteObject)> camera(
            DEV_CreateObjectUsb(devices[0]), DEV_DeleteObject);
        if (camera == nullptr) {
            std::fprintf(stderr, "%s\n", nyxus_errmsg);
            return 1;
        }
        std::printf("firmware 0x%04X\n", camera->wExtFwVer);
    }
    libusb_free_device_list(devices, 1);
    libusb_exit(nullptr);
}
