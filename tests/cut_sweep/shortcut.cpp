// SPDX-License-Identifier: Apache-2.0
// libusb_control_transfer() in front of libusb's own.
#include "shortcut.h"

#include <libusb-1.0/libusb.h>

#include <cerrno>
#include <optional>

#include "bus/interpose.h"

namespace sweep {

namespace {

/// Through libusb: so many transfers before the cut, and so many from it on.
constexpr size_t kBefore = 8;
constexpr size_t kAfter = 64;

struct Route {
    sim::PluggedCamera* camera;
    std::optional<size_t> cut;
    bool camera_goes = false;
    size_t transfers = 0;
    int last_of_libusb = 0;
};

/// The sweep makes its transfers on one thread.
std::optional<Route> route;

bool goes_through_libusb(const Route& taken)
{
    if (!taken.cut || taken.transfers + kBefore < *taken.cut)
        return false;
    const bool is_long_after = taken.transfers >= *taken.cut + kAfter;
    return !is_long_after || (taken.camera_goes && taken.last_of_libusb != LIBUSB_ERROR_NO_DEVICE);
}

int to_libusb(int result)
{
    switch (result) {
        case -EPIPE:
            return LIBUSB_ERROR_PIPE;
        case -ENODEV:
            return LIBUSB_ERROR_NO_DEVICE;
        default:
            return result < 0 ? LIBUSB_ERROR_IO : result;
    }
}

} // namespace

Shortcut::Shortcut(sim::PluggedCamera& camera)
{
    route = {.camera = &camera, .cut = std::nullopt};
}

Shortcut::Shortcut(sim::PluggedCamera& camera, size_t cut, bool camera_goes)
{
    route = {.camera = &camera, .cut = cut, .camera_goes = camera_goes};
}

Shortcut::~Shortcut()
{
    route.reset();
}

} // namespace sweep

extern "C" int libusb_control_transfer(libusb_device_handle* handle, uint8_t request_type,
                                       uint8_t request, uint16_t value, uint16_t index,
                                       unsigned char* data, uint16_t length, unsigned int timeout)
{
    using sweep::route;
    static const auto next =
        sim::next_function<decltype(&libusb_control_transfer)>("libusb_control_transfer");
    if (!route)
        return next(handle, request_type, request, value, index, data, length, timeout);
    const bool through_libusb = sweep::goes_through_libusb(*route);
    ++route->transfers;
    if (through_libusb) {
        return route->last_of_libusb =
                   next(handle, request_type, request, value, index, data, length, timeout);
    }
    if (route->cut && route->camera_goes && route->transfers > *route->cut)
        return LIBUSB_ERROR_NO_DEVICE;
    return sweep::to_libusb(
        route->camera->control({request_type, request, value, index, length}, {data, length}));
}
