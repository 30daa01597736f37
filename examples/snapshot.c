/* SPDX-License-Identifier: Apache-2.0 */
/* Takes a picture and writes its luminance as a portable grey map (PGM).
 *
 *     cc snapshot.c -o snapshot $(pkg-config --cflags --libs nyxus)
 *     ./snapshot shot.pgm
 */
#include "open_camera.h"

/** YUYV: every other byte is the luminance of a pixel. */
static int write_grey(FILE* file, const uvc_frame_t* frame)
{
    const uint8_t* yuyv = frame->data;

    fprintf(file, "P5\n%u %u\n255\n", frame->width, frame->height);
    for (size_t i = 0; i < frame->data_bytes; i += 2)
        fputc(yuyv[i], file);
    return ferror(file) == 0;
}

int main(int argc, char** argv)
{
    VideoStreamParam picture = {.width = 640, .height = 480, .fps = 0};
    int written = 0;

    if (argc != 2) {
        fprintf(stderr, "usage: snapshot FILE.pgm\n");
        return 2;
    }
    NyDevice* camera = open_camera(NULL);
    /* libuvc says on standard error what it does not like. The call waits for a complete frame as
     * long as the camera is connected. */
    int32_t status = startVideoStream_snapshot(camera, NULL, &picture);
    if (status == 0) {
        FILE* file = fopen(argv[1], "wb");
        if (file != NULL) {
            written = write_grey(file, picture.frame);
            written = fclose(file) == 0 && written;
        }
        if (!written)
            perror(argv[1]);
    }
    stopVideoStream(camera); /* the frame is gone from here on */
    DEV_DeleteObject(camera);
    if (status < 0)
        fprintf(stderr, "no picture: %s\n", uvc_strerror(status));
    return status == 0 && written ? 0 : 1;
}
