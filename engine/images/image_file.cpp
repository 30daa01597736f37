// SPDX-License-Identifier: Apache-2.0
#include "image_file.h"

#include <filesystem>
#include <system_error>

#include "files/read.h"
#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

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

Result<std::vector<uint8_t>> read_image_file(const std::string& path, uint32_t capacity,
                                             const char* kind)
{
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    const size_t size = type == fs::file_type::regular ? fs::file_size(path, error) : 0;
    if (error)
        return read_failure(path, error.message());
    if (type != fs::file_type::regular) {
        const bool is_folder = type == fs::file_type::directory;
        return read_failure(path, is_folder ? "it is a folder" : "it is not a plain file");
    }
    if (Status possible = check_image_size(text::in_quotes(path), size, capacity, kind); !possible)
        return possible;
    try {
        return files::read_file(path, capacity);
    } catch (const std::system_error& failure) {
        return Status(Reason::kFile, failure.what());
    }
}

} // namespace nyxus::engine
