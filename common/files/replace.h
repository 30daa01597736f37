// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace files {

/// Gives a file new contents: it holds either what it held or all of these, also after a power cut.
///
/// Links are followed: the file that they lead to is replaced in its own folder, and made there if
/// they lead to none. It keeps its permissions, its owner where we may give files away, and its
/// group; a new file has what the umask leaves. What is no plain file (a FIFO, a device) is written
/// to where it is. Throws std::system_error, whose text is whole ("cannot write 'rom.bin': No space
/// left on device"); nothing has changed then, unless it is no plain file.
void replace_file(const std::string& path, std::span<const uint8_t> bytes);

/// Throws what replace_file() would throw for a target that is not there or must not be changed.
/// Changes nothing; whether there is room is seen when it is written.
void check_replaceable(const std::string& path);

} // namespace files
