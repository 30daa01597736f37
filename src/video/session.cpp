// SPDX-License-Identifier: Apache-2.0
#include "session.h"
#include <utility>
#include "safe_stop.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/session_state.h"

uvc_device_handle_t* devh_global = nullptr;
uvc_stream_ctrl_t ctrl;

static_assert(sizeof(StreamCallbackRecord) == 16 || sizeof(void*) != 8);
static_assert(offsetof(VideoStreamParam, frame) == 16);

/// Of the objects that this thread opens.
static thread_local bool with_event_thread = true;

int32_t nyxus_set_event_thread(int32_t bEventThread)
{
    return std::exchange(with_event_thread, bEventThread != 0) ? 1 : 0;
}

libusb_context* nyxus_usb_context(const NyDevice* pDevObj)
{
    return pDevObj != nullptr ? pDevObj->usb_context : nullptr;
}

/// libuvc starts its event thread only for a context of its own.
static uvc_error_t init_context(NyDevice* pDevObj)
{
    pDevObj->usb_context = nullptr;
    if (!with_event_thread && libusb_init(&pDevObj->usb_context) < 0)
        pDevObj->usb_context = nullptr;
    const uvc_error_t rc = uvc_init(&pDevObj->uvc_context, pDevObj->usb_context);
    if (rc >= 0)
        return rc;
    pDevObj->uvc_context = nullptr;
    if (pDevObj->usb_context != nullptr)
        libusb_exit(pDevObj->usb_context);
    pDevObj->usb_context = nullptr;
    return rc;
}

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
    if (pDevObj == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_DEVICE_NULL, pDevObj);
        return;
    }
    const nyxus::DeviceScope scope(pDevObj);
    if (pDevObj->usb_device == nullptr) {
        nyxus::trace_bare(NYXUS_LINE_OUTPUT, "Wrong libusb device\n");
        return;
    }
    uvc_error_t rc = init_context(pDevObj);
    if (rc < 0) {
        nyxus::report_uvc_error(rc, "uvc_init");
        return;
    }
    const bool opens_again = pDevObj->session_closed != nyxus::kSessionOpen;
    if (opens_again)
        forget_closed_session(pDevObj);
    uvc_device_t** list = nullptr;
    rc = uvc_get_device_list(pDevObj->uvc_context, &list);
    if (rc < 0) {
        nyxus::report_uvc_error(rc, "uvc_get_device_list");
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
        nyxus::report_uvc_error(rc, "uvc_open");
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
    __atomic_store_n(&devh_global, devh, __ATOMIC_RELEASE);
}

void get_libusb_handle(libusb_device_handle** out)
{
    if (out == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_LIB_NULL, out);
        return;
    }
    uvc_device_handle_t* handle = __atomic_load_n(&devh_global, __ATOMIC_ACQUIRE);
    *out = handle != nullptr ? uvc_get_libusb_handle(handle) : nullptr;
}

void nyxus::report_uvc_error(uvc_error_t error, const char* step)
{
    if (!has_line_callback()) {
        uvc_perror(error, step);
        return;
    }
    trace_bare(NYXUS_LINE_LIBUVC, "%s: %s (%d)\n", step, uvc_strerror(error), error);
}

int32_t close_libuvc(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pDevObj->session_closed != nyxus::kSessionOpen)
        return 0;
    if (pDevObj->stream_running)
        stopVideoStream(pDevObj);
    // Closed now, or gone: never to be closed again, not even by another thread's object.
    uvc_device_handle_t* global = __atomic_exchange_n(&devh_global, nullptr, __ATOMIC_ACQ_REL);
    nyxus::close_session(pDevObj, global != nullptr ? global : pDevObj->uvc_handle);
    return 0;
}
