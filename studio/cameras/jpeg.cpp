// SPDX-License-Identifier: Apache-2.0
#include "cameras/jpeg.h"

#include <turbojpeg.h>
#include <memory>

namespace studio {

namespace {

constexpr int kQuality = 80;

struct Planes {
    std::vector<uint8_t> y, u, v;
};

Planes planes_of(const nyxus::Frame& frame)
{
    const size_t pairs = size_t{frame.width} / 2 * frame.height;
    Planes planes{std::vector<uint8_t>(pairs * 2), std::vector<uint8_t>(pairs),
                  std::vector<uint8_t>(pairs)};
    const uint8_t* from = frame.data.data();
    for (size_t pair = 0; pair < pairs; ++pair, from += 4) {
        planes.y[pair * 2] = from[0];
        planes.u[pair] = from[1];
        planes.y[pair * 2 + 1] = from[2];
        planes.v[pair] = from[3];
    }
    return planes;
}

} // namespace

std::vector<uint8_t> jpeg_of(const nyxus::Frame& frame, size_t room)
{
    if (frame.fourcc == NYXUS_FOURCC_MJPEG) {
        std::vector<uint8_t> picture(room + frame.data.size());
        std::copy(frame.data.begin(), frame.data.end(),
                  picture.begin() + static_cast<ptrdiff_t>(room));
        return picture;
    }
    const size_t bytes = size_t{frame.width} * frame.height * 2;
    if (frame.fourcc != NYXUS_FOURCC_YUYV || frame.width % 2 != 0 || bytes == 0 ||
        frame.data.size() < bytes)
        return {};
    const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
    if (!encoder)
        return {};
    const Planes planes = planes_of(frame);
    const unsigned char* sources[] = {planes.y.data(), planes.u.data(), planes.v.data()};
    const auto width = static_cast<int>(frame.width);
    const auto height = static_cast<int>(frame.height);
    std::vector<uint8_t> picture(room + tjBufSize(width, height, TJSAMP_422));
    unsigned char* to = picture.data() + room;
    unsigned long size = picture.size() - room;
    if (tjCompressFromYUVPlanes(encoder.get(), sources, width, nullptr, height, TJSAMP_422, &to,
                                &size, kQuality, TJFLAG_NOREALLOC | TJFLAG_FASTDCT) != 0)
        return {};
    picture.resize(room + size);
    return picture;
}

} // namespace studio
