// SPDX-License-Identifier: Apache-2.0
#include "whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace sim {

namespace {

constexpr off_t kLargestFile = 64 << 20;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

[[noreturn]] void fail(const std::string& action, const std::string& path, int error)
{
    throw std::runtime_error("cannot " + action + " '" + path + "': " + std::strerror(error));
}

int write_all(int fd, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return errno;
        bytes = bytes.subspan(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return fsync(fd) == 0 || errno == EINVAL ? 0 : errno;
}

// A link keeps pointing where it does, and a file keeps its permissions.
std::string final_target(const std::string& path)
{
    std::error_code error;
    const auto target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

mode_t mode_for(const std::string& path)
{
    struct stat entry {};
    if (stat(path.c_str(), &entry) == 0)
        return entry.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

std::optional<std::vector<uint8_t>> read_file(const std::string& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        if (errno == ENOENT)
            return std::nullopt;
        fail("read", path, errno);
    }
    struct stat entry {};
    if (fstat(file.get(), &entry) != 0)
        fail("read", path, errno);
    if (!S_ISREG(entry.st_mode) || entry.st_size > kLargestFile)
        throw std::runtime_error("'" + path + "' is no file of a sensible size");
    std::vector<uint8_t> bytes(static_cast<size_t>(entry.st_size));
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno != EINTR)
            fail("read", path, errno);
        if (got == 0)
            throw std::runtime_error("'" + path + "' shrank while it was read");
        filled += got > 0 ? static_cast<size_t>(got) : 0;
    }
    return bytes;
}

void write_file(const std::string& path, std::span<const uint8_t> bytes)
{
    const std::string target = final_target(path);
    std::string temporary = target + ".XXXXXX";
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0)
        fail("write", path, errno);
    int error = write_all(file.get(), bytes);
    if (error == 0 && (fchmod(file.get(), mode_for(target)) != 0 ||
                       rename(temporary.c_str(), target.c_str()) != 0))
        error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        fail("write", path, error);
    }
}

} // namespace sim
