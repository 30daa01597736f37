/* SPDX-License-Identifier: Apache-2.0 */
/* Waits for motion in front of the camera, and takes note of it with an LED.
 *
 *     cc motion_alarm.c -o motion_alarm $(pkg-config --cflags --libs nyxus)
 *     ./motion_alarm 60        # gives up after a minute
 */
#include "open_camera.h"

#include <unistd.h>

enum { POLLS_PER_S = 5, LED = 3, LED_ON = 0x48 };

int main(int argc, char** argv)
{
    long polls = (argc == 2 ? strtol(argv[1], NULL, 10) : 60) * POLLS_PER_S;
    uint8_t alarm = 0;

    NyDevice* camera = open_camera(NULL);
    printf("waiting for motion\n");
    fflush(stdout);
    for (long i = 0; i < polls && !alarm; ++i) {
        /* Tells of an alarm once: it is acknowledged with the poll. */
        check("asking for motion", XU_MotionDetectPoll(camera, &alarm));
        if (!alarm)
            usleep(1000000 / POLLS_PER_S);
    }
    if (alarm) {
        /* Busy while the firmware has not taken an earlier update up: some ten milliseconds. */
        int32_t status = XU_LedStatusSet(camera, LED, LED_ON);
        if (status != NYXUS_E_BUSY)
            check("switching the LED on", status);
    }
    printf("%s\n", alarm ? "motion!" : "no motion");
    DEV_DeleteObject(camera);
    return alarm ? 0 : 1;
}
