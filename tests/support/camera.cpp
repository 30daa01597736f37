// SPDX-License-Identifier: Apache-2.0
#include "camera.h"

#include <cstring>
#include <memory>
#include <stdexcept>

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "script.h"

static const sim::CameraModel& model_named(std::string_view name)
{
    const sim::CameraModel* model = sim::find_model(name);
    if (model == nullptr)
        throw std::invalid_argument("no such model: " + std::string(name));
    return *model;
}

Camera::Camera(std::string_view model, Time time, std::vector<uint8_t> rom)
    : Camera(model_named(model), time, std::move(rom))
{
}

Camera::Camera(const sim::CameraModel& model, Time time, std::vector<uint8_t> rom)
    : time_(time == Time::kSimulated),
      sim_(&bed_.plug(model, {.serial = {}, .rom = std::move(rom)}))
{
}

Camera::~Camera()
{
    heal();
    remove();
    for (const auto& [context, device] : usb_) {
        if (device != nullptr)
            libusb_unref_device(device);
        libusb_exit(context);
    }
}

libusb_device* Camera::usb_device_of(const sim::PluggedCamera& camera)
{
    bed_.settle();
    // A context of its own each time: what an abandoned session leaves behind keeps libusb's event
    // monitor on the bed that was there first, so older contexts may have missed a re-plug.
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0)
        throw std::runtime_error("libusb_init");
    libusb_device** list = nullptr;
    libusb_device* found = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == camera.bus() &&
            libusb_get_device_address(list[i]) == camera.address())
            found = libusb_ref_device(list[i]);
    }
    libusb_free_device_list(list, 1);
    usb_.emplace_back(context, found);
    return found;
}

NyDevice* Camera::create(libusb_device* device)
{
    // Device objects are never freed, on purpose: held here, they are no leak to the sanitizer,
    // while all else that a test loses is.
    static auto& never_freed = *new std::vector<NyDevice*>;
    NyDevice* object = DEV_CreateObjectUsb(device);
    never_freed.push_back(object);
    return object;
}

NyDevice* Camera::create()
{
    device_ = create(usb_device());
    return device_;
}

NyDevice* Camera::device()
{
    if (device_ == nullptr && create() == nullptr)
        throw std::runtime_error(std::string("probe failed: ") + nyxus_errmsg);
    return device_;
}

void Camera::remove()
{
    DEV_DeleteObject(device_);
    device_ = nullptr;
}

std::vector<uint8_t> Camera::rom(size_t address, size_t length)
{
    const auto controller = sim_->controller();
    const std::span<uint8_t> all = (*controller).rom;
    return {all.begin() + static_cast<ptrdiff_t>(address),
            all.begin() + static_cast<ptrdiff_t>(address + length)};
}

std::string Camera::printed()
{
    static const std::string kNoise = "unsupported descriptor subtype VS_COLORFORMAT\n";
    std::string text = err_.text();
    for (size_t at = text.find(kNoise); at != std::string::npos; at = text.find(kNoise))
        text.erase(at, kNoise.size());
    return text;
}

std::vector<std::string> Camera::wire()
{
    return describe(sim_->transfers());
}

void Camera::fail(uint8_t request, uint8_t selector, sim::Fault fault, unsigned nth)
{
    auto seen = std::make_shared<unsigned>(0);
    sim_->set_fault([=](const sim::Setup& setup, uint64_t) {
        const bool meant =
            setup.type() == 1 && setup.request == request && setup.selector() == selector;
        return meant && (*seen)++ == nth ? fault : sim::Fault::none();
    });
}

void Camera::answer(uint8_t request, uint8_t selector, std::vector<uint8_t> bytes)
{
    sim_->set_fault([=](const sim::Setup& setup, uint64_t) {
        const bool meant =
            setup.type() == 1 && setup.request == request && setup.selector() == selector;
        return meant ? sim::Fault::answer(bytes) : sim::Fault::none();
    });
}

std::vector<uint8_t> load_image(std::string_view model, uint32_t size, uint16_t version,
                                uint64_t seed)
{
    return load_image(model_named(model), size, version, seed);
}

std::vector<uint8_t> load_image(const sim::CameraModel& model, uint32_t size, uint16_t version,
                                uint64_t seed)
{
    sim::ImageRequest request = sim::factory_image_request(model);
    request.version = version;
    request.image_bytes = size;
    request.seed = seed;
    std::vector<uint8_t> image = sim::make_firmware_image(request);
    std::memset(nyxus_fw_bin, 0xFF, sizeof nyxus_fw_bin);
    std::memcpy(nyxus_fw_bin, image.data(), image.size());
    nyxus_fw_bin_size = static_cast<uint16_t>(image.size());
    return image;
}
