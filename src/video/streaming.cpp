// SPDX-License-Identifier: Apache-2.0
// Uncompressed video: frames by callback, or one at a time.
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <cstdlib>
#include <ctime>
#include <new>

#include "formats.h"
#include "payload.h"
#include "running_stream.h"
#include "safe_start.h"
#include "safe_stop.h"
#include "session.h"
#include "trace/failure.h"
#include "unit.h"

// Exported by libuvc, but declared in none of its public headers.
extern "C" uvc_frame_desc_t* uvc_find_frame_desc(uvc_device_handle_t* devh, uint16_t format_id,
                                                 uint16_t frame_id);

namespace {

constexpr uint32_t kPayloadHeaderBytes = 12;
constexpr int64_t kFrameWait_us = 1000000;
constexpr timespec kPollInterval = {0, 1000000};
constexpr int32_t kWithoutWaiting = -1;
constexpr uint8_t kSnapshotTrigger = 3;

int64_t now_us()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

nyxus::RunningStream* create_stream(const StreamCallbackRecord& record)
{
    void* memory = std::malloc(sizeof(nyxus::RunningStream));
    if (memory == nullptr)
        return nullptr;
    auto* stream = new (memory) nyxus::RunningStream();
    stream->record = record;
    return stream;
}

void destroy(nyxus::RunningStream* stream)
{
    stream->~RunningStream();
    std::free(stream);
}

bool is_complete(const uvc_frame_t& frame)
{
    return frame.data_bytes == frame.width * frame.height * 2;
}

void internal_cb(uvc_frame_t* frame, void* user)
{
    auto& stream = *static_cast<nyxus::RunningStream*>(user);
    const std::lock_guard lock(stream.mutex);
    if (!stream.silent && is_complete(*frame))
        stream.record.callback(frame, stream.record.param);
}

uvc_error_t ask_libuvc(NyDevice* pDevObj, const VideoStreamParam& param)
{
    if (pDevObj->uvc_handle == nullptr)
        return UVC_ERROR_NO_DEVICE;
    if (!nyxus::may_ask_libuvc(pDevObj->uvc_handle, param.width, param.height, param.fps))
        return UVC_ERROR_INVALID_MODE;
    pDevObj->stream_ctrl.bInterfaceNumber = 0; // libuvc tells it just before it claims it
    return uvc_get_stream_ctrl_format_size(
        pDevObj->uvc_handle, &pDevObj->stream_ctrl, UVC_FRAME_FORMAT_YUYV,
        static_cast<int>(param.width), static_cast<int>(param.height), static_cast<int>(param.fps));
}

/// The whole frame and its header are asked for as one transfer. Where the kernel lends too little
/// for that, the camera's own offer is taken, or what fits.
uvc_error_t choose_payload(const char* function, NyDevice* pDevObj, uint32_t negotiated_payload)
{
    uvc_stream_ctrl_t& control = pDevObj->stream_ctrl;
    control.dwMaxPayloadTransferSize = control.dwMaxVideoFrameSize + kPayloadHeaderBytes;
    if (nyxus::all_transfers_fit(pDevObj, control))
        return UVC_SUCCESS;
    control.dwMaxPayloadTransferSize = negotiated_payload;
    if (nyxus::all_transfers_fit(pDevObj, control))
        return UVC_SUCCESS;
    return static_cast<uvc_error_t>(nyxus::fit_payload(function, pDevObj, control));
}

/// Negotiates the stream; `negotiated_payload` keeps what the camera offered.
uvc_error_t negotiate(const char* function, NyDevice* pDevObj, const VideoStreamParam& param,
                      uint32_t* negotiated_payload)
{
    uvc_error_t rc = ask_libuvc(pDevObj, param);
    if (rc < 0) {
        nyxus::report_uvc_error(rc, "get stream ctrl");
        nyxus::give_back_interface(pDevObj);
        return rc;
    }
    uvc_stream_ctrl_t& control = pDevObj->stream_ctrl;
    *negotiated_payload = control.dwMaxPayloadTransferSize;
    const uvc_frame_desc_t* frame =
        uvc_find_frame_desc(pDevObj->uvc_handle, control.bFormatIndex, control.bFrameIndex);
    if (frame != nullptr)
        control.dwMaxVideoFrameSize = frame->dwMaxVideoFrameBufferSize;
    rc = choose_payload(function, pDevObj, *negotiated_payload);
    if (rc < 0) {
        nyxus::report_uvc_error(rc, "start_streaming");
        nyxus::give_back_interface(pDevObj);
    }
    return rc;
}

/// Starts the stream, once more with the camera's own payload size where no alternate setting of an
/// isochronous camera carries a whole frame.
uvc_error_t start_stream(NyDevice* pDevObj, uint32_t negotiated_payload,
                         uvc_stream_handle_t** stream, uvc_frame_callback_t* callback, void* user)
{
    uvc_error_t rc = nyxus::start_safely(pDevObj, stream, callback, user);
    if (rc == UVC_ERROR_INVALID_MODE && pDevObj->uvc_handle != nullptr) {
        pDevObj->stream_ctrl.dwMaxPayloadTransferSize = negotiated_payload;
        rc = nyxus::start_safely(pDevObj, stream, callback, user);
    }
    if (rc < 0)
        nyxus::report_uvc_error(rc, "start_streaming");
    return rc;
}

int32_t start_callback_stream(const char* function, NyDevice* pDevObj,
                              const VideoStreamParam& param, nyxus::RunningStream* stream)
{
    uint32_t negotiated_payload = 0;
    const uvc_error_t rc = negotiate(function, pDevObj, param, &negotiated_payload);
    uvc_stream_handle_t* handle = nullptr;
    return rc < 0 ? rc : start_stream(pDevObj, negotiated_payload, &handle, internal_cb, stream);
}

/// The next frame, nullptr after a second without one. Debian's libuvc keeps its own lock when a
/// wait of its own runs out, so that stopping the stream would hang: it is asked again and again
/// instead.
uvc_error_t wait_for_frame(uvc_stream_handle_t* stream, uvc_frame_t** frame)
{
    const int64_t end_us = now_us() + kFrameWait_us;
    for (;;) {
        const uvc_error_t rc = uvc_stream_get_frame(stream, frame, kWithoutWaiting);
        if (rc != UVC_SUCCESS || *frame != nullptr || now_us() >= end_us)
            return rc;
        nanosleep(&kPollInterval, nullptr);
    }
}

/// After a bad frame: stops the stream and asks the board for another picture. False when the
/// camera is gone.
bool retrigger(NyDevice* pDevObj)
{
    if (!nyxus::stop_streams(pDevObj))
        return false;
    (void)XuRegWrite(pDevObj, XDATA_SG_SENSOR_RESET_INIT, 1, &kSnapshotTrigger);
    return pDevObj->device_gone == 0;
}

/// Streams until a good frame comes, which ends it, or a stream does not start: without a limit.
int32_t take_snapshot(const char* function, NyDevice* pDevObj, VideoStreamParam* param)
{
    uint32_t negotiated_payload = 0;
    uvc_error_t rc = negotiate(function, pDevObj, *param, &negotiated_payload);
    if (rc < 0)
        return rc;
    for (;;) {
        uvc_stream_handle_t* stream = nullptr;
        rc = start_stream(pDevObj, negotiated_payload, &stream, nullptr, nullptr);
        if (rc < 0)
            return rc;
        param->frame = nullptr;
        rc = wait_for_frame(stream, &param->frame);
        if (rc == UVC_SUCCESS && param->frame != nullptr && is_complete(*param->frame))
            return 0;
        param->frame = nullptr;
        if (!retrigger(pDevObj)) {
            nyxus::report_uvc_error(UVC_ERROR_NO_DEVICE, "start_streaming");
            return UVC_ERROR_NO_DEVICE;
        }
    }
}

} // namespace

int32_t startVideoStream(NyDevice* pDevObj, NyFrameCallback callback, VideoStreamParam* param)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(callback);
    NY_REQUIRE(param);
    nyxus::RunningStream* stream = create_stream({param, callback});
    if (stream == nullptr)
        return UVC_ERROR_NO_MEM;
    nyxus::RunningStream* former = nyxus::current_stream(*pDevObj);
    const auto former_owner = static_cast<nyxus::StreamOwner>(pDevObj->stream_record_owned);
    const bool former_runs = former != nullptr && pDevObj->stream_running;
    nyxus::set_current_stream(pDevObj, stream, nyxus::kOwnedByObject);
    const int32_t rc = start_callback_stream(__func__, pDevObj, *param, stream);
    if (former_runs) { // and libuvc has refused this one
        nyxus::set_current_stream(pDevObj, former, former_owner);
        destroy(stream);
    } else if (former != nullptr && former_owner == nyxus::kOwnedByObject) {
        destroy(former);
    }
    return rc;
}

int32_t startVideoStream_snapshot(NyDevice* pDevObj, void* /*unused*/, VideoStreamParam* param)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(param);
    return take_snapshot(__func__, pDevObj, param);
}

void stopVideoStream(NyDevice* pDevObj)
{
    if (pDevObj == nullptr) {
        (void)NY_FAIL_NULL(NYXUS_E_DEVICE_NULL, pDevObj);
        return;
    }
    const nyxus::DeviceScope scope(pDevObj);
    (void)nyxus::end_stream(pDevObj);
}
