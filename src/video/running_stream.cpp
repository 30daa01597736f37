// SPDX-License-Identifier: Apache-2.0
#include "running_stream.h"

#include <cstdlib>

#include "safe_stop.h"

static_assert(offsetof(nyxus::RunningStream, record) == 0);

nyxus::RunningStream* nyxus::current_stream(const NyDevice& device)
{
    return device.stream_record_owned != kOwnedByNobody
               ? reinterpret_cast<RunningStream*>(device.stream_callback)
               : nullptr;
}

void nyxus::set_current_stream(NyDevice* pDevObj, RunningStream* stream, StreamOwner owner)
{
    pDevObj->stream_callback = &stream->record;
    pDevObj->stream_record_owned = owner;
}

/// No call of the caller's callback is under way or follows, whatever libuvc is still at.
static void silence(nyxus::RunningStream& stream)
{
    const std::lock_guard lock(stream.mutex);
    stream.silent = true;
    stream.changed.notify_all();
}

bool nyxus::end_stream(NyDevice* pDevObj)
{
    RunningStream* stream = current_stream(*pDevObj);
    if (stream != nullptr)
        silence(*stream);
    const bool stopped = stop_streams(pDevObj);
    if (stream != nullptr && pDevObj->stream_record_owned == kOwnedByCaller) {
        stream->device = nullptr;
        stream->is_abandoned = !stopped;
    }
    if (!stopped)
        return false; // libuvc's threads may still look at the record
    if (stream != nullptr && pDevObj->stream_record_owned == kOwnedByObject) {
        stream->~RunningStream();
        std::free(stream);
    }
    pDevObj->stream_record_owned = kOwnedByNobody; // the pointer itself stays as it is
    return true;
}
