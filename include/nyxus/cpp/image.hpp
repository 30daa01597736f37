// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Firmware and MFi images, each in memory of its own. Nothing here talks to a camera.
 *
 * Thread-safe, but for two threads on one image. Loading blocks for the file system.
 */
#ifndef NYXUS_CPP_IMAGE_HPP
#define NYXUS_CPP_IMAGE_HPP

#include <nyxus/image.h>
#include <nyxus/cpp/result.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <vector>

namespace nyxus {

/// Firmware for the external ROM, without the 0xFF bytes at its end.
class FirmwareImage {
public:
    static constexpr size_t kHeaderBytes = 0x40;
    static constexpr size_t kSmallest = 0x42; ///< a header and the signature
    static constexpr size_t kLargest = NYXUS_FW_BIN_CAPACITY;

    /// Loads a file. Fails with NYXUS_E_BIN_SIZE when it is too large, with NYXUS_E_RANGE when it
    /// is too short for firmware, with the system's reason when it cannot be read.
    static Result<FirmwareImage> load(const std::string& path)
    {
        std::vector<uint8_t> bytes(kLargest);
        const int32_t size =
            MP_BinLoadFromFile(bytes.data(), static_cast<uint32_t>(bytes.size()), path.c_str());
        if (size < 0)
            return Status::of(size);
        bytes.resize(std::min(bytes.size(), static_cast<size_t>(size)));
        return from(std::move(bytes));
    }
    /// Takes bytes for an image, for instance those of Rom::dump().
    static Result<FirmwareImage> from(std::vector<uint8_t> bytes)
    {
        while (!bytes.empty() && bytes.back() == 0xFF)
            bytes.pop_back();
        if (bytes.size() < kSmallest || bytes.size() > kLargest) {
            return Status(NYXUS_E_RANGE, "no firmware image: " + std::to_string(bytes.size()) +
                                             " bytes before the erased rest");
        }
        return FirmwareImage(std::move(bytes));
    }

    Bytes bytes() const { return bytes_; }
    /// The two characters with which the internal firmware version of its chip begins.
    std::string signature() const
    {
        return {bytes_.begin() + kHeaderBytes, bytes_.begin() + kSmallest};
    }

private:
    explicit FirmwareImage(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::vector<uint8_t> bytes_;
};

/// Accessory information, which lies in the ROM at NYXUS_MFI_ROM_ADDR.
class MfiImage {
public:
    /// Loads a file of up to 4,096 bytes. Fails as FirmwareImage::load() does.
    static Result<MfiImage> load(const std::string& path)
    {
        MfiImage image;
        image.bytes_.fill(0xFF);
        const int32_t status =
            MP_BinLoadFromFile(image.bytes_.data(), NYXUS_MFI_BIN_CAPACITY, path.c_str());
        if (status < 0)
            return Status::of(status);
        // Its 0xFF bytes at the end belong to it.
        const std::streamoff size = std::ifstream(path, std::ios::binary | std::ios::ate).tellg();
        if (size < kHeaderBytes || size > NYXUS_MFI_BIN_CAPACITY)
            return Status(NYXUS_E_RANGE, "no MFi image: it has no header");
        image.size_ = static_cast<size_t>(size);
        return image;
    }

    Bytes bytes() const { return {bytes_.data(), size_}; }

    /// The serial number that it holds, "" if none.
    std::string serial() const
    {
        const Field field = descriptor_text();
        std::string text;
        for (size_t i = 0; i + 1 < field.size && is_serial_character(bytes_[field.offset + i]);
             i += 2)
            text += static_cast<char>(bytes_[field.offset + i]);
        return text;
    }

    /// Puts a serial number into the USB descriptor and the record list. The image is made for a
    /// length: longer numbers do not fit, and shorter ones would leave the end of the old one.
    /// The library dumps the descriptor on standard error before and after.
    Status set_serial(const std::string& serial_number)
    {
        const bool printable = std::all_of(serial_number.begin(), serial_number.end(), [](char c) {
            return is_serial_character(static_cast<uint8_t>(c));
        });
        if (serial_number.empty() || !printable) {
            return {NYXUS_E_RANGE,
                    "a serial number consists of printable ASCII characters without blanks"};
        }
        const size_t room = std::min(descriptor_text().size / 2, record_text().size);
        if (serial_number.size() > room || serial_number.size() < serial().size()) {
            return {NYXUS_E_RANGE, "the serial number has " + std::to_string(serial_number.size()) +
                                       " characters, but the MFi image is made for " +
                                       std::to_string(room)};
        }
        MfiImage changed = *this; // one that is refused stays as it is
        const Status status =
            Status::of(MP_BinSetSerialNum(changed.bytes_.data(), serial_number.c_str()));
        if (status && changed.serial() != serial_number)
            return {NYXUS_E_RANGE, "the parts of the MFi image overlap"};
        if (status)
            *this = changed;
        return status;
    }

private:
    static constexpr std::streamoff kHeaderBytes = 0x20;

    struct Field {
        size_t offset;
        size_t size; ///< 0: there is none
    };

    MfiImage() = default;

    static bool is_serial_character(uint8_t byte) { return byte > 0x20 && byte < 0x7F; }

    /// The header and the records consist of big-endian words.
    size_t word(size_t offset) const
    {
        return static_cast<size_t>(bytes_[offset] << 8 | bytes_[offset + 1]);
    }

    /// What an address of the header leads to, without `head` bytes at its beginning.
    Field part(size_t offset, size_t size, size_t head) const
    {
        if (offset < kHeaderBytes || offset > size_ || size > size_ - offset || size < head)
            return {0, 0};
        return {offset + head, size - head};
    }

    /// The text of the USB string descriptor, as UTF-16LE.
    Field descriptor_text() const
    {
        return part((word(0x10) - NYXUS_MFI_ROM_ADDR) & 0xFFFF, word(0x0E), 2);
    }

    /// The text of the serial-number record, found as the library finds it.
    Field record_text() const
    {
        constexpr size_t kRecordHead = 4;
        constexpr size_t kSerialRecord = 3;
        size_t offset = (word(0x04) - NYXUS_MFI_ROM_ADDR) & 0xFFFF;
        const size_t end = word(0x02);
        do {
            if (part(offset, kRecordHead, 0).size == 0)
                break;
            const size_t length = word(offset);
            if (word(offset + 2) == kSerialRecord)
                return part(offset, length, kRecordHead);
            if (length == 0)
                break;
            offset += length;
        } while (offset < end);
        return {0, 0};
    }

    std::array<uint8_t, NYXUS_MFI_BIN_CAPACITY> bytes_;
    size_t size_ = 0;
};

} // namespace nyxus

#endif
