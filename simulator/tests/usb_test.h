// SPDX-License-Identifier: Apache-2.0
// Simulated cameras, as libusb opens them in the same process.
#pragma once

#include "bus/bed.h"
#include "cameras/shipped.h"
#include "usb/descriptors.h"

#include <gtest/gtest.h>
#include <libusb.h>

#include <memory>
#include <string>

namespace usb_test {

constexpr uint8_t kGetLen = 0x85;
inline constexpr uint8_t kSetCur = 0x01;
inline constexpr uint8_t kRegisterSelector = 0x06;
inline constexpr unsigned kTimeoutMs = 200;

inline const sim::CameraModel& first_model()
{
    return sim::models().front();
}

struct ContextDeleter {
    void operator()(libusb_context* context) const { libusb_exit(context); }
};
struct HandleDeleter {
    void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
};
using Context = std::unique_ptr<libusb_context, ContextDeleter>;
using Handle = std::unique_ptr<libusb_device_handle, HandleDeleter>;

inline Context make_context()
{
    libusb_context* context = nullptr;
    EXPECT_EQ(libusb_init(&context), 0);
    return Context(context);
}

inline Handle open_camera(libusb_context* context, unsigned bus, unsigned address)
{
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    libusb_device_handle* handle = nullptr;
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == bus &&
            libusb_get_device_address(list[i]) == address) {
            EXPECT_EQ(libusb_open(list[i], &handle), 0);
        }
    }
    libusb_free_device_list(list, 1);
    return Handle(handle);
}

inline std::string string_of(libusb_device_handle* handle, uint8_t index)
{
    unsigned char text[128] = {};
    libusb_get_string_descriptor_ascii(handle, index, text, sizeof text);
    return reinterpret_cast<char*>(text);
}

class UsbTest : public testing::Test {
protected:
    sim::PluggedCamera& plug(unsigned bus = 1)
    {
        return bed_.plug(first_model(), {.bus = bus, .serial = "S" + std::to_string(bus)});
    }
    Handle open(sim::PluggedCamera& camera)
    {
        if (!context_)
            context_ = make_context();
        Handle handle = open_camera(context_.get(), camera.bus(), camera.address());
        EXPECT_NE(handle, nullptr);
        return handle;
    }
    static int get_len(libusb_device_handle* handle, unsigned timeout_ms = 0)
    {
        uint8_t length[2] = {};
        return libusb_control_transfer(handle, 0xA1, kGetLen, kRegisterSelector << 8,
                                       sim::kVendorUnit << 8, length, sizeof length, timeout_ms);
    }
    size_t device_count()
    {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context_.get(), &list);
        libusb_free_device_list(list, 1);
        return static_cast<size_t>(count);
    }

    sim::VirtualClock clock_;
    sim::TestBed bed_{clock_};
    Context context_;
};

} // namespace usb_test
