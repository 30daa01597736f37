// SPDX-License-Identifier: Apache-2.0
#include "session/camera_list.h"

#include "terminal/failure.h"
#include "terminal/text.h"

#include <algorithm>
#include <iterator>

namespace tool {

namespace {

std::string listed(const std::vector<CameraEntry>& cameras)
{
    std::string lines;
    for (const CameraEntry& entry : cameras)
        lines += "\n  " + description(entry);
    return lines;
}

} // namespace

std::string description(const CameraEntry& entry)
{
    return padded(entry.bus_address(), 8) + padded(entry.port_path, 9) +
           padded(entry.serial.empty() ? "-" : entry.serial, 16) + " " + entry.product;
}

CameraEntry printable(CameraEntry entry)
{
    entry.serial = printable(entry.serial);
    entry.product = printable(entry.product);
    return entry;
}

std::vector<CameraEntry> list_cameras()
{
    auto cameras = nyxus::list_cameras();
    if (!cameras)
        throw usb_failure("cannot use USB", cameras.status().usb_code());
    for (CameraEntry& entry : *cameras)
        entry = printable(entry);
    return std::move(*cameras);
}

CameraEntry select_camera(const std::vector<CameraEntry>& cameras, const std::string& choice)
{
    if (cameras.empty()) {
        throw Failure(
            kExitNoCamera,
            "no camera found; check that it is plugged in and has power ('lsusb -d 1162:' "
            "shows it then)");
    }
    std::vector<CameraEntry> matching;
    std::ranges::copy_if(cameras, std::back_inserter(matching), [&](const CameraEntry& entry) {
        return choice.empty() || entry.matches(choice);
    });
    if (matching.empty()) {
        throw Failure(kExitNoCamera, "no camera is called " + in_quotes(choice) +
                                         "; these are connected:" + listed(cameras));
    }
    if (matching.size() > 1) {
        throw Failure(kExitAmbiguous,
                      format("%zu cameras %s; choose one by --camera with its bus:address, port "
                             "path or serial number:",
                             matching.size(), choice.empty() ? "are connected" : "match") +
                          listed(matching));
    }
    return matching.front();
}

} // namespace tool
