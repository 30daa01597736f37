// SPDX-License-Identifier: Apache-2.0
#include "video/picture.h"

#include "jpeg/errors.h"
#include "terminal/failure.h"

#include <png.h>
#include <algorithm>
#include <cstdlib>

namespace tool {

namespace {

constexpr uint32_t kMostPixels = 8192; // to a side

uint8_t clamped(int value)
{
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

/// A pixel of limited-range video, in 1/256 steps.
void put_rgb(uint8_t* rgb, int y, int cb, int cr)
{
    const int luma = 298 * (y - 16) + 128;
    rgb[0] = clamped((luma + 409 * (cr - 128)) / 256);
    rgb[1] = clamped((luma - 100 * (cb - 128) - 208 * (cr - 128)) / 256);
    rgb[2] = clamped((luma + 516 * (cb - 128)) / 256);
}

/// False for a broken file. Nothing in it needs a destructor, which a jump would leave out.
bool decode(jpeg_decompress_struct& decoder, jpeg::Errors& errors, std::span<const uint8_t> file,
            Picture& picture)
{
    if (setjmp(errors.broken) != 0)
        return false;
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, file.data(), file.size());
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_RGB;
    if (decoder.image_width > kMostPixels || decoder.image_height > kMostPixels)
        return false;
    jpeg_start_decompress(&decoder);
    picture.width = decoder.output_width;
    picture.height = decoder.output_height;
    picture.rgb.resize(size_t{picture.width} * picture.height * 3);
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW row = &picture.rgb[size_t{decoder.output_scanline} * picture.width * 3];
        jpeg_read_scanlines(&decoder, &row, 1);
    }
    jpeg_finish_decompress(&decoder);
    return errors.manager.num_warnings == 0;
}

/// False where memory is short.
bool encode(jpeg_compress_struct& encoder, jpeg::Errors& errors, const Picture& picture,
            unsigned char** file, unsigned long* size)
{
    constexpr int kQuality = 95;
    if (setjmp(errors.broken) != 0)
        return false;
    jpeg_create_compress(&encoder);
    jpeg_mem_dest(&encoder, file, size);
    encoder.image_width = picture.width;
    encoder.image_height = picture.height;
    encoder.input_components = 3;
    encoder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, kQuality, TRUE);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        auto* row =
            const_cast<JSAMPROW>(&picture.rgb[size_t{encoder.next_scanline} * picture.width * 3]);
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    return true;
}

} // namespace

Picture picture_of_yuyv(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv)
{
    // A frame may be shorter or longer than its size says: the rest stays black, or is left out.
    const size_t pixels = size_t{width} * height;
    Picture picture{width, height, std::vector<uint8_t>(pixels * 3)};
    for (size_t i = 0; i < std::min(pixels / 2, yuyv.size() / 4); ++i) {
        const uint8_t* pair = &yuyv[4 * i];
        put_rgb(&picture.rgb[6 * i], pair[0], pair[1], pair[3]);
        put_rgb(&picture.rgb[6 * i + 3], pair[2], pair[1], pair[3]);
    }
    return picture;
}

Picture picture_of_jpeg(std::span<const uint8_t> file)
{
    jpeg::Errors errors{};
    jpeg_decompress_struct decoder{};
    decoder.err = jpeg::jumping(errors);
    Picture picture;
    const bool is_whole = decode(decoder, errors, file, picture);
    jpeg_destroy_decompress(&decoder);
    if (!is_whole)
        throw Failure(kExitFailure, "the camera sent a broken picture; try again");
    return picture;
}

std::vector<uint8_t> jpeg_of(const Picture& picture)
{
    jpeg::Errors errors{};
    jpeg_compress_struct encoder{};
    encoder.err = jpeg::jumping(errors);
    unsigned char* file = nullptr;
    unsigned long size = 0;
    const bool is_made = encode(encoder, errors, picture, &file, &size);
    jpeg_destroy_compress(&encoder);
    std::vector<uint8_t> jpeg;
    if (is_made)
        jpeg.assign(file, file + size);
    std::free(file);
    if (!is_made)
        throw Failure(kExitFailure, "cannot make a JPEG");
    return jpeg;
}

std::vector<uint8_t> png_of(const Picture& picture)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<uint8_t> png(size);
    if (png_image_write_to_memory(&image, png.data(), &size, 0, picture.rgb.data(), 0, nullptr) ==
        0)
        throw Failure(kExitFailure, std::string("cannot make a PNG: ") + image.message);
    png.resize(size);
    return png;
}

} // namespace tool
