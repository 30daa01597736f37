/* SPDX-License-Identifier: Apache-2.0 */
/* Programs firmware together with accessory (MFi) information that carries a serial number.
 *
 *     cc serial_number.c -o serial_number $(pkg-config --cflags --libs nyxus)
 *     ./serial_number firmware.bin mfi.bin VELKA_0009_LINK
 */
#include "open_camera.h"

#include <string.h>

enum { SERIAL_LENGTH_FIELD = 0x0E, DESCRIPTOR_HEAD = 2, EEPROM_WRITE_CYCLE_MS = 5 };

/** The image is made for serial numbers of one length: a USB string descriptor, in UTF-16. */
static size_t serial_length(const uint8_t* mfi)
{
    unsigned bytes = (unsigned)mfi[SERIAL_LENGTH_FIELD] << 8 | mfi[SERIAL_LENGTH_FIELD + 1];
    return bytes > DESCRIPTOR_HEAD ? (bytes - DESCRIPTOR_HEAD) / 2 : 0;
}

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: serial_number IMAGE MFI_IMAGE SERIAL\n");
        return 2;
    }
    nyxus_errno = 0; /* only this tells of a file that cannot be loaded */
    MP_FwLoad(argv[1]);
    check("loading the image", nyxus_errno);
    memset(nyxus_mfi_bin, 0xFF, sizeof nyxus_mfi_bin);
    check("loading the MFi image",
          MP_BinLoadFromFile(nyxus_mfi_bin, sizeof nyxus_mfi_bin, argv[2]));
    nyxus_mfi_bin_size = sizeof nyxus_mfi_bin; /* with the blank room for a serial number */

    if (strlen(argv[3]) != serial_length(nyxus_mfi_bin)) {
        fprintf(stderr, "the MFi image is made for serial numbers of %zu characters\n",
                serial_length(nyxus_mfi_bin));
        return 1;
    }
    check("patching the serial number", MP_BinSetSerialNum(nyxus_mfi_bin, argv[3]));
    if (nyxus_fw_bin_size > NYXUS_MFI_ROM_ADDR) {
        fprintf(stderr, "the firmware would overwrite the MFi image\n");
        return 1;
    }

    nyxus_write_cycle_time = EEPROM_WRITE_CYCLE_MS; /* EEPROMs lose faster writes */
    NyDevice* camera = open_camera(NULL);
    check("upgrading", MP_FwUpgrade(camera, nyxus_mfi_bin));
    printf("programmed serial number %s\n", argv[3]);
    DEV_DeleteObject(camera);
    return 0;
}
