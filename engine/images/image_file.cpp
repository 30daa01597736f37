// SPDX-License-Identifier: Apache-2.0
#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>

#include "text/format.h"

namespace nyxus::engine {

namespace {

Status read_failure(const std::string& path, const char* reason)
{
    return {Reason::kFile, "cannot read " + quoted(path) + ": " + reason};
}

class File {
public:
    explicit File(const std::string& path) // waits for no writer of a pipe
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK))
    {
    }
    ~File()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

} // namespace

std::string quoted(const std::string& path)
{
    return "'" + text::printable(path) + "'";
}

Status check_image_size(const std::string& name, size_t size, uint32_t capacity, const char* kind)
{
    if (size == 0)
        return {Reason::kWrongImage, name + " is empty"};
    if (size <= capacity)
        return {};
    return {Reason::kWrongImage,
            name + " is too large for " + kind +
                text::format(": %zu bytes, at most %u are possible", size, capacity)};
}

Result<std::vector<uint8_t>> read_image_file(const std::string& path, uint32_t capacity,
                                             const char* kind)
{
    const File file(path);
    struct stat status;
    if (file.fd() < 0 || fstat(file.fd(), &status) != 0)
        return read_failure(path, strerrordesc_np(errno));
    if (S_ISDIR(status.st_mode))
        return read_failure(path, "it is a folder");
    if (!S_ISREG(status.st_mode))
        return read_failure(path, "it is not a plain file");
    if (const Status possible =
            check_image_size(quoted(path), static_cast<size_t>(status.st_size), capacity, kind);
        !possible)
        return possible;
    std::vector<uint8_t> bytes(static_cast<size_t>(status.st_size));
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = read(file.fd(), bytes.data() + done, bytes.size() - done);
        if (count <= 0 && (count == 0 || errno != EINTR))
            return read_failure(path, count == 0 ? "it has shrunk" : strerrordesc_np(errno));
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return bytes;
}

} // namespace nyxus::engine
