// SPDX-License-Identifier: Apache-2.0
// The MFi image: header, record list, USB serial number.
#include <nyxus/image.h>
#include <nyxus/trace.h>

#include <algorithm>
#include <cstring>

#include "trace/failure.h"
#include "unit.h"

namespace {

// Offsets in the header; addresses and lengths are big-endian, addresses count from the ROM's
// start.
enum : uint16_t {
    kPrefixVer = 0x00,
    kDescListEnd = 0x02,
    kDescListAddr = 0x04,
    kSerialNumLen = 0x0E,
    kSerialNumAddr = 0x10,
    kModeSel = 0x1E,
    kCheckSum = 0x1F,
};

constexpr uint16_t kRecordHead = 4;
constexpr uint16_t kSerialRecord = 3;
constexpr uint16_t kDescriptorHead = 2;

uint16_t big_endian(const uint8_t* image, uint32_t offset)
{
    return static_cast<uint16_t>(image[offset] << 8 | image[offset + 1]);
}

uint16_t little_endian(const uint8_t* image, uint32_t offset)
{
    return static_cast<uint16_t>(image[offset] | image[offset + 1] << 8);
}

uint16_t image_offset(uint16_t rom_address)
{
    return static_cast<uint16_t>(rom_address - NYXUS_MFI_ROM_ADDR);
}

/// A header may point anywhere: bytes outside the image are dropped.
void put(uint8_t* image, uint32_t offset, uint8_t value)
{
    if (offset < NYXUS_MFI_BIN_CAPACITY)
        image[offset] = value;
}

void dump_descriptor(const uint8_t* image, uint16_t address, uint16_t length)
{
    const uint32_t offset = image_offset(address);
    const uint32_t room = offset < NYXUS_MFI_BIN_CAPACITY ? NYXUS_MFI_BIN_CAPACITY - offset : 0;
    NyPrintBuf(address, image + std::min<uint32_t>(offset, NYXUS_MFI_BIN_CAPACITY),
               std::min<uint32_t>(length, room), true);
}

void write_descriptor(uint8_t* image, uint16_t address, const char* sn, uint32_t length)
{
    const uint32_t start = image_offset(address) + kDescriptorHead;
    for (uint32_t i = 0; i < length; ++i) {
        put(image, start + 2 * i, static_cast<uint8_t>(sn[i]));
        put(image, start + 2 * i + 1, 0);
    }
}

void write_record(uint8_t* image, const char* sn, uint32_t length)
{
    const uint16_t end = big_endian(image, kDescListEnd);
    uint16_t offset = image_offset(big_endian(image, kDescListAddr));
    // Lengths wrap at 16 bits, so a list can lead back. One with more records than the image has
    // bytes never ends.
    for (uint32_t count = 0; count < NYXUS_MFI_BIN_CAPACITY; ++count) {
        if (offset + kRecordHead > NYXUS_MFI_BIN_CAPACITY)
            return;
        if (big_endian(image, offset + 2) == kSerialRecord) {
            for (uint32_t i = 0; i < length; ++i)
                put(image, offset + kRecordHead + i, static_cast<uint8_t>(sn[i]));
            return;
        }
        offset = static_cast<uint16_t>(offset + big_endian(image, offset));
        if (end <= offset)
            return;
    }
}

} // namespace

int32_t MP_BinPrintMFiInfo(const uint8_t* mfi_bin)
{
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, mfi_bin);
    // The 16-bit fields appear in host order, as production logs have always shown them.
    NY_TRACE(NY_TRACE_ERROR, "header->wPrefixVer     = 0x%04X \n",
             little_endian(mfi_bin, kPrefixVer));
    NY_TRACE(NY_TRACE_ERROR, "        ...                     \n");
    NY_TRACE(NY_TRACE_ERROR, "      ->wSerialNumLen  = 0x%04X \n",
             little_endian(mfi_bin, kSerialNumLen));
    NY_TRACE(NY_TRACE_ERROR, "      ->wSerialNumAddr = 0x%04X \n",
             little_endian(mfi_bin, kSerialNumAddr));
    NY_TRACE(NY_TRACE_ERROR, "        ...                     \n");
    NY_TRACE(NY_TRACE_ERROR, "      ->bModeSel       = 0x%02X \n", mfi_bin[kModeSel]);
    NY_TRACE(NY_TRACE_ERROR, "      ->bCheckSum      = 0x%02X \n", mfi_bin[kCheckSum]);
    return 0;
}

int32_t MP_BinSetSerialNum(uint8_t* mfi_bin, const char* sn)
{
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, mfi_bin);
    NY_REQUIRE_AS(NYXUS_E_BIN_NULL, sn);
    const size_t text_length = std::strlen(sn);
    const auto length =
        static_cast<uint32_t>(std::min<size_t>(text_length, NYXUS_MFI_BIN_CAPACITY));

    // Once: an image may place the descriptor over its own header.
    const uint16_t address = big_endian(mfi_bin, kSerialNumAddr);
    const uint16_t descriptor_length = big_endian(mfi_bin, kSerialNumLen);
    NY_TRACE(NY_TRACE_ERROR, "before update, usb_sn_data = \n");
    dump_descriptor(mfi_bin, address, descriptor_length);
    write_descriptor(mfi_bin, address, sn, length);
    NY_TRACE(NY_TRACE_ERROR, "After update, usb_sn_data = \n");
    dump_descriptor(mfi_bin, address, descriptor_length);
    write_record(mfi_bin, sn, length);
    NY_TRACE(NY_TRACE_ERROR, "INFO: Set MFi S/N = '%s' (%d) \n", sn, static_cast<int>(text_length));
    return 0;
}
