/* SPDX-License-Identifier: Apache-2.0 */
/* Sets the camera's clock to the local time, and shows it over the picture with a line of text.
 *
 *     cc osd_clock.c -o osd_clock $(pkg-config --cflags --libs nyxus)
 *     ./osd_clock 'Front door'
 */
#include "open_camera.h"

#include <string.h>
#include <time.h>

int main(int argc, char** argv)
{
    uint8_t text[16] = {0}; /* a line is always 16 bytes */
    OsdDatetime stamp;
    time_t now = time(NULL);
    const struct tm* local = localtime(&now);

    if (argc != 2 || strlen(argv[1]) > sizeof text) {
        fprintf(stderr, "usage: osd_clock TEXT (up to 16 characters)\n");
        return 2;
    }
    memcpy(text, argv[1], strlen(argv[1]));

    NyDevice* camera = open_camera(NULL);
    /* The last two bytes are the place of the stamp, which stays. */
    check("reading the clock", XU_OsdGetDatetime(camera, &stamp));
    stamp.data[0] = (uint8_t)(local->tm_year - 100); /* from 2000 on */
    stamp.data[1] = (uint8_t)(local->tm_mon + 1);
    stamp.data[2] = (uint8_t)local->tm_mday;
    stamp.data[3] = (uint8_t)local->tm_hour;
    stamp.data[4] = (uint8_t)local->tm_min;
    stamp.data[5] = (uint8_t)local->tm_sec;
    check("setting the clock", XU_OsdSetDatetime(camera, &stamp));
    check("setting the text", XU_OsdSetString(camera, 0, text));
    check("showing the clock", XU_OsdEnableDatetime(camera, 1));
    check("showing the display", XU_OsdSetEnable(camera, 1));
    printf("the picture shows '%s' and the time\n", argv[1]);
    DEV_DeleteObject(camera);
    return 0;
}
