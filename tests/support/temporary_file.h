// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

/// A file that is removed when the test ends.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<uint8_t>& content)
    {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr ? folder : "/tmp") + "/nyxus-test-XXXXXX";
        const int fd = mkstemp(path_.data());
        if (fd < 0 ||
            write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            std::abort();
        close(fd);
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};
