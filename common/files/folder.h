// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace files {

/// A folder in which nobody else can lay anything for us to read: it and what is read from it
/// belong to this user or to root, others may not write them, and its names lead to no links.
///
/// Failures are std::system_error with a whole sentence. Who writes holds lock() meanwhile.
class Folder {
public:
    /// Nothing where there is none.
    static std::optional<Folder> find(const std::string& path);
    /// Made with all above it where there is none.
    static Folder make(const std::string& path);
    std::optional<Folder> find_folder(const std::string& name) const;
    Folder make_folder(const std::string& name) const;

    const std::string& path() const { return path_; }
    /// Of all that is in it, in order.
    std::vector<std::string> names() const;
    bool has(const std::string& name) const;
    /// Nothing where there is no such file; EFBIG when it has more than `most` bytes.
    std::optional<std::vector<uint8_t>> read(const std::string& name, size_t most) const;

    /// Waits a few seconds for another program that writes, and names it if it does not end; then
    /// removes what a killed one has left.
    Descriptor lock() const;
    /// A file with these contents, on the disk on return; whole or not at all, whatever happens.
    /// What bears the name gives way.
    void put(const std::string& name, std::span<const uint8_t> bytes) const;
    void put(const std::string& name, std::string_view text) const;
    /// A line at the end of a file, on the disk on return. It begins a new line also where the
    /// former one is torn.
    void append_line(const std::string& name, const std::string& line) const;
    /// Gone on return, if it was there.
    void remove(const std::string& name) const;

private:
    Folder(std::string path, Descriptor fd) : path_(std::move(path)), fd_(std::move(fd)) {}

    std::string path_of(const std::string& name) const { return path_ + "/" + name; }
    Descriptor open_file(const std::string& name, int flags) const;
    Descriptor make_draft() const;
    void check_mine(int fd, const std::string& path) const;

    std::string path_;
    Descriptor fd_;
};

} // namespace files
