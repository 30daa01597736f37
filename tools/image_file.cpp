// SPDX-License-Identifier: Apache-2.0
#include "image_file.h"

#include "failure.h"
#include "mfi_image.h"
#include "text.h"

#include <nyxus/error.h>
#include <nyxus/image.h>
#include <sys/stat.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tool {

namespace {

constexpr size_t kSignature = 0x40;
constexpr size_t kSmallestFirmware = 0x42; // a header and the signature
// The ROM header at 0x40 keeps the size of the ROM, in units of 512 bytes.
constexpr size_t kRomUnits = 0x46;
constexpr size_t kRomUnitsLarch = 0x56;
constexpr uint32_t kRomUnit = 512;
constexpr uint32_t kSpiRomSize = 0x10000;

/// Size of a plain file. The library would read a directory or a pipe as an empty image.
uint32_t checked_size(const std::string& path, uint32_t capacity, const char* kind)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        throw Failure(kExitFailure, "cannot read " + in_quotes(path) + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode))
        throw Failure(kExitFailure, "cannot read " + in_quotes(path) + ": it is a folder");
    if (!S_ISREG(status.st_mode))
        throw Failure(kExitFailure, "cannot read " + in_quotes(path) + ": it is not a plain file");
    if (status.st_size == 0)
        throw Failure(kExitImageRefused, in_quotes(path) + " is empty");
    if (status.st_size > capacity) {
        throw Failure(kExitImageRefused,
                      in_quotes(path) + " is too large for " + kind +
                          format(": %lld bytes, at most %u are possible",
                                 static_cast<long long>(status.st_size), capacity));
    }
    return static_cast<uint32_t>(status.st_size);
}

Failure read_failure(const std::string& path, int32_t status)
{
    const Failure failure = library_failure("cannot read " + in_quotes(path), status);
    return {kExitFailure, failure.text()};
}

std::string two_characters(const uint8_t* text)
{
    return in_quotes({reinterpret_cast<const char*>(text), 2});
}

/// On a camera with SPI flash, a smaller size would make the probe look for an EEPROM. The other
/// way round nothing is certain: EEPROMs may have 64 KiB, and the probe takes that for the largest
/// type.
void check_rom_size_field(const Camera& camera)
{
    const bool larch = camera.device().oBackend.family == IC_FAMILY_LARCH;
    const size_t field = larch ? kRomUnitsLarch : kRomUnits;
    const uint32_t rom_size = field < nyxus_fw_bin_size ? nyxus_fw_bin[field] * kRomUnit : 0;
    if (camera.is_spi() && rom_size != kSpiRomSize) {
        throw Failure(kExitImageRefused,
                      format("the image is made for a ROM of %u KiB, but the camera has an SPI "
                             "flash (64 KiB); nothing was written",
                             rom_size / 1024));
    }
}

} // namespace

void load_firmware(const std::string& path)
{
    checked_size(path, NYXUS_FW_BIN_CAPACITY, "a firmware image");
    nyxus_errno = 0;
    MP_FwLoad(path.c_str());
    if (nyxus_errno != 0)
        throw read_failure(path, nyxus_errno);
    if (nyxus_fw_bin_size < kSmallestFirmware) {
        throw Failure(kExitImageRefused,
                      in_quotes(path) + " is no firmware image: " +
                          format("only %u bytes before the erased rest", nyxus_fw_bin_size));
    }
}

void load_rom_contents(const std::string& path)
{
    constexpr uint32_t kLargestRom = 0x10000;
    const std::vector<uint8_t> contents = load_image(path, kLargestRom);
    if (contents.size() < kSmallestFirmware || contents.size() > NYXUS_FW_BIN_CAPACITY) {
        throw Failure(kExitImageRefused,
                      in_quotes(path) + " holds no firmware: " +
                          format("%zu bytes before the erased rest; 66 to %u are possible",
                                 contents.size(), NYXUS_FW_BIN_CAPACITY));
    }
    std::ranges::fill(nyxus_fw_bin, uint8_t{0xFF});
    std::ranges::copy(contents, nyxus_fw_bin);
    nyxus_fw_bin_size = static_cast<uint16_t>(contents.size());
}

void load_mfi(const std::string& path, const std::string& serial)
{
    const uint32_t size = checked_size(path, NYXUS_MFI_BIN_CAPACITY, "an MFi image");
    std::ranges::fill(nyxus_mfi_bin, uint8_t{0xFF});
    const int32_t status = MP_BinLoadFromFile(nyxus_mfi_bin, sizeof nyxus_mfi_bin, path.c_str());
    if (status < 0)
        throw read_failure(path, status);
    nyxus_mfi_bin_size = static_cast<uint16_t>(size);
    if (serial.empty())
        return;
    const std::string reason = refuse_serial(mfi(), serial);
    if (!reason.empty())
        throw Failure(kExitImageRefused, reason + "; nothing was written");
    MP_BinSetSerialNum(nyxus_mfi_bin, serial.c_str());
    if (!holds_serial(mfi(), serial)) {
        throw Failure(kExitImageRefused,
                      "the parts of the MFi image overlap, so that it cannot hold the serial "
                      "number; nothing was written");
    }
}

std::vector<uint8_t> load_image(const std::string& path, uint32_t capacity)
{
    std::vector<uint8_t> image(checked_size(path, capacity, "this ROM"));
    const int32_t size =
        MP_BinLoadFromFile(image.data(), static_cast<uint32_t>(image.size()), path.c_str());
    if (size < 0)
        throw read_failure(path, size);
    image.resize(std::min(static_cast<size_t>(size), image.size()));
    return image;
}

std::span<const uint8_t> firmware()
{
    return {nyxus_fw_bin, nyxus_fw_bin_size};
}

std::span<const uint8_t> mfi()
{
    return {nyxus_mfi_bin, nyxus_mfi_bin_size};
}

void check_images(const Camera& camera, bool with_mfi)
{
    const NyDevice& device = camera.device();
    if (std::memcmp(nyxus_fw_bin + kSignature, device.szIntFwVer, 2) != 0) {
        throw Failure(kExitImageRefused, "the image is for another chip: its signature is " +
                                             two_characters(nyxus_fw_bin + kSignature) +
                                             ", but this camera (" + camera.chip() + ") needs '" +
                                             printable_field(device.szIntFwVer, 2) +
                                             "'; nothing was written");
    }
    if (firmware().size() > device.dwExtRomSize) {
        throw Failure(kExitImageRefused,
                      format("the image has %zu bytes, but the camera's ROM only %u; nothing was "
                             "written",
                             firmware().size(), device.dwExtRomSize));
    }
    check_rom_size_field(camera);
    if (!with_mfi)
        return;
    if (firmware().size() > NYXUS_MFI_ROM_ADDR) {
        throw Failure(
            kExitImageRefused,
            format("the firmware ends at 0x%04zX and would overwrite the MFi image, which "
                   "lies at 0x%04X; nothing was written",
                   firmware().size(), NYXUS_MFI_ROM_ADDR));
    }
    if (NYXUS_MFI_ROM_ADDR + mfi().size() > device.dwExtRomSize) {
        throw Failure(kExitImageRefused,
                      "the camera's ROM is too small for an MFi image; nothing "
                      "was written");
    }
}

} // namespace tool
