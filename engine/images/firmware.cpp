// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <nyxus/engine/images.hpp>

#include "image_file.h"
#include "kinds.h"
#include "text/format.h"
#include "text/printable.h"
#include "units/digest.h"

namespace nyxus::engine {

using text::format;

namespace {

constexpr size_t kSmallest = 0x42; // a header and the signature
constexpr size_t kLargestRom = 0x10000;

/// Without the erased rest. One byte is left of what is erased altogether.
size_t used_bytes(Bytes bytes)
{
    return static_cast<size_t>(
        MP_BinGetRealSize(bytes.data(), static_cast<uint32_t>(bytes.size())));
}

} // namespace

Result<std::vector<uint8_t>> load_image(const std::string& path, uint32_t capacity)
{
    auto bytes = read_image_file(path, capacity, "this ROM");
    if (bytes)
        bytes->resize(used_bytes(*bytes));
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
    return bytes ? from_rom(*std::move(bytes), text::in_quotes(path)) : bytes.status();
}

Firmware::Firmware(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)), digest_(sha256(bytes_))
{
    bytes_.resize(std::min(bytes_.size(), kLargestRom));
    size_ = used_bytes(bytes_);
}

Result<Firmware> Firmware::from(std::vector<uint8_t> bytes, const std::string& name)
{
    if (const Status possible =
            check_image_size(name, bytes.size(), NYXUS_FW_BIN_CAPACITY, "a firmware image");
        !possible)
        return possible;
    if (const size_t used = used_bytes(bytes); used < kSmallest) {
        return Status(
            Reason::kWrongImage,
            name + format(" is no firmware image: only %zu bytes before the erased rest", used));
    }
    Firmware firmware(std::move(bytes));
    const auto kind = firmware.kind();
    if (kind && !kind->problem.empty())
        return Status(Reason::kWrongImage, name + " (" + kind->name + ") is " + kind->problem);
    return firmware;
}

Result<Firmware> Firmware::from_rom(std::vector<uint8_t> bytes, const std::string& name)
{
    const Bytes first = Bytes(bytes).subspan(0, kLargestRom);
    const size_t used = first.empty() ? 0 : used_bytes(first);
    if (used >= kSmallest)
        return Firmware(std::move(bytes));
    return Status(Reason::kWrongImage,
                  name + format(" holds no firmware: %zu bytes before the erased rest; 66 are the "
                                "least",
                                used));
}

Result<Firmware> Firmware::exactly(std::vector<uint8_t> bytes, const std::string& name)
{
    auto firmware = from_rom(std::move(bytes), name);
    if (firmware)
        firmware->size_ = firmware->bytes_.size();
    return firmware;
}

uint32_t Firmware::rom_size(bool larch) const
{
    constexpr uint32_t kUnit = 512;
    const size_t field = larch ? 0x56 : 0x46; // in the ROM header at 0x40
    return field < size_ ? bytes_[field] * kUnit : 0;
}

std::optional<ImageKind> Firmware::kind() const
{
    return kind_of(as_read());
}

std::optional<std::string> Firmware::version() const
{
    const auto known = kind();
    return known && !known->version.empty() ? std::optional(known->version) : std::nullopt;
}

} // namespace nyxus::engine
