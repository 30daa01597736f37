// SPDX-License-Identifier: Apache-2.0
#include "frame.h"

#include <nyxus/extensions.h>
#include <nyxus/memory.h>
#include <algorithm>

#include "text/format.h"

namespace nyxus::engine {

namespace {

uint8_t byte_of(size_t value, unsigned shift)
{
    return static_cast<uint8_t>(value >> shift);
}

Frame narrow_frame(Camera& camera, uint32_t address, std::span<uint8_t> out)
{
    return {.address = address,
            .out = out,
            .selector = ZRV_XU_EXT_ROM,
            .header_bytes = 3,
            .request = control_buffer(camera, ZRV_XU_EXT_ROM, 0)};
}

/// While the ROM is unlocked the firmware takes this for a write; ones change no flash.
Frame wide_frame(Camera& camera, uint32_t address, std::span<uint8_t> out)
{
    constexpr uint8_t kErased = 0xFF;
    return {.address = address,
            .out = out,
            .selector = ZRV_XU_Read_EXT_ROM_512,
            .header_bytes = 4,
            .request = control_buffer(camera, ZRV_XU_Read_EXT_ROM_512, kErased)};
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

} // namespace

std::vector<uint8_t> control_buffer(Camera& camera, uint8_t selector, uint8_t contents)
{
    const int32_t length = nyxus_control_length(camera.device(), selector);
    std::vector<uint8_t> bytes(length > 0 ? static_cast<size_t>(length) : 0);
    std::ranges::fill(bytes, contents);
    return bytes;
}

Result<Frame> make_frame(const Reading& reading, Width width, uint32_t address,
                         std::span<uint8_t> out)
{
    const bool is_wide = width == Width::k512;
    Frame frame = is_wide ? wide_frame(reading.camera, address, out)
                          : narrow_frame(reading.camera, address, out);
    if (frame.request.size() < frame.header_bytes + out.size()) {
        return unreliable(reading_failed(reading.phase, address),
                          "the camera's control is too short for an answer");
    }
    const size_t size = is_wide ? out.size() : XU_FLAG_READ | out.size();
    auto next = frame.request.begin();
    if (is_wide)
        *next++ = byte_of(size, 8);
    *next++ = byte_of(size, 0);
    *next++ = byte_of(address, 8);
    *next++ = byte_of(address, 0);
    return frame;
}

Status check_request(const std::string& doing, size_t size, int moved)
{
    if (moved < 0)
        return transfer_failure(doing, moved);
    if (static_cast<size_t>(moved) == size)
        return {};
    return unreliable(
        doing, text::format("the camera took only %d of %zu bytes of the request", moved, size));
}

Status check_request(const Reading& reading, const Frame& frame, int moved)
{
    if (moved == static_cast<int>(frame.request.size()))
        return {}; // words cost more than the rest
    return check_request(reading_failed(reading.phase, frame.address), frame.request.size(), moved);
}

Status take_answer(const Reading& reading, const Frame& frame, std::span<const uint8_t> answer,
                   int moved)
{
    const auto doing = [&] { return reading_failed(reading.phase, frame.address); };
    const size_t needed = frame.header_bytes + frame.out.size();
    if (moved < 0)
        return transfer_failure(doing(), moved);
    if (static_cast<size_t>(moved) < needed) {
        return unreliable(doing(), text::format("the camera answered %d bytes where %zu were due",
                                                moved, needed));
    }
    AddressEcho& echo =
        frame.selector == ZRV_XU_EXT_ROM ? reading.camera.narrow_echo : reading.camera.wide_echo;
    const bool repeats =
        std::ranges::equal(answer.first(frame.header_bytes),
                           std::span<const uint8_t>(frame.request).first(frame.header_bytes));
    if (!echo.accepts(repeats))
        return unreliable(doing(), "the camera answered another request");
    std::ranges::copy(answer.subspan(frame.header_bytes, frame.out.size()), frame.out.begin());
    return {};
}

} // namespace nyxus::engine
