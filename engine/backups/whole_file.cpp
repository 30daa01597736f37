// SPDX-License-Identifier: Apache-2.0
#include "whole_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>

namespace nyxus::engine {

namespace {

/// Opens a new file beside the other one. Unlike mkstemp()'s it gets the rights of an ordinary one.
int open_beside(const std::filesystem::path& path, std::string& name)
{
    static std::atomic<unsigned> count = 0;
    constexpr int kTries = 100; // names may be left over from a process of the same number
    int fd = -1;
    for (int i = 0; fd < 0 && i < kTries && (i == 0 || errno == EEXIST); ++i) {
        name = path.string() + "." + std::to_string(getpid()) + "-" + std::to_string(count++);
        fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    }
    return fd;
}

/// 0 or an errno.
int write_all(int fd, Bytes bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR)
            return errno;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return fsync(fd) == 0 ? 0 : errno;
}

/// The new name survives, too. Not every file system can do that.
void sync_folder(const std::filesystem::path& path)
{
    const int fd = open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    fsync(fd);
    close(fd);
}

} // namespace

Status write_whole_file(const std::filesystem::path& path, Bytes bytes)
{
    std::string name;
    const int fd = open_beside(path, name);
    int error = fd < 0 ? errno : write_all(fd, bytes);
    if (fd >= 0 && close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && rename(name.c_str(), path.c_str()) != 0)
        error = errno;
    if (error == 0) {
        sync_folder(path);
        return {};
    }
    if (fd >= 0)
        unlink(name.c_str());
    return {Reason::kFile, "cannot write '" + path.string() + "': " + strerrordesc_np(error)};
}

} // namespace nyxus::engine
