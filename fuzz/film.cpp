// SPDX-License-Identifier: Apache-2.0
// Feeds what a simulated camera may see, or send as H.264, with any file. What is taken for a film
// has to loop, to be decoded and to fill a picture.
//
// Input: one byte that chooses (0 H.264, 1 a picture or a film of JPEGs, 2 YUYV of 64x32), then the
// file.
#include <cstdlib>
#include <vector>

#include "cameras/film_file.h"
#include "chip/canvas.h"
#include "description/kinds.h"
#include "usb/jpeg.h"

namespace {

constexpr uint32_t kWidth = 48;
constexpr uint32_t kHeight = 32;
constexpr size_t kMostFrameBytes = 4096;

void show(const sim::Film& film, uint32_t number)
{
    sim::View view{film.width, film.height, film.frame(number)};
    const auto decoded =
        film.kind == sim::Film::Kind::kJpeg ? sim::decode_jpeg(film.frame(number)) : std::nullopt;
    if (decoded)
        view = {decoded->width, decoded->height, decoded->yuyv};
    std::vector<uint8_t> yuyv(size_t{kWidth} * kHeight * 2);
    const double turn = number % 3 - 1.0;
    sim::Canvas canvas(kWidth, kHeight, yuyv, {.mirrored = number % 2 != 0},
                       {.hue = turn, .zoom = 1 + number % 4 * 100.0, .pan = turn, .tilt = -turn});
    canvas.show(view);
}

sim::Film read(uint8_t choice, std::vector<uint8_t> bytes)
{
    if (choice % 3 == 0)
        return sim::h264_film(std::move(bytes), kMostFrameBytes);
    return sim::scene(std::move(bytes),
                      choice % 3 == 1 ? sim::FrameSize() : sim::FrameSize{64, 32, {}});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    try {
        const sim::Film film = read(data[0], {data + 1, data + size});
        size_t whole = 0;
        for (uint32_t i = 0; i < film.starts.size(); ++i)
            whole += film.frame(i).size();
        if (whole != film.bytes.size() || film.starts.empty() || film.starts[0] != 0)
            std::abort(); // lost something
        for (uint32_t number = 0; film.kind != sim::Film::Kind::kH264 && number < 4; ++number)
            show(film, number);
    } catch (const sim::DescriptionError& error) {
        if (*error.what() == '\0')
            std::abort(); // says nothing
    }
    return 0;
}
