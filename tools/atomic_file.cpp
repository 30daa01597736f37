// SPDX-License-Identifier: Apache-2.0
#include "atomic_file.h"

#include "failure.h"
#include "write_all.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace tool {

static Failure write_failure(const std::string& path, int error)
{
    return {kExitFailure, "cannot write '" + path + "': " + std::strerror(error)};
}

/// The new name survives a power cut, too. Not every file system can do that.
static void sync_folder(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path();
    const int fd = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    fsync(fd);
    close(fd);
}

AtomicFile::AtomicFile(const std::string& path) : path_(path), temporary_(path + ".XXXXXX")
{
    fd_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (fd_ < 0)
        throw write_failure(path, errno);
}

AtomicFile::~AtomicFile()
{
    if (fd_ < 0)
        return;
    close(fd_);
    unlink(temporary_.c_str());
}

void AtomicFile::write_all(std::span<const uint8_t> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const int error = tool::write_all(fd_, text); error != 0)
        throw write_failure(path_, error);
}

void AtomicFile::commit()
{
    // mkstemp() makes private files; a result is an ordinary one.
    const mode_t mask = umask(0);
    umask(mask);
    if (fchmod(fd_, 0666 & ~mask) != 0 || fsync(fd_) != 0 ||
        rename(temporary_.c_str(), path_.c_str()) != 0)
        throw write_failure(path_, errno);
    close(fd_);
    fd_ = -1;
    sync_folder(path_);
}

void refuse_impossible_target(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return;
    if (S_ISDIR(status.st_mode))
        throw write_failure(path, EISDIR);
    if (!S_ISREG(status.st_mode))
        throw Failure(kExitFailure, "cannot write '" + path + "': it is not a plain file");
}

} // namespace tool
