// SPDX-License-Identifier: Apache-2.0
// Feeds the readers of firmware and MFi images, and the patching of serial numbers: the library's
// and the engine's. A serial number that the engine takes has to be in the image afterwards, as
// text of the USB string descriptor.
//
// Input: what to do; for serial numbers a length and the text; the file.
#include <nyxus/nyxus.h>
#include <nyxus/engine/images.hpp>

#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <string>

#include "support/input.h"

namespace {

namespace engine = nyxus::engine;
using Bytes = std::vector<uint8_t>;

void check(bool holds)
{
    if (!holds)
        std::abort();
}

/// A file without a place in any folder, with these contents.
const std::string& file_with(const Bytes& contents)
{
    static const int fd = memfd_create("image", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    check(ftruncate(fd, 0) == 0);
    check(pwrite(fd, contents.data(), contents.size(), 0) == static_cast<ssize_t>(contents.size()));
    return path;
}

/// The library leaves a file that is too large open, so none is.
void load_with_library(Bytes image)
{
    if (image.empty())
        image.push_back(0xFF); // no file of 0 bytes has an address in memory
    const auto size = static_cast<uint32_t>(image.size());
    const int32_t real_size = MP_BinGetRealSize(image.data(), size);
    check(real_size >= 1 && real_size <= static_cast<int32_t>(size));
    Bytes room(size);
    check(MP_BinLoadFromFile(room.data(), size, file_with(image).c_str()) == real_size);
    if (size <= NYXUS_FW_BIN_CAPACITY) {
        MP_FwLoad(file_with(image).c_str());
        check(nyxus_fw_bin_size == real_size);
    }
}

Bytes utf16(const std::string& text)
{
    Bytes bytes;
    for (const char c : text) {
        bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(0);
    }
    return bytes;
}

void patch_with_library(const std::string& serial, Bytes image)
{
    image.resize(NYXUS_MFI_BIN_CAPACITY, 0xFF);
    MP_BinPrintMFiInfo(image.data());
    MP_BinSetSerialNum(image.data(), serial.c_str());
}

void patch_with_engine(const std::string& serial, const Bytes& image)
{
    auto mfi = engine::Mfi::from(image);
    if (!mfi || !mfi->set_serial(serial))
        return;
    constexpr size_t kSerialAddress = 0x10;
    constexpr size_t kDescriptorHead = 2;
    const nyxus::Bytes patched = mfi->bytes();
    const auto address =
        static_cast<size_t>(image[kSerialAddress] << 8 | image[kSerialAddress + 1]);
    const size_t text = ((address - NYXUS_MFI_ROM_ADDR) & 0xFFFF) + kDescriptorHead;
    const Bytes expected = utf16(serial);
    check(text + expected.size() <= patched.size());
    check(std::equal(expected.begin(), expected.end(), patched.begin() + text));
}

/// What is told of a file lies in it.
bool is_sound(const engine::ImageFacts& facts, const Bytes& image)
{
    const uint32_t begin =
        facts.contents == engine::ImageFacts::Contents::kMfi ? NYXUS_MFI_ROM_ADDR : 0;
    if (facts.mfi) {
        for (const engine::MfiPart& part : facts.mfi->parts) {
            if (part.address < NYXUS_MFI_ROM_ADDR || part.address - begin > image.size() ||
                part.size > image.size() - (part.address - begin))
                return false;
        }
    }
    const bool is_whole = facts.kind && facts.kind->problem.empty();
    return facts.bytes == image.size() && facts.sha256.size() == 64 &&
           facts.firmware_end <= NYXUS_FW_BIN_CAPACITY &&
           (is_whole || !facts.firmware || !facts.firmware->version());
}

void load_with_engine(uint8_t kind, const Bytes& image)
{
    const std::string& path = file_with(image);
    if (kind == 2) {
        const auto loaded = engine::load_image(path, 0x10000);
        return check(!loaded || loaded->size() <= image.size());
    }
    if (kind == 4) { // the MFi image of a ROM
        Bytes rom(NYXUS_MFI_ROM_ADDR, 0xFF);
        rom.insert(rom.end(), image.begin(), image.end());
        return load_with_engine(3, rom);
    }
    if (kind == 3) {
        const auto facts = engine::inspect_image(path);
        return check(!facts || is_sound(*facts, image));
    }
    const auto firmware =
        kind == 0 ? engine::Firmware::load(path) : engine::Firmware::load_rom(path);
    if (firmware) {
        check(firmware->bytes().size() <= image.size() && firmware->signature().size() == 2);
        (void)firmware->rom_size(true);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    enum Task : uint8_t { kLibrary, kLibrarySerial, kEngineSerial, kEngineLoad };
    fuzz::Input input(data, size);
    const uint8_t task = input.byte();
    std::string serial;
    if (task % 4 == kLibrarySerial || task % 4 == kEngineSerial) {
        const uint8_t length = input.byte();
        const Bytes text = input.bytes(length);
        serial.assign(text.begin(), text.end());
    }
    const Bytes image = input.rest();
    ny_trace_param = 0xFFFFFFFF;
    switch (task % 4) {
        case kLibrary:
            load_with_library(image);
            break;
        case kLibrarySerial:
            patch_with_library(serial, image);
            break;
        case kEngineSerial:
            patch_with_engine(serial, image);
            break;
        default:
            load_with_engine(task / 4 % 5, image);
            break;
    }
    return 0;
}
