// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tool {

/// A file that appears whole under its name, or not at all.
class AtomicFile {
public:
    explicit AtomicFile(const std::string& path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    void write_all(std::span<const uint8_t> bytes);
    void commit();

private:
    std::string path_;
    std::string temporary_;
    int fd_ = -1;
};

/// Refuses a name under which no plain file can be put.
void refuse_impossible_target(const std::string& path);

} // namespace tool
