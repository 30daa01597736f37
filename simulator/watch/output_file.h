// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

/// A file, FIFO or standard output that records are written to as they come. After the first
/// failure it takes nothing more and remembers why; the cameras run on. Its owner locks.
class OutputFile {
public:
    /// "-": the program's standard output, which then becomes what standard error is. Waits for
    /// the reader of a FIFO. Throws std::runtime_error.
    explicit OutputFile(const std::string& path);
    OutputFile(files::Descriptor file, std::string name)
        : name_(std::move(name)), file_(std::move(file))
    {
    }

    /// All of it, without a buffer in between.
    void write(std::string_view text);
    void write(std::span<const uint8_t> bytes)
    {
        write({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    const std::string& name() const { return name_; }
    /// False, and a line on standard error, when something of it is missing.
    bool report(const char* what) const;
    bool has_failed() const { return error_ != 0; }

private:
    std::string name_;
    files::Descriptor file_;
    int error_ = 0; ///< of the first failure
};

} // namespace sim
