// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace nyxus {

/// The progress marks of one transfer, each as NyPrintProgress() prints it. Handing every mark to
/// the system alone costs more than all else that the library does for an exchange, so those of a
/// few milliseconds go together.
class ProgressMarks {
public:
    explicit ProgressMarks(uint32_t total);
    ~ProgressMarks() { write(); }
    ProgressMarks(const ProgressMarks&) = delete;
    ProgressMarks& operator=(const ProgressMarks&) = delete;

    void mark(uint32_t current);

private:
    void write();

    uint32_t total_;
    int64_t written_ms_;
    size_t length_ = 0;
    char text_[64];
};

} // namespace nyxus
