// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/images.hpp>

#include "image_file.h"
#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

using text::format;

namespace {

constexpr size_t kSmallest = 0x42; // a header and the signature
constexpr uint32_t kLargestRom = 0x10000;
constexpr uint32_t kLargestPart = 0x1000000; // what 24 bits address

/// One byte is left of an image that is erased altogether.
void cut_erased_rest(std::vector<uint8_t>& bytes)
{
    bytes.resize(
        static_cast<size_t>(MP_BinGetRealSize(bytes.data(), static_cast<uint32_t>(bytes.size()))));
}

} // namespace

Result<std::vector<uint8_t>> load_image(const std::string& path, uint32_t capacity)
{
    auto bytes = read_image_file(path, capacity, "this ROM");
    if (bytes)
        cut_erased_rest(*bytes);
    return bytes;
}

Result<Firmware> Firmware::load(const std::string& path)
{
    auto bytes = read_image_file(path, NYXUS_FW_BIN_CAPACITY, "a firmware image");
    return bytes ? from(*std::move(bytes), text::in_quotes(path)) : bytes.status();
}

Result<Firmware> Firmware::load_rom(const std::string& path)
{
    auto bytes = read_image_file(path, kLargestPart, "any ROM");
    if (!bytes)
        return bytes.status();
    bytes->resize(std::min<size_t>(bytes->size(), kLargestRom));
    cut_erased_rest(*bytes);
    if (bytes->size() >= kSmallest)
        return Firmware(*std::move(bytes));
    return Status(Reason::kWrongImage,
                  text::in_quotes(path) + " holds no firmware: " +
                      format("%zu bytes before the erased rest; 66 are the least", bytes->size()));
}

Result<Firmware> Firmware::from(std::vector<uint8_t> bytes, const std::string& name)
{
    if (const Status possible =
            check_image_size(name, bytes.size(), NYXUS_FW_BIN_CAPACITY, "a firmware image");
        !possible)
        return possible;
    cut_erased_rest(bytes);
    if (bytes.size() >= kSmallest)
        return Firmware(std::move(bytes));
    return Status(Reason::kWrongImage,
                  name + " is no firmware image: " +
                      format("only %zu bytes before the erased rest", bytes.size()));
}

uint32_t Firmware::rom_size(bool larch) const
{
    constexpr uint32_t kUnit = 512;
    const size_t field = larch ? 0x56 : 0x46; // in the ROM header at 0x40
    return field < bytes_.size() ? bytes_[field] * kUnit : 0;
}

} // namespace nyxus::engine
