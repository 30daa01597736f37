// SPDX-License-Identifier: Apache-2.0
#include "bus/ioctl_session.h"

#include "usb/setup.h"

#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace sim {

namespace {

uint64_t address_of(const void* pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

void add_bytes(std::vector<uint8_t>& payload, const void* bytes, size_t count)
{
    const auto* first = static_cast<const uint8_t*>(bytes);
    payload.insert(payload.end(), first, first + count);
}

uint32_t number_at(const void* argument)
{
    uint32_t number = 0;
    std::memcpy(&number, argument, sizeof number);
    return number;
}

// Setup, and the data if it goes to the camera.
int add_control_payload(const usbdevfs_urb& urb, std::vector<uint8_t>& payload)
{
    if (urb.buffer_length < static_cast<int>(kSetupBytes))
        return -EINVAL;
    const auto* bytes = static_cast<const uint8_t*>(urb.buffer);
    const Setup setup = Setup::from_wire(std::span<const uint8_t, kSetupBytes>(bytes, kSetupBytes));
    const size_t room = static_cast<size_t>(urb.buffer_length) - kSetupBytes;
    const size_t data_bytes = setup.is_in() ? 0 : std::min<size_t>(setup.length, room);
    add_bytes(payload, bytes, kSetupBytes + data_bytes);
    return 0;
}

} // namespace

int IoctlSession::ioctl(uint32_t code, void* argument)
{
    const bool needs_argument = _IOC_DIR(code) != _IOC_NONE || code == USBDEVFS_DISCARDURB;
    if (needs_argument && argument == nullptr)
        return -EFAULT;
    switch (code) {
        case USBDEVFS_CLAIMINTERFACE:
        case USBDEVFS_RELEASEINTERFACE:
        case USBDEVFS_SETCONFIGURATION:
        case USBDEVFS_CLEAR_HALT:
        case USBDEVFS_RESETEP:
            return simple_call(code, number_at(argument), 0);
        case USBDEVFS_DISCONNECT_CLAIM: {
            const auto* claim = static_cast<const usbdevfs_disconnect_claim*>(argument);
            return simple_call(code, claim->interface, claim->flags);
        }
        case USBDEVFS_SETINTERFACE: {
            const auto* setting = static_cast<const usbdevfs_setinterface*>(argument);
            return simple_call(code, setting->interface, setting->altsetting);
        }
        case USBDEVFS_IOCTL: {
            const auto* command = static_cast<const usbdevfs_ioctl*>(argument);
            return simple_call(code, static_cast<uint32_t>(command->ifno),
                               static_cast<uint32_t>(command->ioctl_code));
        }
        case USBDEVFS_RESET:
            return simple_call(code, 0, 0);
        case USBDEVFS_GETDRIVER:
            return read_driver_name(argument);
        case USBDEVFS_GET_CAPABILITIES:
        case USBDEVFS_CONNECTINFO:
        case USBDEVFS_GET_SPEED:
            return read_number(code, argument);
        case USBDEVFS_SUBMITURB:
            return submit(static_cast<usbdevfs_urb*>(argument));
        case USBDEVFS_REAPURB:
            return reap(true, argument);
        case USBDEVFS_REAPURBNDELAY:
            return reap(false, argument);
        case USBDEVFS_DISCARDURB: {
            Request request{{.code = code, .urb = address_of(argument)}, {}};
            return channel_->call(std::move(request)).header.result;
        }
        default:
            return -ENOTTY;
    }
}

int IoctlSession::simple_call(uint32_t code, uint32_t first, uint32_t second)
{
    return channel_->call({{.code = code, .first = first, .second = second}, {}}).header.result;
}

int IoctlSession::read_number(uint32_t code, void* argument)
{
    const ReplyHeader reply = channel_->call({{.code = code}, {}}).header;
    if (reply.result < 0)
        return reply.result;
    switch (code) {
        case USBDEVFS_GET_SPEED:
            return static_cast<int>(reply.value);
        case USBDEVFS_CONNECTINFO:
            *static_cast<usbdevfs_connectinfo*>(argument) = {reply.value, 0};
            return 0;
        default:
            std::memcpy(argument, &reply.value, sizeof reply.value);
            return 0;
    }
}

int IoctlSession::read_driver_name(void* argument)
{
    auto* driver = static_cast<usbdevfs_getdriver*>(argument);
    const Reply reply =
        channel_->call({{.code = USBDEVFS_GETDRIVER, .first = driver->interface}, {}});
    if (reply.header.result < 0)
        return reply.header.result;
    const size_t characters = std::min<size_t>(reply.payload.size(), USBDEVFS_MAXDRIVERNAME);
    std::copy_n(reply.payload.begin(), characters, driver->driver);
    driver->driver[characters] = '\0';
    return 0;
}

int IoctlSession::submit(usbdevfs_urb* urb)
{
    const bool is_control = urb->type == USBDEVFS_URB_TYPE_CONTROL;
    const bool is_iso = urb->type == USBDEVFS_URB_TYPE_ISO;
    const int packets = is_iso ? urb->number_of_packets : 0;
    if (urb->buffer_length < 0 || static_cast<uint32_t>(urb->buffer_length) > kMaxUrbBytes ||
        packets < 0 || packets > static_cast<int>(kMaxIsoPackets))
        return -EINVAL;
    if (urb->buffer == nullptr && urb->buffer_length > 0)
        return -EFAULT;
    Request request;
    request.header.code = USBDEVFS_SUBMITURB;
    request.header.urb = address_of(urb);
    request.header.urb_type = urb->type;
    request.header.urb_endpoint = urb->endpoint;
    request.header.urb_bytes = static_cast<uint32_t>(urb->buffer_length);
    request.header.iso_packets = static_cast<uint16_t>(packets);
    if (is_control) {
        if (const int status = add_control_payload(*urb, request.payload); status < 0)
            return status;
    }
    for (int i = 0; i < packets; ++i)
        add_bytes(request.payload, &urb->iso_frame_desc[i].length, sizeof(uint32_t));

    // The completion can be reaped by another thread before the call returns.
    const uint64_t name = address_of(urb);
    const Target target{static_cast<uint8_t*>(urb->buffer), request.header.urb_bytes,
                        request.header.iso_packets, is_control};
    {
        const std::lock_guard lock(mutex_);
        targets_[name] = target;
    }
    const int status = channel_->call(std::move(request)).header.result;
    if (status < 0) {
        const std::lock_guard lock(mutex_);
        targets_.erase(name);
    }
    return status;
}

int IoctlSession::reap(bool wait, void* argument)
{
    for (;;) {
        const Reply reply = channel_->call({{.code = USBDEVFS_REAPURBNDELAY}, {}});
        if (reply.header.result == -EAGAIN && wait) {
            pollfd ready{channel_->ready_fd(), POLLOUT, 0};
            if (poll(&ready, 1, -1) < 0)
                return -errno;
            continue;
        }
        if (reply.header.result < 0)
            return reply.header.result;
        Target target{};
        {
            const std::lock_guard lock(mutex_);
            const auto found = targets_.find(reply.header.urb);
            if (found == targets_.end())
                return -EIO;
            target = found->second;
            targets_.erase(found);
        }
        deliver(reply, target);
        auto* urb = reinterpret_cast<void*>(static_cast<uintptr_t>(reply.header.urb));
        std::memcpy(argument, &urb, sizeof urb);
        return 0;
    }
}

void IoctlSession::deliver(const Reply& reply, const Target& target)
{
    auto* urb = reinterpret_cast<usbdevfs_urb*>(static_cast<uintptr_t>(reply.header.urb));
    const size_t skipped = target.is_control ? kSetupBytes : 0;
    const size_t room = target.bytes - skipped;
    urb->status = reply.header.status;
    urb->actual_length = static_cast<int>(std::min<size_t>(reply.header.actual_bytes, room));
    urb->error_count = 0;

    const size_t packets = std::min<size_t>(
        {reply.header.iso_packets, target.packets, reply.payload.size() / sizeof(IsoResult)});
    auto data = std::span(reply.payload).subspan(packets * sizeof(IsoResult));
    size_t offset = 0; // of the packet's room; the data come without gaps
    for (size_t i = 0; i < packets; ++i) {
        IsoResult result;
        std::memcpy(&result, reply.payload.data() + i * sizeof result, sizeof result);
        urb->iso_frame_desc[i].actual_length = result.actual_bytes;
        urb->iso_frame_desc[i].status = static_cast<unsigned>(result.status);
        urb->error_count += result.status != 0 ? 1 : 0;
        const size_t moved = std::min<size_t>({result.actual_bytes, data.size(), room - offset});
        std::copy_n(data.begin(), moved, target.buffer + offset);
        data = data.subspan(moved);
        offset = std::min<size_t>(offset + urb->iso_frame_desc[i].length, room);
    }
    if (packets == 0)
        std::copy_n(data.begin(), std::min(data.size(), room), target.buffer + skipped);
}

} // namespace sim
