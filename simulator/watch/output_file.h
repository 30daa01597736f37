// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace sim {

/// A file, FIFO or standard output that records are written to as they come. After the first
/// failure it takes nothing more and remembers why; the cameras run on. Its owner locks.
class OutputFile {
public:
    /// "-": the program's standard output, which then becomes what standard error is. Waits for
    /// the reader of a FIFO. Throws std::runtime_error.
    explicit OutputFile(const std::string& path);
    /// Takes the descriptor over.
    OutputFile(int fd, std::string name) : name_(std::move(name)), fd_(fd) {}
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// All of it, one behind the other, without a buffer in between.
    void write(std::span<const std::span<const uint8_t>> parts);
    void write(const std::string& text);
    const std::string& name() const { return name_; }
    /// 0, or the errno of the first failure.
    int error() const { return error_; }

private:
    std::string name_;
    int fd_;
    int error_ = 0;
};

} // namespace sim
