// SPDX-License-Identifier: Apache-2.0
#include "files/replace.h"

#include "files/descriptor.h"
#include "files/nameless.h"
#include "files/write_all.h"
#include "text/format.h"
#include "text/printable.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <random>
#include <string_view>
#include <system_error>

namespace files {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int error)
{
    throw std::system_error(error, std::generic_category());
}

void check(int result)
{
    if (result != 0)
        fail(errno);
}

/// What is there now, behind all links. The kernel bounds them, and refuses those that somebody
/// else has laid into a shared folder.
std::optional<struct stat> find(const fs::path& path)
{
    struct stat entry {};
    if (stat(path.c_str(), &entry) == 0)
        return entry;
    if (errno != ENOENT)
        fail(errno);
    return std::nullopt;
}

fs::path behind_links(fs::path path)
{
    constexpr int kMostLinks = 40; // the kernel's own limit; they may change while we look
    for (int links = 0; fs::is_symlink(fs::symlink_status(path)); ++links) {
        if (links == kMostLinks)
            fail(ELOOP);
        path = path.parent_path() / fs::read_symlink(path);
    }
    return path;
}

fs::path folder_of(const fs::path& file)
{
    return file.has_parent_path() ? file.parent_path() : ".";
}

/// One that a killed process has left goes; not one that is written just now, or somebody else's.
void remove_left_draft(const char* name)
{
    const Descriptor left(open(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat entry {};
    if (left && fstat(left.get(), &entry) == 0 && S_ISREG(entry.st_mode) &&
        entry.st_uid == geteuid() && flock(left.get(), LOCK_EX | LOCK_NB) == 0)
        unlink(name);
}

/// The new contents until they take the file's name; without that they vanish. They have no name
/// of their own before, where the file system can do that. A draft with a name is locked, so that
/// the next one knows whether its process lives.
class Draft {
public:
    Draft(const fs::path& target, mode_t mode)
        : target_(target), file_(make_nameless(AT_FDCWD, folder_of(target).c_str(), mode))
    {
        if (!file_ && errno != EOPNOTSUPP)
            fail(errno);
        if (file_) {
            (void)flock(fd(), LOCK_EX | LOCK_NB);
            return;
        }
        with_new_name([&](const char* name) {
            file_.reset(open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
            return !file_ ? errno : is_ours() ? 0 : EEXIST;
        });
    }
    ~Draft()
    {
        if (!name_.empty())
            unlink(name_.c_str());
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    int fd() const { return file_.get(); }
    void take_name()
    {
        if (fsync(fd()) != 0 && errno != EINVAL) // EINVAL: this file system has nothing to wait for
            fail(errno);
        if (name_.empty())
            with_new_name([&](const char* name) { return give_name(fd(), AT_FDCWD, name); });
        check(std::rename(name_.c_str(), target_.c_str()));
        name_.clear();
    }

private:
    /// Another program may have taken it for one that was left, just before the lock.
    bool is_ours() const
    {
        struct stat entry {};
        return (flock(fd(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) &&
               fstat(fd(), &entry) == 0 && entry.st_nlink != 0;
    }

    /// The first name is always the same: what stands there was left, or another program writes
    /// the same file just now.
    template <typename Take>
    void with_new_name(const Take& take)
    {
        constexpr size_t kLongestStem = 230; // of the 255 bytes that a name may have
        const std::string stem = "." + target_.filename().string().substr(0, kLongestStem);
        fs::path name = target_.parent_path() / (stem + ".nyxus-new");
        remove_left_draft(name.c_str());
        std::random_device random;
        int error = take(name.c_str());
        while (error == EEXIST) {
            name = target_.parent_path() / (stem + text::format(".%08x", random()));
            error = take(name.c_str());
        }
        if (error != 0)
            fail(error);
        name_ = std::move(name);
    }

    const fs::path target_;
    fs::path name_; ///< empty: none yet, or no longer
    Descriptor file_;
};

void put(int fd, std::span<const uint8_t> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const int error = write_all(fd, text); error != 0)
        fail(error);
}

void write_in_place(const fs::path& path, std::span<const uint8_t> bytes)
{
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (!file)
        fail(errno);
    put(file.get(), bytes);
}

/// Only root gives files away; the group may be another one of ours.
void keep_owner_and_mode(int fd, const struct stat& before)
{
    constexpr mode_t kPermissions = 0777;
    constexpr auto kSameUser = static_cast<uid_t>(-1);
    (void)(fchown(fd, before.st_uid, before.st_gid) == 0 ||
           fchown(fd, kSameUser, before.st_gid) == 0);
    check(fchmod(fd, before.st_mode & kPermissions));
}

/// The new name survives a power cut, too. Not every file system can do that.
void sync_folder(const fs::path& file)
{
    if (const Descriptor opened(open(folder_of(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        opened)
        (void)fsync(opened.get());
}

void replace(const fs::path& path, std::span<const uint8_t> bytes)
{
    const std::optional<struct stat> before = find(path);
    if (before && S_ISDIR(before->st_mode))
        fail(EISDIR);
    if (before && !S_ISREG(before->st_mode))
        return write_in_place(path, bytes);
    const fs::path target = behind_links(path);
    Draft draft(target, before ? 0600 : 0666);
    put(draft.fd(), bytes);
    if (before)
        keep_owner_and_mode(draft.fd(), *before);
    draft.take_name();
    sync_folder(target);
}

void try_to_replace(const fs::path& path)
{
    const std::optional<struct stat> before = find(path);
    if (before && S_ISDIR(before->st_mode))
        fail(EISDIR);
    if (before && !S_ISREG(before->st_mode))
        return check(access(path.c_str(), W_OK));
    const fs::path target = behind_links(path);
    if (!target.has_filename())
        fail(ENOENT);
    const fs::path folder = folder_of(target);
    const Descriptor probe = make_nameless(AT_FDCWD, folder.c_str(), 0600);
    if (!probe && errno != EOPNOTSUPP)
        fail(errno);
    if (!probe)
        check(access(folder.c_str(), W_OK | X_OK));
}

} // namespace

void check_replaceable(const std::string& path)
{
    try {
        try_to_replace(path);
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot write " + text::in_quotes(path));
    }
}

void replace_file(const std::string& path, std::span<const uint8_t> bytes)
{
    try {
        replace(path, bytes);
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "cannot write " + text::in_quotes(path));
    }
}

} // namespace files
