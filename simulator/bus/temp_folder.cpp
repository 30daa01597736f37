// SPDX-License-Identifier: Apache-2.0
#include "bus/temp_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace sim {

namespace {

constexpr char kLockName[] = "/nyxus-sim.lock";
constexpr char kNewLockName[] = "/nyxus-sim.lock.new";
constexpr char kBedPrefix[] = "umockdev.";
// A socket's path has 107 characters; "/umockdev.XXXXXX/ioctl/dev/bus/usb/001/005" takes 42.
constexpr size_t kLongestTempFolder = 60;

bool is_usable(const std::string& folder)
{
    // umockdev takes each file below /dev for a device, and has room for so many of them.
    return folder.starts_with('/') && !folder.starts_with("/dev/") &&
           folder.size() <= kLongestTempFolder && access(folder.c_str(), W_OK | X_OK) == 0;
}

/// Takes over the lock of a bed whose process is gone; empty when there is nothing to clean up.
files::Descriptor seize_abandoned(const std::string& bed)
{
    struct stat entry {};
    if (lstat(bed.c_str(), &entry) != 0 || !S_ISDIR(entry.st_mode) || entry.st_uid != geteuid())
        return {};
    files::Descriptor lock(open((bed + kLockName).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!lock)
        return {}; // not ours, or just being made
    // A lock without a name: its owner has removed the bed, and another one may bear that name now.
    const bool seized = flock(lock.get(), LOCK_EX | LOCK_NB) == 0 &&
                        fstat(lock.get(), &entry) == 0 && entry.st_nlink > 0;
    return seized ? std::move(lock) : files::Descriptor();
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

// Whoever finds a lock that nobody holds removes the bed, so it gets its name only when it is held.
files::Descriptor lock_bed(const std::string& bed)
{
    const std::string unfinished = bed + kNewLockName;
    files::Descriptor lock(open(unfinished.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
        rename(unfinished.c_str(), (bed + kLockName).c_str());
    return lock;
}

void remove_abandoned_beds(const std::string& folder)
{
    std::error_code ignored;
    std::vector<std::filesystem::path> beds;
    for (auto entry = std::filesystem::directory_iterator(folder, ignored);
         entry != std::filesystem::directory_iterator(); entry.increment(ignored)) {
        if (entry->path().filename().string().starts_with(kBedPrefix))
            beds.push_back(entry->path());
    }
    for (const auto& bed : beds) {
        if (const files::Descriptor lock = seize_abandoned(bed.string()); lock)
            std::filesystem::remove_all(bed, ignored);
    }
}

} // namespace sim
