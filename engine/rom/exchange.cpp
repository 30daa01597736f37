// SPDX-License-Identifier: Apache-2.0
#include "exchange.h"

#include <nyxus/extensions.h>
#include <nyxus/memory.h>
#include <algorithm>
#include <functional>

#include "report/phase_scope.h"
#include "text/format.h"

namespace nyxus::engine {

namespace {

constexpr int kTries = 4;
constexpr size_t kNarrowHeaderBytes = 3;
constexpr size_t kWideHeaderBytes = 4;

/// A request and its answer have the length of the control.
struct Frame {
    uint8_t selector;
    size_t header_bytes; ///< length and address; the answer of most cameras repeats them
    std::vector<uint8_t> bytes;
};

uint8_t byte_of(size_t value, unsigned shift)
{
    return static_cast<uint8_t>(value >> shift);
}

std::vector<uint8_t> control_buffer(Camera& camera, uint8_t selector, uint8_t contents)
{
    const int32_t length = nyxus_control_length(camera.device(), selector);
    std::vector<uint8_t> bytes(length > 0 ? static_cast<size_t>(length) : 0);
    std::ranges::fill(bytes, contents);
    return bytes;
}

Frame narrow_request(Camera& camera, uint32_t address, size_t size)
{
    Frame frame{ZRV_XU_EXT_ROM, kNarrowHeaderBytes, control_buffer(camera, ZRV_XU_EXT_ROM, 0)};
    const uint8_t header[] = {byte_of(XU_FLAG_READ | size, 0), byte_of(address, 8),
                              byte_of(address, 0)};
    std::copy_n(header, std::min(sizeof header, frame.bytes.size()), frame.bytes.begin());
    return frame;
}

/// While the ROM is unlocked the firmware takes this for a write; ones change no flash.
Frame wide_request(Camera& camera, uint32_t address, size_t size)
{
    constexpr uint8_t kErased = 0xFF;
    Frame frame{ZRV_XU_Read_EXT_ROM_512, kWideHeaderBytes,
                control_buffer(camera, ZRV_XU_Read_EXT_ROM_512, kErased)};
    const uint8_t header[] = {byte_of(size, 8), byte_of(size, 0), byte_of(address, 8),
                              byte_of(address, 0)};
    std::copy_n(header, std::min(sizeof header, frame.bytes.size()), frame.bytes.begin());
    return frame;
}

/// The bytes that have moved, or libusb's code. The library tells only whether any have.
int transfer(NyDevice& device, uint8_t request, uint8_t selector, std::span<uint8_t> data)
{
    constexpr uint8_t kToInterface = 0x21;
    constexpr uint8_t kFromInterface = 0xA1;
    libusb_device_handle* handle = device.usb_handle;
    // As the library does: a reset or another user may have taken the claim away.
    int status = handle != nullptr ? libusb_claim_interface(handle, 0) : LIBUSB_ERROR_NO_DEVICE;
    if (status >= 0) {
        status = libusb_control_transfer(
            handle, request == UVC_SET_CUR ? kToInterface : kFromInterface, request,
            static_cast<uint16_t>(selector << 8), NY_UNIT_VENDOR << 8, data.data(),
            static_cast<uint16_t>(data.size()), 0);
    }
    if (status == LIBUSB_ERROR_NO_DEVICE)
        (void)nyxus_mark_device_gone(&device);
    return status;
}

Status unreliable(const std::string& doing, const std::string& why)
{
    return {Reason::kUnreliableReads, doing + ": " + why};
}

/// With libusb's words and the status, as the library's messages end.
Status transfer_failure(const std::string& doing, int libusb_code)
{
    const Status failure = usb_failure(doing, libusb_code);
    return {failure.reason(), failure.message(), failure.code(),
            text::format("<ERROR_LIBUSB> libusb_control_transfer() FAILED, %s, %d",
                         libusb_strerror(libusb_code), failure.code())};
}

Status send(Camera& camera, const std::string& doing, uint8_t selector, std::span<uint8_t> data)
{
    const int sent = transfer(*camera.device(), UVC_SET_CUR, selector, data);
    if (sent < 0)
        return transfer_failure(doing, sent);
    if (static_cast<size_t>(sent) == data.size())
        return {};
    return unreliable(doing, text::format("the camera took only %d of %zu bytes of the request",
                                          sent, data.size()));
}

/// The answer in the place of the request.
Status fetch(Camera& camera, const std::string& doing, Frame& frame, size_t needed)
{
    std::vector<uint8_t> answer(frame.bytes.size());
    const int fetched = transfer(*camera.device(), UVC_GET_CUR, frame.selector, answer);
    if (fetched < 0)
        return transfer_failure(doing, fetched);
    if (static_cast<size_t>(fetched) < needed) {
        return unreliable(doing, text::format("the camera answered %d bytes where %zu were due",
                                              fetched, needed));
    }
    AddressEcho& echo = frame.selector == ZRV_XU_EXT_ROM ? camera.narrow_echo : camera.wide_echo;
    const bool repeats = std::ranges::equal(std::span(answer).first(frame.header_bytes),
                                            std::span(frame.bytes).first(frame.header_bytes));
    if (!echo.accepts(repeats))
        return unreliable(doing, "the camera answered another request");
    frame.bytes.swap(answer);
    return {};
}

Status exchange_once(const Reading& reading, Width width, uint32_t address, std::span<uint8_t> out)
{
    Camera& camera = reading.camera;
    const std::string doing = reading_failed(reading.phase, address);
    Frame frame = width == Width::k512 ? wide_request(camera, address, out.size())
                                       : narrow_request(camera, address, out.size());
    const size_t needed = frame.header_bytes + out.size();
    if (frame.bytes.size() < needed)
        return unreliable(doing, "the camera's control is too short for an answer");
    if (Status sent = send(camera, doing, frame.selector, frame.bytes); !sent)
        return sent;
    if (Status fetched = fetch(camera, doing, frame, needed); !fetched)
        return fetched;
    std::copy_n(frame.bytes.begin() + static_cast<ptrdiff_t>(frame.header_bytes), out.size(),
                out.begin());
    return {};
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
        index[i] = byte_of(block, static_cast<unsigned>(8 * i));
    const std::string doing = text::format("selecting block %zu of the ROM failed", block);
    return try_again(reading,
                     [&] { return send(reading.camera, doing, ZRV_XU_FLASH_BLOCK, index); });
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
