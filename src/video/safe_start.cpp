// SPDX-License-Identifier: Apache-2.0
//
// When the kernel refuses a transfer, libuvc goes on with those before it. But if one of these ends
// while libuvc still queues others, the next one takes its memory, it cannot be queued again
// itself, and libuvc waits for it for ever when the stream is stopped. The same goes for transfers
// of another camera. So none ends meanwhile: the event threads of all that streams here are held.
#include "safe_start.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "held_events.h"
#include "payload.h"
#include "safe_stop.h"
#include "usb/session_state.h"

// Exported by libuvc, but declared in none of its public headers.
extern "C" uvc_error_t uvc_release_if(uvc_device_handle_t* devh, int idx);

namespace {

constexpr size_t kMostStreams = 32; // those beyond are not held

std::mutex streams_lock;
std::array<libusb_device_handle*, kMostStreams> streams; // nullptr: free

void replace(libusb_device_handle* old, libusb_device_handle* now)
{
    const auto place = std::find(streams.begin(), streams.end(), old);
    if (place != streams.end())
        *place = now;
}

/// Starts it while no transfer of this process ends.
uvc_error_t start_while_held(uvc_stream_handle_t* stream, uvc_frame_callback_t* callback,
                             void* user)
{
    std::array<nyxus::HeldEvents*, kMostStreams> held{};
    for (size_t i = 0; i < streams.size(); ++i) {
        if (streams[i] != nullptr && !nyxus::is_gone(streams[i]))
            held[i] = nyxus::HeldEvents::hold(streams[i]);
    }
    const uvc_error_t rc = uvc_stream_start(stream, callback, user, 0);
    for (nyxus::HeldEvents* events : held) {
        if (events != nullptr)
            events->let_go();
    }
    return rc;
}

} // namespace

/// What uvc_start_streaming() does inside, but for the end of a stream that does not start: libuvc
/// would close it itself, and not come back from that when the camera has just gone.
uvc_error_t nyxus::start_safely(NyDevice* pDevObj, uvc_stream_handle_t** stream,
                                uvc_frame_callback_t* callback, void* user)
{
    if (pDevObj->usb_context != nullptr)
        return UVC_ERROR_NOT_SUPPORTED; // nobody would take the frames
    uvc_error_t rc = uvc_stream_open_ctrl(pDevObj->uvc_handle, stream, &pDevObj->stream_ctrl);
    if (rc < 0) {
        if (rc != UVC_ERROR_BUSY) // by then it has claimed the interface
            give_back_interface(pDevObj);
        return rc;
    }
    pDevObj->stream_running = 1;
    {
        const std::lock_guard lock(streams_lock);
        replace(nullptr, uvc_get_libusb_handle(pDevObj->uvc_handle));
        rc = is_kernel_memory_limited() ? start_while_held(*stream, callback, user)
                                        : uvc_stream_start(*stream, callback, user, 0);
    }
    if (rc < 0)
        (void)stop_streams(pDevObj);
    return rc;
}

void nyxus::forget_stream(libusb_device_handle* handle)
{
    const std::lock_guard lock(streams_lock);
    replace(handle, nullptr);
}

void nyxus::give_back_interface(NyDevice* pDevObj)
{
    if (!is_session_open(*pDevObj) || pDevObj->stream_running || pDevObj->device_gone)
        return;
    const uint8_t number = pDevObj->stream_ctrl.bInterfaceNumber;
    if (number == 0 || is_gone(uvc_get_libusb_handle(pDevObj->uvc_handle)))
        return;
    (void)uvc_release_if(pDevObj->uvc_handle, number);
}
