// SPDX-License-Identifier: Apache-2.0
#include "session/whole_file.h"

#include "files/read.h"
#include "files/replace.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <sys/stat.h>
#include <unistd.h>
#include <system_error>

namespace tool {

void write_file(const std::string& path, std::span<const uint8_t> bytes)
{
    try {
        files::replace_file(path, bytes);
    } catch (const std::system_error& error) {
        throw Failure(kExitFailure, error.what());
    }
}

/// What goes to our own standard output and errors is captured, see Capture.
static bool is_captured(const struct stat& entry)
{
    struct stat captured {};
    return fstat(STDOUT_FILENO, &captured) == 0 && captured.st_dev == entry.st_dev &&
           captured.st_ino == entry.st_ino;
}

void refuse_impossible_target(const std::string& path)
{
    struct stat entry {};
    if (stat(path.c_str(), &entry) == 0 && (S_ISSOCK(entry.st_mode) || is_captured(entry)))
        throw Failure(kExitFailure, "cannot write " + in_quotes(path) + ": it is not a plain file");
    try {
        files::check_replaceable(path);
    } catch (const std::system_error& error) {
        throw Failure(kExitFailure, error.what());
    }
}

void refuse_impossible_target(const std::string& path, const Arguments& arguments)
{
    if (path != "-")
        return refuse_impossible_target(path);
    if (arguments.json)
        throw Failure(kExitUsage, "--json needs standard output for itself; name a file");
}

std::vector<uint8_t> read_file(const std::string& path, size_t most, const std::string& place)
{
    std::vector<uint8_t> bytes;
    try {
        bytes = path == "-" ? files::read_rest(STDIN_FILENO, "standard input", most)
                            : files::read_file(path, most);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::file_too_large)
            throw Failure(kExitFailure, error.what());
        throw Failure(kExitUsage, format("%s is too large; %s has 1 to %zu bytes",
                                         in_quotes(path).c_str(), place.c_str(), most));
    }
    if (bytes.empty())
        throw Failure(kExitFailure, in_quotes(path) + " is empty");
    return bytes;
}

} // namespace tool
