/* SPDX-License-Identifier: Apache-2.0 */
/* Keeps what the ROM of a camera holds in a file, and turns the picture of the camera round.
 *
 *     cc backup.c -o backup $(pkg-config --cflags --libs nyxus)
 *     ./backup FILE [SERIAL]
 */
#include "open_camera.h"

enum { ROM_BYTES = 32768 };

int main(int argc, char** argv)
{
    uint8_t flip = 0;

    if (argc != 2 && argc != 3) {
        fprintf(stderr, "usage: backup FILE [SERIAL]\n");
        return 2;
    }
    NyDevice* camera = open_camera(argc == 3 ? argv[2] : NULL);
    /* An EEPROM may be smaller, and has nothing behind its end. */
    uint32_t size = camera->dwExtRomSize < ROM_BYTES ? camera->dwExtRomSize : ROM_BYTES;
    check("dumping the ROM", MP_FwDump(camera, argv[1], size)); /* '#' on standard error */
    printf("%u bytes are in %s\n", size, argv[1]);

    check("reading the flip", XuGetFlip(camera, &flip));
    check("flipping", XuSetFlip(camera, flip == 0));
    check("reading the flip", XuGetFlip(camera, &flip));
    printf("the picture is %s\n", flip != 0 ? "upside down" : "upright");
    DEV_DeleteObject(camera);
    return 0;
}
