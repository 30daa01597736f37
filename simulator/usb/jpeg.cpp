// SPDX-License-Identifier: Apache-2.0
#include "usb/jpeg.h"

#include "jpeg/errors.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

namespace sim {

namespace {

constexpr int kQuality = 90; // the frame number stays readable
constexpr size_t kPairBytes = 4;

/// What becomes of each level of a sample.
using Table = std::array<uint8_t, 256>;

/// Stretches or squeezes the levels around one that stays.
constexpr Table levels_by(double factor, double fixed, double moved)
{
    Table table{};
    for (size_t level = 0; level < table.size(); ++level) {
        const double value = moved + (static_cast<double>(level) - fixed) * factor;
        table[level] = static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
    }
    return table;
}

constexpr Table kKeptLevels = levels_by(1, 0, 0);
constexpr Table kFullLuma = levels_by(255.0 / 219, 16, 0);
constexpr Table kFullChroma = levels_by(255.0 / 224, 128, 128);
constexpr Table kVideoLuma = levels_by(219 / 255.0, 0, 16);
constexpr Table kVideoChroma = levels_by(224 / 255.0, 128, 128);

// Both pixels of a pair have the chroma that they share.
void unpack(std::span<const uint8_t> yuyv, const Table& luma, const Table& chroma,
            std::vector<uint8_t>& ycbcr)
{
    uint8_t* out = ycbcr.data();
    for (size_t at = 0; at < yuyv.size(); at += kPairBytes) {
        const uint8_t blue = chroma[yuyv[at + 1]];
        const uint8_t red = chroma[yuyv[at + 3]];
        for (const size_t place : {at, at + 2}) {
            *out++ = luma[yuyv[place]];
            *out++ = blue;
            *out++ = red;
        }
    }
}

void pack(const uint8_t* ycbcr, size_t sample_bytes, std::span<uint8_t> yuyv)
{
    constexpr uint8_t kGrey = 128;
    const bool is_grey = sample_bytes == 1;
    for (size_t at = 0; at < yuyv.size(); at += kPairBytes, ycbcr += 2 * sample_bytes) {
        yuyv[at] = kVideoLuma[ycbcr[0]];
        yuyv[at + 1] = is_grey ? kGrey : kVideoChroma[ycbcr[1]];
        yuyv[at + 2] = kVideoLuma[ycbcr[sample_bytes]];
        yuyv[at + 3] = is_grey ? kGrey : kVideoChroma[ycbcr[2]];
    }
}

// A small file may ask for the whole picture to be gone over again and again.
void count_scans(j_common_ptr codec)
{
    constexpr int kMostScans = 50;
    if (reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number > kMostScans)
        jpeg::jump_away(codec);
}

/// False for a broken file. Nothing in it needs a destructor, which a jump would leave out.
bool decode(jpeg_decompress_struct& decoder, jpeg::Errors& errors, std::span<const uint8_t> file,
            YuyvPicture& picture, std::vector<uint8_t>& row)
{
    constexpr uint32_t kMostPixels = 4096; // to a side
    jpeg_progress_mgr progress{};
    progress.progress_monitor = count_scans;
    if (setjmp(errors.broken) != 0)
        return false;
    jpeg_create_decompress(&decoder);
    decoder.progress = &progress;
    jpeg_mem_src(&decoder, file.data(), file.size());
    jpeg_read_header(&decoder, TRUE);
    if (decoder.image_width < 2 ||
        std::max(decoder.image_width, decoder.image_height) > kMostPixels)
        return false;
    const bool is_grey = decoder.jpeg_color_space == JCS_GRAYSCALE;
    decoder.out_color_space = is_grey ? JCS_GRAYSCALE : JCS_YCbCr;
    decoder.dct_method = JDCT_IFAST;
    decoder.do_fancy_upsampling = FALSE;
    jpeg_start_decompress(&decoder);
    const auto samples = static_cast<size_t>(decoder.output_components);
    picture.width = decoder.output_width & ~1U;
    picture.height = decoder.output_height;
    const size_t row_bytes = size_t{picture.width} * 2;
    picture.yuyv.resize(row_bytes * picture.height);
    row.resize(decoder.output_width * samples);
    while (decoder.output_scanline < decoder.output_height) {
        const std::span out(&picture.yuyv[decoder.output_scanline * row_bytes], row_bytes);
        JSAMPROW rows = row.data();
        jpeg_read_scanlines(&decoder, &rows, 1);
        pack(row.data(), samples, out);
    }
    jpeg_finish_decompress(&decoder);
    return errors.manager.num_warnings == 0;
}

} // namespace

std::optional<YuyvPicture> decode_jpeg(std::span<const uint8_t> file)
{
    jpeg::Errors errors{};
    jpeg_decompress_struct decoder{};
    decoder.err = jpeg::jumping(errors);
    YuyvPicture picture;
    std::vector<uint8_t> row;
    const bool is_whole = decode(decoder, errors, file, picture, row);
    jpeg_destroy_decompress(&decoder);
    return is_whole ? std::optional(std::move(picture)) : std::nullopt;
}

std::vector<uint8_t> encode_jpeg(uint32_t width, uint32_t height, std::span<const uint8_t> yuyv,
                                 Levels levels)
{
    const Table& luma = levels == Levels::kFull ? kFullLuma : kKeptLevels;
    const Table& chroma = levels == Levels::kFull ? kFullChroma : kKeptLevels;
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
            unpack(next, luma, chroma, row);
        unpacked = next;
        jpeg_write_scanlines(&encoder, rows, 1);
    }
    jpeg_finish_compress(&encoder);
    jpeg_destroy_compress(&encoder);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owned(file, std::free);
    return {file, file + file_bytes};
}

} // namespace sim
