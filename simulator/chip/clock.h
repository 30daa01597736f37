// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace sim {

/// Time as the camera sees it. Busy periods (erase, program, write cycles) are measured on it.
class Clock {
public:
    virtual ~Clock() = default;
    virtual uint64_t now_us() = 0;
    /// Time that passes on the wire or while the host sleeps. A real clock ignores it.
    virtual void advance_us(uint64_t elapsed_us) = 0;
};

/// The machine's monotonic clock.
class RealClock final : public Clock {
public:
    uint64_t now_us() override;
    void advance_us(uint64_t) override {}
};

/// Stands still until it is advanced. Thread-safe.
class VirtualClock final : public Clock {
public:
    uint64_t now_us() override;
    void advance_us(uint64_t elapsed_us) override;

private:
    std::atomic<uint64_t> now_us_{0};
};

} // namespace sim
