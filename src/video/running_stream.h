// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/device.h>

#include <condition_variable>
#include <mutex>

namespace nyxus {

/// NyDevice::stream_record_owned: who frees what NyDevice::stream_callback leads to.
enum StreamOwner : uint8_t {
    kOwnedByNobody, ///< it is not there
    kOwnedByObject, ///< the device object, when it stops the stream
    kOwnedByCaller, ///< who has the NyStream
};

/// What a running stream keeps behind the record that callers know.
struct RunningStream {
    StreamCallbackRecord record; ///< first: the device object points here
    NyDevice* device;            ///< nullptr when the stream has ended
    bool is_abandoned;           ///< libuvc's threads may still look at it
    std::mutex mutex;            ///< held while a frame is handed over
    std::condition_variable changed;
    bool silent; ///< no frame is handed over any more
};

RunningStream* current_stream(const NyDevice& device);
void set_current_stream(NyDevice* pDevObj, RunningStream* stream, StreamOwner owner);

/// Ends whatever streams. False when the camera is gone: see stop_streams().
bool end_stream(NyDevice* pDevObj);

} // namespace nyxus
