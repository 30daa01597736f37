// SPDX-License-Identifier: Apache-2.0
// Reads the ROM by the published function, 8 or 32 bytes a time: bench_client_read BYTES
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <nyxus/error.h>
#include <nyxus/memory.h>

#include "usb_camera.h"

int main(int argc, char** argv)
{
    const auto bytes = static_cast<uint32_t>(argc == 2 ? std::strtoul(argv[1], nullptr, 0) : 0);
    bench::UsbCamera camera;
    std::vector<uint8_t> data(bytes);
    if (XuExtRomRead(camera.device(), 0, bytes, data.data()) != 0) {
        std::fprintf(stderr, "%s\n", nyxus_errmsg);
        return 1;
    }
}
