// SPDX-License-Identifier: Apache-2.0
#include "session.h"
#include "trace/failure.h"
#include "unit.h"

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

/// Its handles are neither to be used nor closed once more.
static void forget_closed_session(NyDevice* pDevObj)
{
    pDevObj->usb_handle = nullptr;
    pDevObj->uvc_handle = nullptr;
    pDevObj->device_gone = 0;
    pDevObj->session_closed = 0;
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
    uvc_error_t rc = uvc_init(&pDevObj->uvc_context, nullptr);
    if (rc < 0) {
        pDevObj->uvc_context = nullptr;
        nyxus::report_uvc_error(rc, "uvc_init");
        return;
    }
    const bool opens_again = pDevObj->session_closed != 0;
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
    devh_global = devh;
}

void get_libusb_handle(libusb_device_handle** out)
{
    if (out == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_LIB_NULL, out);
        return;
    }
    *out = devh_global != nullptr ? uvc_get_libusb_handle(devh_global) : nullptr;
}

void nyxus::report_uvc_error(uvc_error_t error, const char* step)
{
    if (!has_line_callback()) {
        uvc_perror(error, step);
        return;
    }
    trace_bare(NYXUS_LINE_LIBUVC, "%s: %s (%d)\n", step, uvc_strerror(error), error);
}

bool nyxus::camera_has_gone(NyDevice* pDevObj)
{
    if (pDevObj->usb_handle != nullptr &&
        libusb_kernel_driver_active(pDevObj->usb_handle, 0) == LIBUSB_ERROR_NO_DEVICE)
        pDevObj->device_gone = 1;
    return pDevObj->device_gone != 0;
}

void nyxus::close_session(NyDevice* pDevObj, uvc_device_handle_t* handle)
{
    if (pDevObj->session_closed)
        return;
    pDevObj->session_closed = 1;
    // libusb aborts the process when a handle of a detached device is closed after libuvc has
    // touched its alternate setting, which uvc_close always does. What is left behind is one
    // handle and libuvc's event thread.
    if (pDevObj->device_gone)
        return;
    if (handle != nullptr)
        uvc_close(handle);
    if (pDevObj->uvc_context != nullptr)
        uvc_exit(pDevObj->uvc_context);
}

int32_t close_libuvc(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (pDevObj->session_closed)
        return 0;
    uvc_device_handle_t* handle = devh_global != nullptr ? devh_global : pDevObj->uvc_handle;
    devh_global = nullptr; // closed now, or gone: never to be closed again
    nyxus::close_session(pDevObj, handle);
    return 0;
}
