// SPDX-License-Identifier: Apache-2.0
#include "sim_camera.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "usb_camera.h"

namespace bench {

const sim::CameraModel& model_named(std::string_view name)
{
    const sim::CameraModel* model = sim::find_model(name);
    if (model == nullptr)
        throw std::invalid_argument("no such model: " + std::string(name));
    return *model;
}

SimCamera::SimCamera(const sim::CameraModel& model, Opened opened) : sim_(&bed_.plug(model))
{
    sim_->set_tracing(false); // the trace copies every transfer
    if (libusb_init(&context_) != 0)
        throw std::runtime_error("libusb_init");
    usb_device_ = find_camera(context_);
    open(opened);
}

void SimCamera::open(Opened opened)
{
    if (opened == Opened::kByLibuvc) {
        device_ = DEV_CreateObjectUsb(usb_device_);
        if (device_ == nullptr)
            throw std::runtime_error(std::string("probe: ") + nyxus_errmsg);
        return;
    }
    by_libusb_.state = 1;
    by_libusb_.index = -1;
    by_libusb_.usb_device = usb_device_;
    if (libusb_open(usb_device_, &by_libusb_.usb_handle) != 0)
        throw std::runtime_error("libusb_open");
    device_ = &by_libusb_;
    if (DEV_Init(device_) != 0)
        throw std::runtime_error(std::string("probe: ") + nyxus_errmsg);
}

SimCamera::~SimCamera()
{
    if (device_ == &by_libusb_)
        libusb_close(by_libusb_.usb_handle);
    else
        DEV_DeleteObject(device_);
    libusb_unref_device(usb_device_);
    libusb_exit(context_);
}

std::vector<uint8_t> SimCamera::rom(size_t length)
{
    const auto controller = sim_->controller();
    const std::span<uint8_t> bytes = std::span((*controller).rom).first(length);
    return {bytes.begin(), bytes.end()};
}

std::vector<uint8_t> load_image(const sim::CameraModel& model, uint32_t bytes)
{
    sim::ImageRequest request = sim::factory_image_request(model);
    request.version = 0x0205;
    request.image_bytes = bytes;
    std::vector<uint8_t> image = sim::make_firmware_image(request);
    std::ranges::copy(image, nyxus_fw_bin);
    nyxus_fw_bin_size = static_cast<uint16_t>(image.size());
    return image;
}

} // namespace bench
