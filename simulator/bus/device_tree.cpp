// SPDX-License-Identifier: Apache-2.0
#include "bus/device_tree.h"

#include "bus/transport.h"
#include "bus/virtual_time.h"
#include "usb/descriptors.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
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

/// While it lives, TMPDIR is a folder whose name is short enough for UNIX sockets below it.
class ShortTempFolder {
public:
    ShortTempFolder()
    {
        if (const char* folder = std::getenv("TMPDIR"))
            previous_ = folder;
        path_ = previous_ && is_usable(*previous_) ? *previous_ : "/tmp";
        setenv("TMPDIR", path_.c_str(), 1);
    }
    ~ShortTempFolder()
    {
        if (previous_) {
            setenv("TMPDIR", previous_->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }
    ShortTempFolder(const ShortTempFolder&) = delete;
    ShortTempFolder& operator=(const ShortTempFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::optional<std::string> previous_;
    std::string path_;
};

/// Marks a folder as in use by this process for as long as the lock lives, however it dies.
// Whoever finds a lock that nobody holds removes the bed, so it gets its name only when it is held.
files::Descriptor lock_bed(const std::string& bed)
{
    const std::string unfinished = bed + kNewLockName;
    files::Descriptor lock(open(unfinished.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
        rename(unfinished.c_str(), (bed + kLockName).c_str());
    return lock;
}

} // namespace

void remove_abandoned_beds()
{
    const std::string folder = ShortTempFolder().path();
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

DeviceTree::DeviceTree()
{
    remove_abandoned_beds();
    const ShortTempFolder temp_folder;
    {
        // The folder is named after the time of day: while that stands still, names would repeat.
        const InstalledVirtualClock real_time(nullptr);
        testbed_ = umockdev_testbed_new();
    }
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    folder_ = root;
    g_free(root);
    lock_ = lock_bed(folder_);
}

DeviceTree::~DeviceTree()
{
    g_object_unref(testbed_);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

// The node is there before the event tells of the device, so that nobody meets a half-made one.
void DeviceTree::add(const Place& place, const std::string& entry,
                     std::span<const uint8_t> contents)
{
    const std::filesystem::path node = folder_ + node_path(place);
    std::filesystem::create_directories(node.parent_path());
    std::ofstream(node, std::ios::binary)
        .write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
    chmod(node.c_str(), 0666);

    GError* error = nullptr;
    const files::Descriptor lock =
        lock_events(folder_); // umockdev aborts when a socket vanishes while it sends
    if (umockdev_testbed_add_from_string(testbed_, entry.c_str(), &error) == 0) {
        const std::string reason = error != nullptr ? error->message : "unknown reason";
        g_clear_error(&error);
        throw std::runtime_error("cannot add a device to the simulated bus: " + reason);
    }
}

void DeviceTree::remove(const Place& place)
{
    for (unsigned number = 0; number < kInterfaceCount; ++number)
        umockdev_testbed_remove_device(testbed_, interface_path(place, number).c_str());
    const std::string path = sysfs_path(place);
    {
        const files::Descriptor lock = lock_events(folder_);
        umockdev_testbed_uevent(testbed_, path.c_str(), "remove");
    }
    umockdev_testbed_remove_device(testbed_, path.c_str());
    std::error_code ignored;
    std::filesystem::remove(folder_ + node_path(place), ignored);
}

void DeviceTree::show_usbfs_memory(unsigned mebibytes) const
{
    const std::filesystem::path parameters = folder_ + "/sys/module/usbcore/parameters";
    std::filesystem::create_directories(parameters);
    std::ofstream(parameters / "usbfs_memory_mb") << mebibytes << "\n";
}

} // namespace sim
