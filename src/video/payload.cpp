// SPDX-License-Identifier: Apache-2.0
#include "payload.h"

#include <algorithm>
#include <cstdio>

#include "held_events.h"
#include "trace/failure.h"
#include "unit.h"

namespace {

constexpr uint64_t kTransfers = 100; // that libuvc queues
constexpr uint64_t kMebibyte = 1 << 20;
constexpr uint64_t kUsualLimit_MiB = 16;
constexpr uint64_t kUnlimited_MiB = 1024; // libuvc allocates as much of its own
constexpr uint64_t kStreams = 8;          // that share what the kernel lends
constexpr uint64_t kLeastTransfers = 4;   // that a stream goes on with
constexpr uint32_t kMostFrameBytes = 256 << 20;
constexpr uint32_t kLeastPayload = 4096;
constexpr uint32_t kBulkPacketBytes = 1024;

/// What the kernel keeps beside the bytes of a transfer.
constexpr uint64_t with_kernel_bytes(uint64_t transfer_bytes)
{
    return transfer_bytes + transfer_bytes / 512 + 1024;
}

/// Mebibytes; 0: no limit.
uint64_t kernel_limit_MiB()
{
    unsigned long long limit = kUsualLimit_MiB;
    std::FILE* file = std::fopen("/sys/module/usbcore/parameters/usbfs_memory_mb", "re");
    if (file == nullptr)
        return limit;
    if (std::fscanf(file, "%llu", &limit) != 1)
        limit = kUsualLimit_MiB;
    std::fclose(file);
    return std::min<uint64_t>(limit, kUnlimited_MiB);
}

uint64_t lent_bytes()
{
    const uint64_t limit = kernel_limit_MiB();
    return (limit != 0 ? limit : kUnlimited_MiB) * kMebibyte;
}

uint32_t payload_of_a_share(uint64_t share_bytes)
{
    const uint64_t transfer_bytes = share_bytes / kTransfers;
    const uint64_t kernel_bytes = with_kernel_bytes(transfer_bytes) - transfer_bytes;
    const uint64_t payload = transfer_bytes > kernel_bytes ? transfer_bytes - kernel_bytes : 0;
    return std::max(static_cast<uint32_t>(payload) / kBulkPacketBytes * kBulkPacketBytes,
                    kLeastPayload);
}

uint32_t packet_bytes(const libusb_interface_descriptor& setting)
{
    if (setting.bNumEndpoints < 1)
        return 0;
    const unsigned size = setting.endpoint[0].wMaxPacketSize;
    return (size & 0x07FF) * ((size >> 11 & 3) + 1);
}

/// How libuvc will transfer a stream.
struct Transfers {
    uint64_t bytes; ///< of one; 0: libuvc must not be asked to start it
    bool is_bulk;
};

Transfers isochronous_transfers(const libusb_interface& interface, const uvc_stream_ctrl_t& control)
{
    constexpr uint64_t kMostPackets = 32;
    uint64_t largest = 0; // where none is large enough, libuvc says so
    for (int i = 0; i < interface.num_altsetting; ++i) {
        largest = std::max<uint64_t>(largest, packet_bytes(interface.altsetting[i]));
        if (largest >= control.dwMaxPayloadTransferSize)
            break;
    }
    if (largest == 0)
        return {0, false};
    const uint64_t packets = (control.dwMaxVideoFrameSize + largest - 1) / largest;
    return {std::min(packets, kMostPackets) * largest, false};
}

/// libuvc takes the number of an interface for its place.
Transfers transfers_in(const libusb_config_descriptor& config, const uvc_stream_ctrl_t& control)
{
    const unsigned place = control.bInterfaceNumber;
    if (place >= config.bNumInterfaces || config.interface[place].num_altsetting < 1 ||
        control.dwMaxPayloadTransferSize == 0 || control.dwMaxVideoFrameSize == 0 ||
        control.dwMaxVideoFrameSize > kMostFrameBytes)
        return {0, false};
    const libusb_interface& interface = config.interface[place];
    if (interface.num_altsetting > 1)
        return isochronous_transfers(interface, control);
    return {control.dwMaxPayloadTransferSize, true};
}

Transfers transfers_of(NyDevice* pDevObj, const uvc_stream_ctrl_t& control)
{
    libusb_device* device = libusb_get_device(uvc_get_libusb_handle(pDevObj->uvc_handle));
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(device, 0, &config) != 0)
        return {0, false};
    const Transfers transfers = transfers_in(*config, control);
    libusb_free_config_descriptor(config);
    return transfers;
}

bool fit(const Transfers& transfers, uint64_t count, uint64_t bytes)
{
    return transfers.bytes != 0 && count * with_kernel_bytes(transfers.bytes) <= bytes;
}

/// The frame's size stays what the host has made of it.
int32_t ask_for_payload(const char* function, NyDevice* pDevObj, uvc_stream_ctrl_t& control,
                        uint32_t payload_bytes)
{
    const uint32_t frame_bytes = control.dwMaxVideoFrameSize;
    control.dwMaxPayloadTransferSize = payload_bytes;
    const uvc_error_t rc = uvc_probe_stream_ctrl(pDevObj->uvc_handle, &control);
    control.dwMaxVideoFrameSize = frame_bytes;
    if (rc == 0)
        return 0;
    return nyxus::raise_failure(nyxus::FailureTag::kNyxus, rc, {function, kUnit, __LINE__},
                                "uvc_probe_stream_ctrl() FAILED, %s", uvc_strerror(rc));
}

int32_t refuse(const char* function, const Transfers& transfers)
{
    const uint64_t needed = kTransfers * with_kernel_bytes(transfers.bytes) / kMebibyte + 1;
    return nyxus::raise_failure(
        nyxus::FailureTag::kNyxus, UVC_ERROR_NO_MEM, {function, kUnit, __LINE__},
        "the stream needs %llu MiB for USB transfers, the kernel lends %llu: "
        "'echo %llu | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb'",
        static_cast<unsigned long long>(needed),
        static_cast<unsigned long long>(lent_bytes() / kMebibyte),
        static_cast<unsigned long long>(needed));
}

} // namespace

bool nyxus::is_kernel_memory_limited()
{
    return kernel_limit_MiB() != 0;
}

bool nyxus::all_transfers_fit(NyDevice* pDevObj, const uvc_stream_ctrl_t& control)
{
    return fit(transfers_of(pDevObj, control), kTransfers, lent_bytes());
}

int32_t nyxus::fit_payload(const char* function, NyDevice* pDevObj, uvc_stream_ctrl_t& control)
{
    const uint64_t lent = lent_bytes();
    Transfers transfers = transfers_of(pDevObj, control);
    if (transfers.is_bulk && !fit(transfers, kTransfers, lent / kStreams)) {
        const int32_t rv =
            ask_for_payload(function, pDevObj, control, payload_of_a_share(lent / kStreams));
        if (rv < 0)
            return rv;
        transfers = transfers_of(pDevObj, control);
    }
    if (transfers.bytes == 0) {
        return raise_failure(FailureTag::kNyxus, UVC_ERROR_INVALID_MODE,
                             {function, kUnit, __LINE__}, "the camera offers an impossible stream");
    }
    // Where not all of them fit, libuvc goes on with those that do: see safe_start.cpp.
    libusb_device_handle* usb = uvc_get_libusb_handle(pDevObj->uvc_handle);
    const uint64_t count = HeldEvents::is_possible(usb) ? kLeastTransfers : kTransfers;
    return fit(transfers, count, lent) ? 0 : refuse(function, transfers);
}
