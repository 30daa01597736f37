// SPDX-License-Identifier: Apache-2.0
#include "files/users.h"

#include "text/format.h"
#include "text/printable.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <algorithm>
#include <filesystem>
#include <fstream>

namespace files {

namespace {

namespace fs = std::filesystem;

/// "nyxus (process 123)"
std::string program_of(const std::string& process)
{
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    return (name.empty() ? "a program" : text::printable(name)) + " (process " + process + ")";
}

bool has_open(const fs::path& process, const struct stat& wanted)
{
    std::error_code error;
    for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
         file.increment(error)) {
        struct stat entry {};
        if (stat(file->path().c_str(), &entry) == 0 && entry.st_dev == wanted.st_dev &&
            entry.st_ino == wanted.st_ino)
            return true;
    }
    return false;
}

} // namespace

std::vector<std::string> users_of(const std::string& path)
{
    std::vector<std::string> users;
    struct stat wanted {};
    if (stat(path.c_str(), &wanted) != 0)
        return users;
    std::error_code error;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end;
         process.increment(error)) {
        const std::string name = process->path().filename();
        if (name != std::to_string(getpid()) &&
            name.find_first_not_of("0123456789") == std::string::npos &&
            has_open(process->path(), wanted))
            users.push_back(program_of(name));
    }
    return users;
}

std::string lock_holder(int fd)
{
    struct stat entry {};
    if (fstat(fd, &entry) != 0)
        return "";
    const std::string wanted = text::format("%02x:%02x:%ju", major(entry.st_dev),
                                            minor(entry.st_dev), uintmax_t{entry.st_ino});
    std::ifstream locks("/proc/locks"); // "1: FLOCK  ADVISORY  WRITE 123 fe:00:456 0 EOF"
    for (std::string number, kind, advisory, access, process, file, rest;
         locks >> number >> kind >> advisory >> access >> process >> file &&
         std::getline(locks, rest);) {
        if (kind == "FLOCK" && file == wanted)
            return program_of(process);
    }
    return "";
}

} // namespace files
