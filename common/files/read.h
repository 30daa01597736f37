// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace files {

/// All bytes of a file, a pipe or a device. Throws std::system_error, whose text is whole ("cannot
/// read 'rom.bin': No such file or directory"); EFBIG when there are more than `most`.
std::vector<uint8_t> read_file(const std::string& path, size_t most);
/// The same of an open one, from where it stands; `name` stands for it in the text.
std::vector<uint8_t> read_rest(int fd, const std::string& name, size_t most);
std::string read_text(const std::string& path, size_t most);

} // namespace files
