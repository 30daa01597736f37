// SPDX-License-Identifier: Apache-2.0
#include "whole_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <cstdio>

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
        fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    return fd;
}

/// This and the next two return 0 or an errno.
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

int put_in_place(const std::string& name, const std::filesystem::path& path, IfThere if_there)
{
    const unsigned flags = if_there == IfThere::kLeave ? RENAME_NOREPLACE : 0;
    int rv = renameat2(AT_FDCWD, name.c_str(), AT_FDCWD, path.c_str(), flags);
    if (rv != 0 && errno == EINVAL) { // a file system that cannot do that
        if (access(path.c_str(), F_OK) == 0)
            return EEXIST;
        rv = rename(name.c_str(), path.c_str());
    }
    if (rv != 0)
        return errno;
    // The new name survives, too, where the file system can do that.
    if (const int fd = open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        fd >= 0) {
        fsync(fd);
        close(fd);
    }
    return 0;
}

int write_and_place(int fd, const std::string& name, const std::filesystem::path& path, Bytes bytes,
                    IfThere if_there)
{
    int error = write_all(fd, bytes);
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0)
        error = put_in_place(name, path, if_there);
    if (error != 0)
        unlink(name.c_str());
    return error;
}

} // namespace

Status write_whole_file(const std::filesystem::path& path, Bytes bytes, IfThere if_there)
{
    std::string name;
    const int fd = open_beside(path, name);
    const int error = fd < 0 ? errno : write_and_place(fd, name, path, bytes, if_there);
    if (error == 0)
        return {};
    return {Reason::kFile,
            "cannot write '" + path.string() + "': " + std::generic_category().message(error),
            NYXUS_E_SYSTEM(error)};
}

} // namespace nyxus::engine
