// SPDX-License-Identifier: Apache-2.0
#include "usb/jpeg.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <jpeglib.h>

namespace sim {

namespace {

constexpr int kQuality = 90; // the frame number stays readable
constexpr size_t kPairBytes = 4;

// Both pixels of a pair have the chroma that they share.
void unpack(std::span<const uint8_t> yuyv, std::vector<uint8_t>& ycbcr)
{
    uint8_t* out = ycbcr.data();
    for (size_t at = 0; at < yuyv.size(); at += kPairBytes) {
        for (const size_t luma : {at, at + 2}) {
            *out++ = yuyv[luma];
            *out++ = yuyv[at + 1];
            *out++ = yuyv[at + 3];
        }
    }
}

} // namespace

std::vector<uint8_t> encode_jpeg(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv)
{
    jpeg_compress_struct encoder{};
    jpeg_error_mgr errors{};
    encoder.err = jpeg_std_error(&errors); // ends the program, which happens without memory only
    jpeg_create_compress(&encoder);
    unsigned char* file = nullptr;
    unsigned long file_bytes = 0;
    jpeg_mem_dest(&encoder, &file, &file_bytes);
    encoder.image_width = width;
    encoder.image_height = height;
    encoder.input_components = 3;
    encoder.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&encoder);
    encoder.comp_info[0].v_samp_factor = 1; // chroma is shared by two pixels side by side, not four
    encoder.dct_method = JDCT_IFAST;
    jpeg_set_quality(&encoder, kQuality, TRUE);
    jpeg_start_compress(&encoder, TRUE);

    const size_t row_bytes = size_t{width} * 2;
    std::vector<uint8_t> row(size_t{width} * 3);
    JSAMPROW rows[] = {row.data()};
    std::span<const uint8_t> unpacked;
    for (size_t y = 0; y < height; ++y) {
        const auto next = yuyv.subspan(y * row_bytes, row_bytes);
        if (!std::ranges::equal(next, unpacked)) // most rows are as the one above
            unpack(next, row);
        unpacked = next;
        jpeg_write_scanlines(&encoder, rows, 1);
    }
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owned(file, std::free);
    return {file, file + file_bytes};
}

} // namespace sim
