// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

namespace sim {

inline constexpr uint64_t kUsPerSecond = 1'000'000;

/// Time as the camera sees it. Busy periods (erase, program, write cycles) are measured on it.
class Clock {
public:
    virtual ~Clock() = default;
    virtual uint64_t now_us() = 0;
    /// Time that passes on the wire or while the host sleeps.
    virtual void advance_us(uint64_t elapsed_us) = 0;
    /// Whether it advances by itself.
    virtual bool runs() const { return false; }
};

/// The machine's monotonic clock. It advances by itself, so being told to only notes how long the
/// calling thread still has to wait: it does so by wait_for_wire(), when it holds no lock.
class RealClock final : public Clock {
public:
    uint64_t now_us() override;
    void advance_us(uint64_t elapsed_us) override;
    bool runs() const override { return true; }
    static void wait_for_wire();
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
