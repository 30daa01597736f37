// SPDX-License-Identifier: Apache-2.0
#include "bench.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace sweep {

namespace {

constexpr uint8_t kReadIdCommands[] = {0x9F, 0x90, 0xAB, 0x15};
constexpr uint32_t kTypeUnit = 128;
constexpr uint32_t kLargestType = 0x80;

void open_by_hand(NyDevice& device, libusb_device* usb)
{
    device.state = 1;
    device.index = -1;
    device.usb_device = usb;
    init_uvc_video(&device);
    if (device.uvc_handle == nullptr)
        throw std::runtime_error("libuvc cannot open the camera");
    device.usb_handle = uvc_get_libusb_handle(device.uvc_handle);
}

/// What the bus reads as where no flash answers.
bool nothing_answered(const uint8_t (&id)[3])
{
    return id[0] == id[1] && (id[0] == 0x00 || id[0] == 0xFF);
}

bool identify_flash(NyDevice& device)
{
    bool probed = false;
    for (const uint8_t command : kReadIdCommands) {
        device.oFlashInfo = {};
        device.oFlashInfo.bCmdRDID = command;
        const int32_t status = probed ? MP_QueryExtRom(&device) : DEV_Init(&device);
        if (status != 0 && status != NYXUS_E_SPI_COMMAND)
            throw std::runtime_error("blank probe: " + std::to_string(status));
        if (status == 0 && !nothing_answered(device.oFlashInfo.ID))
            return true;
        probed = true;
    }
    return false;
}

} // namespace

Session::Session(const sim::PluggedCamera& camera)
{
    // A context of its own each time: older ones may have missed a re-plug.
    if (libusb_init(&context_) != 0)
        throw std::runtime_error("libusb_init");
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context_, &list);
    for (ssize_t i = 0; i < count; ++i) {
        if (libusb_get_bus_number(list[i]) == camera.bus() &&
            libusb_get_device_address(list[i]) == camera.address())
            usb_ = libusb_ref_device(list[i]);
    }
    libusb_free_device_list(list, 1);
    if (usb_ == nullptr) {
        libusb_exit(context_);
        throw std::runtime_error("the camera is not on the bus");
    }
}

std::unique_ptr<Session> Session::create(const sim::PluggedCamera& camera)
{
    std::unique_ptr<Session> session(new Session(camera));
    session->device_ = DEV_CreateObjectUsb(session->usb_);
    return session;
}

std::unique_ptr<Session> Session::like(const NyDevice& probed, const sim::PluggedCamera& camera)
{
    std::unique_ptr<Session> session(new Session(camera));
    session->own_ = std::make_unique<NyDevice>(probed);
    NyDevice& device = *session->own_;
    device.usb_device = session->usb_;
    device.usb_handle = nullptr;
    device.uvc_context = nullptr;
    device.uvc_handle = nullptr;
    if (libusb_open(session->usb_, &device.usb_handle) != 0)
        throw std::runtime_error("libusb_open");
    session->device_ = &device;
    return session;
}

std::unique_ptr<Session> Session::probe_blank(const sim::PluggedCamera& camera)
{
    std::unique_ptr<Session> session(new Session(camera));
    session->own_ = std::make_unique<NyDevice>();
    NyDevice& device = *session->own_;
    session->device_ = &device;
    open_by_hand(device, session->usb_);
    if (identify_flash(device))
        return session;
    // No flash answers: an EEPROM, whose size only the user knows.
    device.oFlashInfo = {};
    device.xSpiMode = 0;
    device.dwExtRomSize = 0x8000;
    device.bExtRomType =
        static_cast<uint8_t>(std::min(device.dwExtRomSize / kTypeUnit, kLargestType));
    if (XuSetExtRomType(&device, device.bExtRomType) != 0)
        throw std::runtime_error("cannot set the type of the ROM");
    return session;
}

Session::~Session()
{
    DEV_DeleteObject(device_);
    if (own_ != nullptr && own_->uvc_handle == nullptr)
        libusb_close(own_->usb_handle); // libuvc knew nothing of it
    libusb_unref_device(usb_);
    libusb_exit(context_);
}

Bench::Bench(const sim::CameraModel& model)
    : model_(model), camera_(bed_.plug(model, {.serial = {}, .rom = rom_before(model)}))
{
    camera_.set_tracing(false);
    load_images(model);
}

Bytes Bench::rom()
{
    const auto controller = camera_.controller();
    const std::span<const uint8_t> all = (*controller).rom;
    return {all.begin(), all.end()};
}

void Bench::restart_with(const Bytes& rom)
{
    const auto controller = camera_.controller();
    controller->power_cut(); // what it is at is not to go into these contents
    std::ranges::copy(rom, controller->rom.begin());
    controller->power_cycle();
}

void Bench::replug_with(const Bytes& rom)
{
    heal();
    bed_.settle();
    camera_.controller()->power_cut();
    std::ranges::copy(rom, camera_.controller()->rom.begin());
    bed_.replug(camera_);
    ++plugs_;
}

void Bench::heal()
{
    bed_.set_faults({});
}

void prepare_process()
{
    const NyConfig config = {0, 1, 5, 0}; // no traces; EEPROMs need 5 ms after a write
    LIB_NyxusSetConfig(&config);
    // Progress marks and libuvc's remarks are of no interest.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

} // namespace sweep
