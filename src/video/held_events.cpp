// SPDX-License-Identifier: Apache-2.0
#include "held_events.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include "semaphore_wait.h"

namespace {

constexpr int kVideoControlSubclass = 1;
constexpr long kWaking_ns = 50 * 1000000;
constexpr int kMostWakings = 100; // 5 s: the frames of a busy stream come first

bool is_status_endpoint(const libusb_endpoint_descriptor& endpoint)
{
    return (endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) == LIBUSB_TRANSFER_TYPE_INTERRUPT &&
           (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN) != 0;
}

unsigned char find_status_endpoint(const libusb_config_descriptor& config)
{
    for (int number = 0; number < config.bNumInterfaces; ++number) {
        const libusb_interface& interface = config.interface[number];
        if (interface.num_altsetting < 1)
            continue;
        const libusb_interface_descriptor& first = interface.altsetting[0];
        if (first.bInterfaceClass == LIBUSB_CLASS_VIDEO &&
            first.bInterfaceSubClass == kVideoControlSubclass && first.bNumEndpoints > 0 &&
            is_status_endpoint(first.endpoint[0]))
            return first.endpoint[0].bEndpointAddress;
    }
    return 0;
}

/// 0 when there is none.
unsigned char status_endpoint(libusb_device_handle* handle)
{
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(libusb_get_device(handle), 0, &config) != 0)
        return 0;
    const unsigned char endpoint = find_status_endpoint(*config);
    libusb_free_config_descriptor(config);
    return endpoint;
}

void wait(sem_t& semaphore)
{
    while (sem_wait(&semaphore) != 0 && errno == EINTR) {
    }
}

} // namespace

namespace nyxus {

HeldEvents* HeldEvents::create()
{
    void* memory = std::malloc(sizeof(HeldEvents));
    if (memory == nullptr)
        return nullptr;
    auto* events = new (memory) HeldEvents;
    sem_init(&events->reached_, 0, 0);
    sem_init(&events->released_, 0, 0);
    return events;
}

void HeldEvents::destroy()
{
    sem_destroy(&reached_);
    sem_destroy(&released_);
    std::free(this);
}

// The callback is the last to use the object.
void HeldEvents::on_event_thread(libusb_transfer* transfer)
{
    auto* events = static_cast<HeldEvents*>(transfer->user_data);
    sem_post(&events->reached_);
    wait(events->released_);
    events->destroy();
    libusb_free_transfer(transfer);
}

bool HeldEvents::submit(libusb_device_handle* handle, unsigned char endpoint)
{
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    if (transfer == nullptr)
        return false;
    libusb_fill_interrupt_transfer(transfer, handle, endpoint, status_, sizeof status_,
                                   on_event_thread, this, 0);
    if (libusb_submit_transfer(transfer) != 0) {
        libusb_free_transfer(transfer);
        return false;
    }
    (void)libusb_cancel_transfer(transfer); // of a camera that has just gone, it ends by itself
    return true;
}

bool HeldEvents::is_possible(libusb_device_handle* handle)
{
    return status_endpoint(handle) != 0;
}

HeldEvents* HeldEvents::hold(libusb_device_handle* handle)
{
    const unsigned char endpoint = status_endpoint(handle);
    HeldEvents* events = endpoint != 0 ? create() : nullptr;
    if (events == nullptr)
        return nullptr;
    if (!events->submit(handle, endpoint)) {
        events->destroy();
        return nullptr;
    }
    for (int step = 0; step < kMostWakings; ++step) {
        if (wait_for(events->reached_, kWaking_ns))
            return events;
        if (libusb_kernel_driver_active(handle, 0) == LIBUSB_ERROR_NO_DEVICE)
            break;
    }
    events->let_go();
    return nullptr;
}

void HeldEvents::let_go()
{
    sem_post(&released_);
}

} // namespace nyxus
