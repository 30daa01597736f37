/* SPDX-License-Identifier: Apache-2.0 */
/* Receives a frame of every size that the camera streams.
 *
 *     cc every_size.c -o every_size $(pkg-config --cflags --libs nyxus)
 *     ./every_size [SERIAL]
 */
#include "open_camera.h"

#include <nyxus/streaming.h>

enum { MOST_FORMATS = 64, PATIENCE_MS = 5000 };

static void receive_frame(NyDevice* camera, const NyStreamFormat* format)
{
    NyStreamRequest request = {format->fourcc, format->width, format->height, 0};
    NyStream* stream;
    NyStreamFrame frame;

    check("starting the stream", nyxus_stream_start(camera, &request, NULL, NULL, &stream));
    int32_t status = nyxus_stream_next(stream, PATIENCE_MS, &frame);
    if (status == 0) {
        printf("%.4s %ux%u: %zu bytes\n", (const char*)&frame.fourcc, frame.width, frame.height,
               frame.size);
    }
    nyxus_stream_free(stream); /* the frame is gone from here on */
    if (status < 0)
        DEV_DeleteObject(camera);
    check("waiting for a frame", status);
}

int main(int argc, char** argv)
{
    static NyStreamFormat formats[MOST_FORMATS];
    NyDevice* camera = open_camera(argc > 1 ? argv[1] : NULL);
    int32_t count = nyxus_list_formats(camera, formats, MOST_FORMATS);

    check("listing the formats", count);
    for (int32_t i = 0; i < count && i < MOST_FORMATS; ++i)
        receive_frame(camera, &formats[i]);
    DEV_DeleteObject(camera);
    return count > 0 ? 0 : 1;
}
