// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"
#include "chip/firmware_image.h"
#include "commands.h"
#include "files/replace.h"
#include "text/numbers.h"

namespace sim {

namespace {

constexpr uint32_t kSmallestImage = 0x80;
constexpr uint32_t kLargestImage = 0x8000;

uint16_t parse_version(const std::string& word)
{
    // 0205 may be meant as 205 or as 0x0205.
    const bool is_ambiguous = text::without_leading_zeros(word) != word;
    const std::optional<uint64_t> version = text::parse_number(word, 0xFFFF);
    if (is_ambiguous || !version)
        throw UsageError("'" + word + "': a version is a number up to 0xFFFF, for example 0x0205");
    return static_cast<uint16_t>(*version);
}

std::vector<uint8_t> firmware_image(const ImageArguments& arguments)
{
    if (arguments.model.empty() || arguments.version.empty())
        throw UsageError("a firmware image needs --model and --version");
    ImageRequest request = factory_image_request(*model_named(arguments.model));
    request.version = parse_version(arguments.version);
    request.seed = arguments.seed;
    if (arguments.size_bytes != 0) {
        if (arguments.size_bytes < kSmallestImage || arguments.size_bytes > kLargestImage)
            throw UsageError("an image has 128 to 32768 bytes");
        request.image_bytes = arguments.size_bytes;
    }
    return make_firmware_image(request);
}

} // namespace

int make_image(const ImageArguments& arguments)
{
    if (arguments.mfi && !(arguments.model.empty() && arguments.version.empty()))
        throw UsageError("an MFi image has neither model nor version");
    files::replace_file(arguments.file, arguments.mfi
                                            ? make_mfi_image(arguments.seed, arguments.serial)
                                            : firmware_image(arguments));
    return 0;
}

} // namespace sim
