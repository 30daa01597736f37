// SPDX-License-Identifier: Apache-2.0
#include "usb/observer.h"

namespace sim {

void Observers::tell_request(uint64_t id, const Setup& setup, int status) const
{
    BusTransfer transfer{.id = id,
                         .endpoint = setup.is_in() ? uint8_t{0x80} : uint8_t{0},
                         .setup = setup,
                         .room = setup.length};
    tell(&UsbObserver::submitted, transfer);
    transfer.status = status;
    tell(&UsbObserver::finished, transfer);
}

} // namespace sim
