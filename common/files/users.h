// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace files {

/// Other programs that have a file open, as "nyxus (process 123)"; those that this user may look
/// into.
std::vector<std::string> users_of(const std::string& path);

/// The one that has locked a file or folder with flock(), which this descriptor leads to; "" where
/// that cannot be seen.
std::string lock_holder(int fd);

} // namespace files
