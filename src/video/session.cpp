// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "safe_stop.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/session_state.h"

uvc_device_handle_t* devh_global = nullptr;
uvc_stream_ctrl_t ctrl;

static_assert(sizeof(StreamCallbackRecord) == 16 || sizeof(void*) != 8);
static_assert(offsetof(VideoStreamParam, frame) == 16);

/// The device of the list at the same place on the bus, or nullptr.
static uvc_device_t* find_same_device(uvc_device_t** list, libusb_device* device)
{
    const uint8_t bus = libusb_get_bus_number(device);
    const uint8_t address = libusb_get_device_address(device);
    for (; *list != nullptr; ++list) {
        if (uvc_get_bus_number(*list) == bus && uvc_get_device_address(*list) == address)
            return *list;
    }
    return nullptr;
}

static int32_t check_device(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    return 0;
}

/// Its handles are neither to be used nor closed once more, and what streamed, if it was abandoned,
/// still uses its record.
static void forget_closed_session(NyDevice* pDevObj)
{
    pDevObj->usb_handle = nullptr;
    pDevObj->uvc_handle = nullptr;
    pDevObj->device_gone = 0;
    pDevObj->session_closed = nyxus::kSessionOpen;
    pDevObj->stream_running = 0;
    pDevObj->stream_record_owned = 0;
}

void init_uvc_video(NyDevice* pDevObj)
{
    if (check_device(pDevObj) < 0)
        return;
    if (pDevObj->usb_device == nullptr) {
        std::puts("Wrong libusb device");
        return;
    }
    uvc_error_t rc = uvc_init(&pDevObj->uvc_context, nullptr);
    if (rc < 0) {
        pDevObj->uvc_context = nullptr;
        uvc_perror(rc, "uvc_init");
        return;
    }
    const bool opens_again = pDevObj->session_closed != nyxus::kSessionOpen;
    if (opens_again)
        forget_closed_session(pDevObj);
    uvc_device_t** list = nullptr;
    rc = uvc_get_device_list(pDevObj->uvc_context, &list);
    if (rc < 0) {
        uvc_perror(rc, "uvc_get_device_list");
        return;
    }
    // The list stays allocated where the camera cannot be opened: its devices are still the
    // application's to look at.
    uvc_device_t* match = find_same_device(list, pDevObj->usb_device);
    pDevObj->uvc_handle = nullptr;
    if (match == nullptr)
        return;
    uvc_device_handle_t* handle = nullptr;
    rc = uvc_open(match, &handle);
    if (rc < 0) {
        uvc_perror(rc, "uvc_open");
        return;
    }
    pDevObj->uvc_handle = handle;
    if (opens_again)
        pDevObj->usb_handle = uvc_get_libusb_handle(handle);
    pDevObj->stream_ctrl = {};
    uvc_free_device_list(list, 1);
}

void setLibuvcHandleForNYXUS(uvc_device_handle_t* devh)
{
    devh_global = devh;
}

static int32_t check_out(libusb_device_handle** out)
{
    NY_REQUIRE_AS(NYXUS_E_LIB_NULL, out);
    return 0;
}

void get_libusb_handle(libusb_device_handle** out)
{
    if (check_out(out) == 0)
        *out = devh_global != nullptr ? uvc_get_libusb_handle(devh_global) : nullptr;
}

int32_t close_libuvc(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pDevObj->session_closed != nyxus::kSessionOpen)
        return 0;
    if (pDevObj->stream_running)
        stopVideoStream(pDevObj);
    uvc_device_handle_t* handle = devh_global != nullptr ? devh_global : pDevObj->uvc_handle;
    devh_global = nullptr; // closed now, or gone: never to be closed again
    nyxus::close_session(pDevObj, handle);
    return 0;
}
