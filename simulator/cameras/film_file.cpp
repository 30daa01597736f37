// SPDX-License-Identifier: Apache-2.0
#include "cameras/film_file.h"

#include "description/kinds.h"
#include "files/descriptor.h"
#include "files/read.h"
#include "text/format.h"
#include "text/printable.h"
#include "usb/jpeg.h"

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>

namespace sim {

namespace {

constexpr size_t kLargestFilm = 256 << 20;

/// A file keeps what it holds now, whatever becomes of it while it loops.
std::vector<uint8_t> read_plain_file(const std::filesystem::path& path)
{
    const std::string name = text::in_quotes(path.string());
    // A FIFO would wait for its writer.
    const files::Descriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
        throw DescriptionError("cannot read " + name + ": " +
                               std::generic_category().message(errno));
    }
    if (!S_ISREG(status.st_mode))
        throw DescriptionError(name + " is no plain file");
    try {
        return files::read_rest(file.get(), path.string(), kLargestFilm);
    } catch (const std::system_error& error) {
        throw DescriptionError(error.code() == std::errc::file_too_large
                                   ? name + " has more than 256 MiB"
                                   : std::string(error.what()));
    }
}

// What stands in front of the files' names in messages is the description's place.
template <typename Read>
Film film_of(const std::filesystem::path& path, Read read)
{
    std::vector<uint8_t> bytes = read_plain_file(path);
    try {
        return read(std::move(bytes));
    } catch (const DescriptionError& error) {
        throw DescriptionError(text::in_quotes(path.string()) + " " + error.what());
    }
}

bool begins_with(std::span<const uint8_t> bytes, std::initializer_list<uint8_t> first)
{
    return bytes.size() >= first.size() && std::equal(first.begin(), first.end(), bytes.begin());
}

[[noreturn]] void refuse(const std::string& why)
{
    throw DescriptionError(why);
}

/// Where a JPEG ends, and its size.
struct JpegExtent {
    size_t end = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

uint32_t big_endian(std::span<const uint8_t> bytes, size_t at)
{
    return uint32_t{bytes[at]} << 8 | bytes[at + 1];
}

bool is_frame_header(uint8_t marker)
{
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

/// Walks over the segments, one of which may hold a small JPEG of its own. Nothing for a file that
/// ends before its picture does.
std::optional<JpegExtent> measure_jpeg(std::span<const uint8_t> bytes, size_t at)
{
    enum Marker : uint8_t { kFirstRestart = 0xD0, kBegin = 0xD8, kEnd, kScan };
    constexpr size_t kFrameHeaderBytes = 9;
    JpegExtent extent;
    bool is_in_scan = false;
    for (at += 2; at + 1 < bytes.size();) {
        const uint8_t marker = bytes[at + 1];
        if (bytes[at] != 0xFF) {
            if (!is_in_scan)
                return std::nullopt;
            ++at;
        } else if (marker == 0xFF) {
            ++at;
        } else if (marker == 0 || (marker >= kFirstRestart && marker < kBegin)) {
            at += 2;
        } else if (marker == kEnd) {
            extent.end = at + 2;
            return extent;
        } else if (marker == kBegin || at + 4 > bytes.size() || big_endian(bytes, at + 2) < 2) {
            return std::nullopt;
        } else {
            if (is_frame_header(marker) && at + kFrameHeaderBytes <= bytes.size()) {
                extent.height = big_endian(bytes, at + 5);
                extent.width = big_endian(bytes, at + 7);
            }
            is_in_scan = marker == kScan;
            at += 2 + big_endian(bytes, at + 2);
        }
    }
    return std::nullopt;
}

/// JPEGs, which something may stand between.
Film jpeg_scene(std::vector<uint8_t> bytes)
{
    static constexpr std::array<uint8_t, 3> kBegin = {0xFF, 0xD8, 0xFF};
    Film film{.kind = Film::Kind::kJpeg, .bytes = std::move(bytes), .starts = {}};
    const auto next = [&film](size_t at) {
        return static_cast<size_t>(std::search(film.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                               film.bytes.end(), kBegin.begin(), kBegin.end()) -
                                   film.bytes.begin());
    };
    for (size_t at = 0; at < film.bytes.size();) {
        const auto extent = measure_jpeg(film.bytes, at);
        const std::string which =
            film.starts.empty() && (!extent || next(extent->end) == film.bytes.size())
                ? "picture"
                : "picture " + std::to_string(film.starts.size() + 1);
        if (!extent)
            refuse("ends, or is broken, in the middle of its " + which);
        if (film.starts.empty()) {
            film.width = extent->width;
            film.height = extent->height;
        } else if (film.width != extent->width || film.height != extent->height) {
            refuse(text::format("has a %s of %ux%u, unlike the first, which has %ux%u",
                                which.c_str(), extent->width, extent->height, film.width,
                                film.height));
        }
        film.starts.push_back(at);
        at = next(extent->end);
    }
    if (!decode_jpeg(film.frame(0))) {
        refuse(
            "has a JPEG that is broken, larger than 4096 pixels to a side, or neither in YCbCr nor "
            "grey");
    }
    return film;
}

/// A pixel's share of a pair: of limited range, as BT.601 has it.
void add_rgb(const uint8_t* rgb, uint8_t& luma, int& blue, int& red)
{
    luma = static_cast<uint8_t>((66 * rgb[0] + 129 * rgb[1] + 25 * rgb[2] + 128) / 256 + 16);
    blue += -38 * rgb[0] - 74 * rgb[1] + 112 * rgb[2];
    red += 112 * rgb[0] - 94 * rgb[1] - 18 * rgb[2];
}

/// A PNG by libpng's interface that needs no jumps. Transparent parts are black.
Film png_scene(std::span<const uint8_t> bytes)
{
    constexpr uint32_t kMostPixels = 4096; // to a side
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    const auto fail = [&image] {
        const std::string why = image.message;
        png_image_free(&image);
        refuse("is no PNG that can be decoded: " + text::printable(why));
    };
    if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0)
        fail();
    if (image.width < 2 || std::max(image.width, image.height) > kMostPixels) {
        png_image_free(&image);
        refuse("has no size from 2x1 to 4096x4096");
    }
    image.format = PNG_FORMAT_RGB;
    const png_color black{};
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, &black, rgb.data(), 0, nullptr) == 0)
        fail();
    Film film{.width = image.width & ~1U, .height = image.height, .bytes = {}, .starts = {0}};
    film.bytes.resize(size_t{film.width} * film.height * 2);
    uint8_t* out = film.bytes.data();
    for (size_t y = 0; y < film.height; ++y) {
        const uint8_t* in = &rgb[y * image.width * 3];
        for (size_t x = 0; x < film.width; x += 2, in += 6, out += 4) {
            int blue = 0;
            int red = 0;
            add_rgb(in, out[0], blue, red);
            add_rgb(in + 3, out[2], blue, red);
            out[1] = static_cast<uint8_t>(((blue + 256) >> 9) + 128);
            out[3] = static_cast<uint8_t>(((red + 256) >> 9) + 128);
        }
    }
    return film;
}

Film raw_scene(std::vector<uint8_t> bytes, const FrameSize& size)
{
    if (bytes.empty() || bytes.size() % size.bytes() != 0) {
        refuse(text::format("has %zu bytes, which are no whole frames of %ux%u, %u bytes each",
                            bytes.size(), size.width, size.height, size.bytes()));
    }
    Film film{.width = size.width, .height = size.height, .bytes = std::move(bytes), .starts = {}};
    for (size_t at = 0; at < film.bytes.size(); at += size.bytes())
        film.starts.push_back(at);
    return film;
}

} // namespace

Film scene(std::vector<uint8_t> bytes, const FrameSize& raw_size)
{
    if (raw_size.width != 0)
        return raw_scene(std::move(bytes), raw_size);
    if (begins_with(bytes, {0x89, 'P', 'N', 'G'}))
        return png_scene(bytes);
    if (begins_with(bytes, {0xFF, 0xD8, 0xFF}))
        return jpeg_scene(std::move(bytes));
    refuse("is neither a PNG nor a JPEG; frames of YUYV need their 'raw_size'");
}

Film read_scene(const std::filesystem::path& path, const FrameSize& raw_size)
{
    return film_of(path, [&raw_size](std::vector<uint8_t> bytes) {
        return scene(std::move(bytes), raw_size);
    });
}

Film read_h264_film(const std::filesystem::path& path, size_t most_frame_bytes)
{
    return film_of(path, [most_frame_bytes](std::vector<uint8_t> bytes) {
        return h264_film(std::move(bytes), most_frame_bytes);
    });
}

} // namespace sim
