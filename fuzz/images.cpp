// SPDX-License-Identifier: Apache-2.0
// Feeds the readers of firmware and MFi images, and the patching of serial numbers: the library's,
// and the tool's checks in front of it. A serial number that the tool lets pass has to be in the
// image afterwards, as text of the USB string descriptor.
//
// Input: what to do; for serial numbers a length and the text; the file.
#include <nyxus/nyxus.h>

#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <span>
#include <string>

#include "support/input.h"
#include "tools/failure.h"
#include "tools/image_file.h"
#include "tools/mfi_image.h"

namespace {

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

void patch_with_tool(const std::string& serial, const Bytes& image)
{
    tool::load_mfi(file_with(image), serial);
    if (serial.empty())
        return;
    constexpr size_t kSerialAddress = 0x10;
    constexpr size_t kDescriptorHead = 2;
    const std::span<const uint8_t> patched = tool::mfi();
    const auto address =
        static_cast<size_t>(image[kSerialAddress] << 8 | image[kSerialAddress + 1]);
    const size_t text = ((address - NYXUS_MFI_ROM_ADDR) & 0xFFFF) + kDescriptorHead;
    const Bytes expected = utf16(serial);
    check(text + expected.size() <= patched.size());
    check(std::ranges::equal(patched.subspan(text, expected.size()), expected));
}

void load_with_tool(uint8_t kind, const Bytes& image)
{
    const std::string& path = file_with(image);
    if (kind == 0)
        tool::load_firmware(path);
    else if (kind == 1)
        tool::load_rom_contents(path);
    else
        check(tool::load_image(path, 0x10000).size() <= image.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    enum Task : uint8_t { kLibrary, kLibrarySerial, kToolSerial, kToolLoad };
    fuzz::Input input(data, size);
    const uint8_t task = input.byte();
    std::string serial;
    if (task % 4 == kLibrarySerial || task % 4 == kToolSerial) {
        const uint8_t length = input.byte();
        const Bytes text = input.bytes(length);
        serial.assign(text.begin(), text.end());
    }
    const Bytes image = input.rest();
    ny_trace_param = 0xFFFFFFFF;
    try {
        switch (task % 4) {
            case kLibrary:
                load_with_library(image);
                break;
            case kLibrarySerial:
                patch_with_library(serial, image);
                break;
            case kToolSerial:
                patch_with_tool(serial, image);
                break;
            default:
                load_with_tool(task / 4 % 3, image);
                break;
        }
    } catch (const tool::Failure&) {
        // refused
    }
    return 0;
}
