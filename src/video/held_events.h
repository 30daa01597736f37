// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libusb-1.0/libusb.h>
#include <semaphore.h>

namespace nyxus {

/// libuvc's event thread, held inside a callback of a transfer of our own: until it is let go, it
/// completes no transfer, and whoever closes the handle waits for it.
class HeldEvents {
public:
    /// nullptr where it cannot be held: the camera is gone, or has no status endpoint. The transfer
    /// waits at that endpoint beside libuvc's own, and nothing of it is seen on the bus.
    static HeldEvents* hold(libusb_device_handle* handle);
    /// The object is gone then. Never called, it holds the thread for ever.
    void let_go();

private:
    static constexpr int kMostStatusBytes = 64;

    static void LIBUSB_CALL on_event_thread(libusb_transfer* transfer);
    static HeldEvents* create();
    void destroy();
    bool submit(libusb_device_handle* handle, unsigned char endpoint);

    sem_t reached_;
    sem_t released_;
    unsigned char status_[kMostStatusBytes];
};

} // namespace nyxus
