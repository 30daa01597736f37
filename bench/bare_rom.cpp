// SPDX-License-Identifier: Apache-2.0
// What one would write without the library for a camera like rowan-spi: by libusb alone, from the
// opening to the end: bench_bare_rom dump|compare|upgrade FILE BYTES DEPTH
// It reads what nyxus reads: a dump twice; for an upgrade 64 KiB twice before, as something may
// have to be kept, and once what it has written.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "bare_camera.h"
#include "paired.h"
#include "usb_camera.h"

using bench::must;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kKept = 0x10000;

Bytes file_contents(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    must(file.good(), "the file cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What will be the only copy.
Bytes read_twice(bench::BareCamera& camera, size_t size, unsigned depth)
{
    Bytes contents(size), again(size);
    camera.read(contents, depth);
    camera.read(again, depth);
    must(contents == again, "two readings differ");
    return contents;
}

void dump(bench::BareCamera& camera, const char* path, size_t size, unsigned depth)
{
    const Bytes contents = read_twice(camera, size, depth);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
    must(file.good(), "the file cannot be written");
}

void compare(bench::BareCamera& camera, const Bytes& image, unsigned depth)
{
    Bytes contents(image.size());
    camera.read(contents, depth);
    must(contents == image, "the ROM does not hold the image");
}

void upgrade(bench::BareCamera& camera, const Bytes& image, unsigned depth)
{
    read_twice(camera, kKept, depth);
    camera.program(image);
    compare(camera, image, depth);
}

} // namespace

int main(int argc, char** argv)
{
    must(argc == 5, "usage: bench_bare_rom dump|compare|upgrade FILE BYTES DEPTH");
    const std::string_view command = argv[1];
    const auto depth = static_cast<unsigned>(std::atoi(argv[4]));
    libusb_context* context = nullptr;
    must(libusb_init(&context) == 0, "libusb_init");
    libusb_device* device = bench::find_camera(context);
    libusb_device_handle* handle = nullptr;
    must(libusb_open(device, &handle) == 0, "libusb_open");
    must(libusb_claim_interface(handle, 0) == 0, "libusb_claim_interface");
    bench::BareCamera camera(context, handle, 32);
    const size_t size = std::strtoul(argv[3], nullptr, 0);
    if (command == "dump") {
        dump(camera, argv[2], size, depth);
    } else if (command == "compare") {
        compare(camera, file_contents(argv[2]), depth);
    } else {
        upgrade(camera, file_contents(argv[2]), depth);
    }
    std::printf("%s: done\n", argv[1]);
    libusb_close(handle);
    libusb_unref_device(device);
    libusb_exit(context);
}
