// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <sys/types.h>

namespace files {

/// A new file in a folder, to be written; without a name, so that it vanishes with the process.
/// Empty, and errno: EOPNOTSUPP where there are no such files.
Descriptor make_nameless(int folder, const char* path, mode_t mode);

/// Gives it a name that is free. 0, or an errno.
int give_name(int fd, int folder, const char* path);

} // namespace files
