// SPDX-License-Identifier: Apache-2.0
#include "exchange.h"

#include <nyxus/extensions.h>
#include <functional>

#include "frame.h"
#include "report/phase_scope.h"
#include "text/format.h"

namespace nyxus::engine {

namespace {

constexpr int kTries = 4;

/// The bytes that have moved, or libusb's code. The library tells only whether any have.
int transfer(NyDevice& device, uint8_t request, uint8_t selector, std::span<uint8_t> data)
{
    const VendorSetup setup = vendor_setup(request, selector);
    int status = claim_for_transfer(device);
    if (status >= 0) {
        status = libusb_control_transfer(device.usb_handle, setup.type, request, setup.value,
                                         setup.index, data.data(),
                                         static_cast<uint16_t>(data.size()), 0);
    }
    return note_outcome(device, status);
}

Status exchange_once(const Reading& reading, Width width, uint32_t address, std::span<uint8_t> out)
{
    NyDevice& device = *reading.camera.device();
    auto frame = make_frame(reading, width, address, out);
    if (!frame)
        return frame.status();
    const int taken = transfer(device, UVC_SET_CUR, frame->selector, frame->request);
    if (Status sent = check_request(reading, *frame, taken); !sent)
        return sent;
    std::vector<uint8_t> answer(frame->request.size());
    const int moved = transfer(device, UVC_GET_CUR, frame->selector, answer);
    return take_answer(reading, *frame, answer, moved);
}

Status try_again(const Reading& reading, const std::function<Status()>& act)
{
    for (int tries = 1;; ++tries) {
        Status done = act();
        if (done || done.reason() == Reason::kCameraGone || tries == kTries)
            return done;
        tell_read_again(reading, done);
    }
}

} // namespace

VendorSetup vendor_setup(uint8_t request, uint8_t selector)
{
    constexpr uint8_t kToInterface = 0x21;
    constexpr uint8_t kFromInterface = 0xA1;
    return {.type = request == UVC_SET_CUR ? kToInterface : kFromInterface,
            .value = static_cast<uint16_t>(selector << 8),
            .index = NY_UNIT_VENDOR << 8};
}

int claim_for_transfer(NyDevice& device)
{
    return device.usb_handle != nullptr ? libusb_claim_interface(device.usb_handle, 0)
                                        : LIBUSB_ERROR_NO_DEVICE;
}

int note_outcome(NyDevice& device, int status)
{
    if (status == LIBUSB_ERROR_NO_DEVICE)
        (void)nyxus_mark_device_gone(&device);
    return status;
}

Status exchange(const Reading& reading, Width width, uint32_t address, std::span<uint8_t> out)
{
    return try_again(reading, [&] { return exchange_once(reading, width, address, out); });
}

Status select_block(const Reading& reading, uint32_t address)
{
    constexpr unsigned kBlockBits = 16;
    if (!selects_blocks(reading.camera))
        return {};
    std::vector<uint8_t> index = control_buffer(reading.camera, ZRV_XU_FLASH_BLOCK, 0);
    const size_t block = address >> kBlockBits;
    for (size_t i = 0; i < std::min<size_t>(2, index.size()); ++i)
        index[i] = static_cast<uint8_t>(block >> (8 * i));
    const std::string doing = text::format("selecting block %zu of the ROM failed", block);
    return try_again(reading, [&] {
        return check_request(
            doing, index.size(),
            transfer(*reading.camera.device(), UVC_SET_CUR, ZRV_XU_FLASH_BLOCK, index));
    });
}

void tell_read_again(const Reading& reading, const Status& why)
{
    tell(reading.caller, {.kind = Event::Kind::kReadAgain, .phase = reading.phase, .status = why});
}

std::string reading_failed(Phase phase, uint32_t address)
{
    return to_text(phase) + text::format(" failed at 0x%04X", address);
}

} // namespace nyxus::engine
