// SPDX-License-Identifier: Apache-2.0
#include "files/nameless.h"

#include "text/format.h"

#include <fcntl.h>

namespace files {

Descriptor make_nameless(int folder, const char* path, mode_t mode)
{
    if (access("/proc/self/fd", X_OK) != 0) { // the way to a name later on
        errno = EOPNOTSUPP;
        return {};
    }
    Descriptor file(openat(folder, path, O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
    if (!file && (errno == EISDIR || errno == EINVAL)) // of kernels that do not know the flag
        errno = EOPNOTSUPP;
    return file;
}

int give_name(int fd, int folder, const char* path)
{
    const std::string own = text::format("/proc/self/fd/%d", fd);
    return linkat(AT_FDCWD, own.c_str(), folder, path, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

} // namespace files
