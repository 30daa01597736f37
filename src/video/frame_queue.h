// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/streaming.h>

namespace nyxus {

/// Copies of the latest frames, and of the one that was taken last. Whoever owns it keeps threads
/// apart.
class FrameQueue {
public:
    /// False where there is no memory. To be released.
    bool allocate(size_t frame_bytes);
    void release();

    bool holds(size_t frame_bytes) const { return frame_bytes <= frame_bytes_; }
    /// False when the oldest one has gone for it. The frame has to be one that it holds.
    bool put(const NyStreamFrame& frame);
    /// False when none is there. The frame stays as it is until the next one is taken.
    bool take(NyStreamFrame* frame);

private:
    static constexpr unsigned kMostWaiting = 4;
    static constexpr unsigned kPlaces = kMostWaiting + 1;

    uint8_t* memory_ = nullptr;
    size_t frame_bytes_ = 0;
    unsigned waiting_ = 0;
    NyStreamFrame places_[kPlaces] = {}; // those that wait, free ones, the one taken last
};

} // namespace nyxus
