/* SPDX-License-Identifier: Apache-2.0 */
/* Programs firmware into the camera and reads it back.
 *
 *     cc upgrade.c -o upgrade $(pkg-config --cflags --libs nyxus)
 *     ./upgrade firmware.bin
 *
 * The library tells its progress on standard error: milestones, if they are asked for, and a '#'
 * per exchange in any case.
 */
#include "open_camera.h"

#include <string.h>

enum { SLICE = 256, EEPROM_WRITE_CYCLE_MS = 5 };

/** Reads as much as the image has, telling its own progress. */
static void verify(NyDevice* camera)
{
    uint8_t rom[NYXUS_FW_BIN_CAPACITY];

    for (uint32_t done = 0; done < nyxus_fw_bin_size;) {
        uint32_t left = nyxus_fw_bin_size - done;
        uint32_t length = left < SLICE ? left : SLICE; /* short transfers print nothing */
        check("reading back", XuExtRomRead(camera, done, length, rom + done));
        done += length;
        printf("\rverifying %3u%%", done * 100 / nyxus_fw_bin_size);
        fflush(stdout);
    }
    if (memcmp(rom, nyxus_fw_bin, nyxus_fw_bin_size) != 0) {
        printf("\nthe ROM does not hold what was written; upgrade again\n");
        exit(1);
    }
    printf("\n");
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: upgrade IMAGE\n");
        return 2;
    }
    ny_trace_param |= NY_TRACE_STEP;
    nyxus_write_cycle_time = EEPROM_WRITE_CYCLE_MS; /* EEPROMs lose faster writes */

    NyDevice* camera = open_camera(NULL);
    nyxus_errno = 0; /* only this tells of a file that cannot be loaded */
    MP_FwLoad(argv[1]);
    check("loading the image", nyxus_errno);
    /* An image that is for another chip or has a wrong size is refused before anything is written.
     */
    check("upgrading", MP_FwUpgrade(camera, NULL));
    verify(camera);
    printf("upgraded; the camera restarts with the new firmware\n");
    (void)XU_ChipReset(camera); /* fails when the chip is quicker than its answer */
    DEV_DeleteObject(camera);
    return 0;
}
