// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace sim {

/// What the kernel lends to all transfers of user programs together. Thread-safe.
class UsbfsMemory {
public:
    /// Bytes of a transfer, given back when it goes.
    class Loan {
    public:
        Loan() = default;
        Loan(std::shared_ptr<UsbfsMemory> memory, uint64_t bytes)
            : memory_(std::move(memory)), bytes_(bytes)
        {
        }
        Loan(Loan&& other) noexcept = default;
        Loan& operator=(Loan&& other) noexcept
        {
            std::swap(memory_, other.memory_);
            std::swap(bytes_, other.bytes_);
            return *this;
        }
        ~Loan()
        {
            if (memory_)
                memory_->used_ -= bytes_;
        }

    private:
        std::shared_ptr<UsbfsMemory> memory_;
        uint64_t bytes_ = 0;
    };

    /// 0: no limit.
    explicit UsbfsMemory(uint64_t limit_bytes) : limit_bytes_(limit_bytes) {}

    /// Nothing when the limit would be passed.
    static std::optional<Loan> lend(const std::shared_ptr<UsbfsMemory>& memory, uint64_t bytes)
    {
        const uint64_t used = memory->used_ += bytes;
        if (memory->limit_bytes_ != 0 && used > memory->limit_bytes_) {
            memory->used_ -= bytes;
            return std::nullopt;
        }
        return Loan(memory, bytes);
    }

    /// Whether as much again would pass the limit.
    bool is_used_up_for(uint64_t bytes) const
    {
        return limit_bytes_ != 0 && used_ + bytes > limit_bytes_;
    }

private:
    const uint64_t limit_bytes_;
    std::atomic<uint64_t> used_{0};
};

} // namespace sim
