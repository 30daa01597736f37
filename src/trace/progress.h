// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "output.h"

namespace nyxus {

/// How far the host's call is, for the progress callback. Calls that transfer inside of each other
/// on one thread count as the outermost one.
class TransferProgress {
public:
    explicit TransferProgress(uint64_t total_bytes) : total_bytes_(total_bytes)
    {
        if (outermost_ == nullptr && !is_in_callback())
            outermost_ = this;
    }
    ~TransferProgress()
    {
        if (is_outermost())
            outermost_ = nullptr;
    }
    TransferProgress(const TransferProgress&) = delete;
    TransferProgress& operator=(const TransferProgress&) = delete;

    bool is_outermost() const { return outermost_ == this; }
    static void add(uint32_t bytes)
    {
        if (outermost_ != nullptr && !is_in_callback())
            outermost_->advance(bytes);
    }

private:
    void advance(uint32_t bytes);

    static inline __thread TransferProgress* outermost_;
    uint64_t total_bytes_;
    uint64_t done_bytes_ = 0;
};

/// The progress marks of one transfer, each as NyPrintProgress() prints it. Handing every mark to
/// the system alone costs more than all else that the library does for an exchange, so those that
/// come within milliseconds go together.
class ProgressMarks {
public:
    explicit ProgressMarks(uint32_t total) : total_(total) {}
    ~ProgressMarks()
    {
        if (length_ > 0)
            write();
    }
    ProgressMarks(const ProgressMarks&) = delete;
    ProgressMarks& operator=(const ProgressMarks&) = delete;

    void mark(uint32_t current)
    {
        if (total_ >= kRowUnits)
            add_step(current);
    }

    static constexpr uint32_t kRowUnits = 512; ///< what is shorter has no marks

private:
    void add_step(uint32_t current);
    void write();

    uint32_t total_;
    size_t length_ = 0;
    int64_t written_ms_ = 0; ///< when marks were written last
    char text_[64] = {};
};

} // namespace nyxus
