// SPDX-License-Identifier: Apache-2.0
#include "lines.h"

#include <unistd.h>
#include <cerrno>
#include <utility>

namespace nyxus::engine {

std::vector<std::string> LineReader::read_lines()
{
    constexpr size_t kLongestLine = 65536;
    char buffer[4096];
    const ssize_t count = read(fd(), buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return {};
    if (count > 0)
        rest_.append(buffer, static_cast<size_t>(count));
    std::vector<std::string> lines;
    for (size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n')) {
        lines.push_back(rest_.substr(0, end));
        rest_.erase(0, end + 1);
    }
    const bool ended = count <= 0;
    if (!rest_.empty() && (ended || rest_.size() > kLongestLine))
        lines.push_back(std::exchange(rest_, {}));
    if (ended)
        from_.reset();
    return lines;
}

} // namespace nyxus::engine
