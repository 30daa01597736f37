// SPDX-License-Identifier: Apache-2.0
#include "files/read.h"

#include "files/descriptor.h"
#include "text/printable.h"

#include <fcntl.h>
#include <algorithm>
#include <system_error>

namespace files {

namespace {

[[noreturn]] void fail(const std::string& path, int error)
{
    throw std::system_error(error, std::generic_category(), "cannot read " + text::in_quotes(path));
}

} // namespace

std::vector<uint8_t> read_file(const std::string& path, size_t most)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        fail(path, errno);
    return read_rest(file.get(), path, most);
}

std::vector<uint8_t> read_rest(int fd, const std::string& name, size_t most)
{
    constexpr size_t kStep = 65536;
    std::vector<uint8_t> bytes;
    for (size_t filled = 0;;) {
        bytes.resize(filled + std::min(kStep - 1, most - filled) + 1);
        const ssize_t got = read(fd, bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno != EINTR)
            fail(name, errno);
        filled += got > 0 ? static_cast<size_t>(got) : 0;
        if (filled > most)
            fail(name, EFBIG);
        if (got == 0) {
            bytes.resize(filled);
            return bytes;
        }
    }
}

std::string read_text(const std::string& path, size_t most)
{
    const std::vector<uint8_t> bytes = read_file(path, most);
    return {bytes.begin(), bytes.end()};
}

} // namespace files
