// SPDX-License-Identifier: Apache-2.0
#include "files/folder.h"

#include "files/nameless.h"
#include "files/users.h"
#include "files/write_all.h"
#include "text/format.h"
#include "text/printable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>

namespace files {

namespace {

/// What is to become a file; under the folder's lock it is ours, or left by a process that is dead.
constexpr char kDraft[] = ".new";
constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

[[noreturn]] void fail(const char* doing, const std::string& path, int error)
{
    throw std::system_error(error, std::generic_category(),
                            std::string(doing) + " " + text::in_quotes(path));
}

[[noreturn]] void fail_locked(int fd, const std::string& path, int patience_s)
{
    const std::string known = lock_holder(fd);
    throw std::system_error(EWOULDBLOCK, std::generic_category(),
                            (known.empty() ? "another program" : known) + " has locked " +
                                text::in_quotes(path) + text::format(" for %d s", patience_s));
}

void sync(int fd, const std::string& path)
{
    if (fsync(fd) != 0 && errno != EINVAL) // EINVAL: this file system has nothing to wait for
        fail("cannot write", path, errno);
}

/// "'state/units': it belongs to user 1000", or "" for what nobody else can write.
std::string complaint_about(const struct stat& entry, mode_t others)
{
    if (entry.st_uid != geteuid() && entry.st_uid != 0)
        return text::format("it belongs to user %u", entry.st_uid);
    return (entry.st_mode & others) != 0 ? "other users may write it" : "";
}

void check_owner(int fd, const std::string& path, mode_t others)
{
    struct stat entry {};
    if (fstat(fd, &entry) != 0)
        fail("cannot read", path, errno);
    if (const std::string complaint = complaint_about(entry, others); !complaint.empty()) {
        throw std::system_error(EPERM, std::generic_category(),
                                "will not use " + text::in_quotes(path) + ", since " + complaint);
    }
}

} // namespace

std::optional<Folder> Folder::find(const std::string& path)
{
    Descriptor fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd && errno == ENOENT)
        return std::nullopt;
    if (!fd)
        fail("cannot read", path, errno);
    check_owner(fd.get(), path, S_IWOTH); // its group may be ours alone
    return Folder(path, std::move(fd));
}

Folder Folder::make(const std::string& path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        fail("cannot make", path, error.value());
    auto folder = find(path);
    if (!folder)
        fail("cannot make", path, ENOENT);
    return *std::move(folder);
}

std::optional<Folder> Folder::find_folder(const std::string& name) const
{
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
    Descriptor fd(openat(fd_.get(), name.c_str(), flags));
    if (!fd && errno == ENOENT)
        return std::nullopt;
    if (!fd)
        fail("cannot read", path_of(name), errno);
    check_mine(fd.get(), path_of(name));
    return Folder(path_of(name), std::move(fd));
}

Folder Folder::make_folder(const std::string& name) const
{
    const bool is_new = mkdirat(fd_.get(), name.c_str(), kFolderMode) == 0;
    if (!is_new && errno != EEXIST)
        fail("cannot make", path_of(name), errno);
    if (is_new)
        sync(fd_.get(), path_);
    auto folder = find_folder(name);
    if (!folder)
        fail("cannot make", path_of(name), ENOENT);
    return *std::move(folder);
}

std::vector<std::string> Folder::names() const
{
    const std::unique_ptr<DIR, int (*)(DIR*)> list(
        fdopendir(openat(fd_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), closedir);
    if (!list)
        fail("cannot read", path_, errno);
    std::vector<std::string> names;
    while (const dirent* entry = readdir(list.get())) {
        if (const std::string name = entry->d_name; name != "." && name != "..")
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

bool Folder::has(const std::string& name) const
{
    struct stat entry {};
    return fstatat(fd_.get(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0;
}

void Folder::check_mine(int fd, const std::string& path) const
{
    check_owner(fd, path, S_IWGRP | S_IWOTH);
}

/// Empty where there is none.
Descriptor Folder::open_file(const std::string& name, int flags) const
{
    // A FIFO is not waited for.
    Descriptor file(openat(fd_.get(), name.c_str(),
                           flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, kFileMode));
    if (!file && errno == ENOENT)
        return file;
    const char* doing = (flags & O_ACCMODE) == O_RDONLY ? "cannot read" : "cannot write";
    if (!file)
        fail(doing, path_of(name), errno);
    struct stat entry {};
    if (fstat(file.get(), &entry) != 0 || !S_ISREG(entry.st_mode))
        fail(doing, path_of(name), EINVAL);
    check_mine(file.get(), path_of(name));
    return file;
}

std::optional<std::vector<uint8_t>> Folder::read(const std::string& name, size_t most) const
{
    const Descriptor file = open_file(name, O_RDONLY);
    if (!file)
        return std::nullopt;
    std::vector<uint8_t> bytes(most + 1);
    size_t filled = 0;
    for (ssize_t got = 1; got != 0 && filled < bytes.size();) {
        got = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno != EINTR)
            fail("cannot read", path_of(name), errno);
        filled += got > 0 ? static_cast<size_t>(got) : 0;
    }
    if (filled > most)
        fail("cannot read", path_of(name), EFBIG);
    bytes.resize(filled);
    return bytes;
}

Descriptor Folder::lock() const
{
    constexpr int kPatience_s = 5;
    constexpr int kTriesPerSecond = 10;
    constexpr useconds_t kPause_us = 1'000'000 / kTriesPerSecond;
    Descriptor lock(openat(fd_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems have no locks.
    for (int i = 0; lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
         ++i) {
        if (i == kPatience_s * kTriesPerSecond)
            fail_locked(lock.get(), path_, kPatience_s);
        usleep(kPause_us);
    }
    remove(kDraft);
    return lock;
}

/// A file without a name where that is possible: it vanishes with the process.
Descriptor Folder::make_draft() const
{
    Descriptor file = make_nameless(fd_.get(), ".", kFileMode);
    if (!file && errno == EOPNOTSUPP) {
        file.reset(openat(fd_.get(), kDraft, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          kFileMode));
    }
    return file;
}

void Folder::put(const std::string& name, std::span<const uint8_t> bytes) const
{
    put(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

void Folder::put(const std::string& name, std::string_view text) const
{
    const Descriptor draft = make_draft();
    if (!draft)
        fail("cannot write", path_of(name), errno);
    const auto check = [&](int error) {
        if (error == 0)
            return;
        remove(kDraft);
        fail("cannot write", path_of(name), error);
    };
    check(write_all(draft.get(), text));
    sync(draft.get(), path_of(name));
    if (!has(kDraft))
        check(give_name(draft.get(), fd_.get(), kDraft));
    check(renameat(fd_.get(), kDraft, fd_.get(), name.c_str()) == 0 ? 0 : errno);
    sync(fd_.get(), path_);
}

void Folder::append_line(const std::string& name, const std::string& line) const
{
    const bool is_new = !has(name);
    const Descriptor file = open_file(name, O_RDWR | O_APPEND | O_CREAT);
    struct stat before {};
    if (!file || fstat(file.get(), &before) != 0)
        fail("cannot write", path_of(name), errno);
    char last = '\n';
    if (before.st_size > 0 && pread(file.get(), &last, 1, before.st_size - 1) != 1)
        fail("cannot read", path_of(name), errno);
    const int error = write_all(file.get(), (last == '\n' ? "" : "\n") + line + "\n");
    if (error != 0) {
        (void)!ftruncate(file.get(), before.st_size); // a torn line is passed over, too
        fail("cannot write", path_of(name), error);
    }
    if (fdatasync(file.get()) != 0 && errno != EINVAL)
        fail("cannot write", path_of(name), errno);
    if (is_new)
        sync(fd_.get(), path_);
}

void Folder::remove(const std::string& name) const
{
    if (unlinkat(fd_.get(), name.c_str(), 0) != 0 && errno != ENOENT)
        fail("cannot remove", path_of(name), errno);
}

} // namespace files
