// SPDX-License-Identifier: Apache-2.0
#include "bus/temp_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace sim {

namespace {

constexpr char kLockName[] = "/nyxus-sim.lock";
constexpr char kBedPrefix[] = "umockdev.";
// A socket's path has 107 characters; "/umockdev.XXXXXX/ioctl/dev/bus/usb/001/005" takes 42.
constexpr size_t kLongestTempFolder = 60;

bool is_usable(const std::string& folder)
{
    return !folder.empty() && folder.front() == '/' && folder.size() <= kLongestTempFolder &&
           access(folder.c_str(), W_OK | X_OK) == 0;
}

bool is_abandoned(const std::string& bed)
{
    struct stat entry {};
    if (lstat(bed.c_str(), &entry) != 0 || !S_ISDIR(entry.st_mode) || entry.st_uid != geteuid()) {
        return false;
    }
    const int fd = open((bed + kLockName).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return false; // not ours, or just being made
    }
    const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return free;
}

} // namespace

ShortTempFolder::ShortTempFolder()
{
    if (const char* folder = std::getenv("TMPDIR")) {
        previous_ = folder;
        was_set_ = true;
    }
    path_ = is_usable(previous_) ? previous_ : "/tmp";
    setenv("TMPDIR", path_.c_str(), 1);
}

ShortTempFolder::~ShortTempFolder()
{
    if (was_set_) {
        setenv("TMPDIR", previous_.c_str(), 1);
    } else {
        unsetenv("TMPDIR");
    }
}

BedLock::BedLock(const std::string& bed)
    : fd_(open((bed + kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
{
    if (fd_ >= 0) {
        flock(fd_, LOCK_EX | LOCK_NB);
    }
}

BedLock::~BedLock()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

void remove_abandoned_beds(const std::string& folder)
{
    std::error_code ignored;
    std::vector<std::filesystem::path> abandoned;
    for (auto entry = std::filesystem::directory_iterator(folder, ignored);
         entry != std::filesystem::directory_iterator(); entry.increment(ignored)) {
        const bool is_bed = entry->path().filename().string().starts_with(kBedPrefix);
        if (is_bed && is_abandoned(entry->path().string())) {
            abandoned.push_back(entry->path());
        }
    }
    for (const auto& bed : abandoned) {
        std::filesystem::remove_all(bed, ignored);
    }
}

} // namespace sim
