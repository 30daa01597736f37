// SPDX-License-Identifier: Apache-2.0
// The part of a node that tells the camera's observers what passes the bus.
#include "bus/usbfs.h"

#include <linux/usbdevice_fs.h>

#include <algorithm>

namespace sim {

static_assert(USBDEVFS_URB_TYPE_ISO == static_cast<int>(TransferType::kIsochronous));
static_assert(USBDEVFS_URB_TYPE_INTERRUPT == static_cast<int>(TransferType::kInterrupt));
static_assert(USBDEVFS_URB_TYPE_CONTROL == static_cast<int>(TransferType::kControl));
static_assert(USBDEVFS_URB_TYPE_BULK == static_cast<int>(TransferType::kBulk));

namespace {

constexpr uint8_t kIn = 0x80;

std::vector<IsoPacket> iso_packets(std::span<const uint32_t> rooms,
                                   std::span<const IsoResult> results)
{
    std::vector<IsoPacket> packets(rooms.size());
    for (size_t i = 0; i < packets.size(); ++i)
        packets[i] = {rooms[i], results[i].actual_bytes, results[i].status};
    return packets;
}

} // namespace

// A finished IN transfer has its data behind the setup, if it has one.
void UsbfsFile::tell(void (UsbObserver::*event)(const BusTransfer&), const Urb& urb) const
{
    const Observers& observers = camera_.observers();
    if (observers.empty())
        return;
    BusTransfer transfer{.id = urb.id,
                         .type = static_cast<TransferType>(urb.type),
                         .endpoint = urb.endpoint,
                         .room = urb.buffer_bytes,
                         .status = urb.status,
                         .moved = urb.actual_bytes};
    std::span<const uint8_t> data = urb.data;
    if (transfer.type == TransferType::kControl) {
        transfer.setup = Setup::from_wire(data.first<kSetupBytes>());
        transfer.endpoint = transfer.setup.is_in() ? kIn : 0;
        transfer.room = transfer.setup.length;
        data = data.subspan(kSetupBytes);
    } else if (urb.endpoint == kInterruptEndpoint) {
        transfer.type = TransferType::kInterrupt; // though the host may call it bulk
    }
    if (event == &UsbObserver::finished) {
        data = transfer.is_in() ? data.first(std::min<size_t>(urb.actual_bytes, data.size()))
                                : std::span<const uint8_t>();
    } else if (transfer.is_in()) {
        data = {};
    }
    const std::vector<IsoPacket> packets = iso_packets(urb.packet_bytes, urb.packets);
    transfer.data = data;
    transfer.packets = packets;
    observers.tell(event, transfer);
}

void UsbfsFile::tell_request(const Setup& setup, int status) const
{
    const Observers& observers = camera_.observers();
    if (!observers.empty())
        observers.tell_request(camera_.next_transfer_id(), setup, status);
}

} // namespace sim
