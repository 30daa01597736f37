// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace nyxus {

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
