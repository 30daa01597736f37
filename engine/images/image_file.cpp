// SPDX-License-Identifier: Apache-2.0
#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <cerrno>
#include <system_error>

#include "files/descriptor.h"
#include "files/read.h"
#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

static Status read_failure(const std::string& path, const std::string& reason)
{
    return {Reason::kFile, "cannot read " + text::in_quotes(path) + ": " + reason};
}

Status check_image_size(const std::string& name, size_t size, uint32_t capacity, const char* kind)
{
    if (size == 0)
        return {Reason::kWrongImage, name + " is empty"};
    if (size <= capacity)
        return {};
    return {Reason::kWrongImage,
            name + " is too large for " + kind +
                text::format(": %zu bytes, at most %u are possible", size, capacity)};
}

/// "" for a plain file.
static std::string refuse(mode_t mode)
{
    if (S_ISREG(mode))
        return {};
    return S_ISDIR(mode) ? "it is a folder" : "it is not a plain file";
}

Result<std::vector<uint8_t>> read_image_file(const std::string& path, uint32_t capacity,
                                             const char* kind)
{
    const auto system_failure = [&path] {
        return read_failure(path, std::generic_category().message(errno));
    };
    struct stat entry {};
    if (stat(path.c_str(), &entry) != 0)
        return system_failure();
    if (const std::string reason = refuse(entry.st_mode); !reason.empty())
        return read_failure(path, reason); // opening a device may do something
    const files::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file || fstat(file.get(), &entry) != 0)
        return system_failure();
    if (const std::string reason = refuse(entry.st_mode); !reason.empty())
        return read_failure(path, reason); // it has just become another one
    const auto possible = [&](size_t size) {
        return check_image_size(text::in_quotes(path), size, capacity, kind);
    };
    if (Status expected = possible(static_cast<size_t>(entry.st_size)); !expected)
        return expected;
    try {
        std::vector<uint8_t> bytes = files::read_rest(file.get(), path, capacity);
        Status read = possible(bytes.size()); // it may have been cut meanwhile
        return read ? Result<std::vector<uint8_t>>(std::move(bytes)) : read;
    } catch (const std::system_error& failure) {
        return Status(Reason::kFile, failure.what());
    }
}

} // namespace nyxus::engine
