// SPDX-License-Identifier: Apache-2.0
#include "frame_queue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace nyxus {

bool FrameQueue::allocate(size_t frame_bytes)
{
    memory_ = static_cast<uint8_t*>(std::malloc(kPlaces * frame_bytes));
    frame_bytes_ = memory_ != nullptr ? frame_bytes : 0;
    for (unsigned place = 0; memory_ != nullptr && place < kPlaces; ++place)
        places_[place].data = memory_ + place * frame_bytes;
    return memory_ != nullptr;
}

void FrameQueue::release()
{
    std::free(memory_);
    memory_ = nullptr;
    frame_bytes_ = 0;
    waiting_ = 0;
}

bool FrameQueue::put(const NyStreamFrame& frame)
{
    const bool is_full = waiting_ == kMostWaiting;
    if (is_full) {
        std::rotate(places_, places_ + 1, places_ + kMostWaiting);
    } else {
        ++waiting_;
    }
    NyStreamFrame& place = places_[waiting_ - 1];
    uint8_t* copy = memory_ + (place.data - memory_);
    std::memcpy(copy, frame.data, frame.size);
    place = frame;
    place.data = copy;
    return !is_full;
}

bool FrameQueue::take(NyStreamFrame* frame)
{
    if (waiting_ == 0)
        return false;
    --waiting_;
    std::rotate(std::begin(places_), std::begin(places_) + 1, std::end(places_));
    *frame = *std::rbegin(places_);
    return true;
}

} // namespace nyxus
