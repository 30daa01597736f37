// SPDX-License-Identifier: Apache-2.0
#include "backup.h"

#include "failure.h"
#include "files/descriptor.h"
#include "text.h"
#include "whole_file.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <thread>

namespace tool {

namespace fs = std::filesystem;

namespace {

constexpr char kSuffix[] = ".rom";
constexpr char kUnprovenSuffix[] = ".rom-unproven";
/// "-20260501T120000Z", and one more character to tell backups of one second apart.
constexpr size_t kStampBytes = 18;

Failure backup_failure(const std::string& reason)
{
    return {kExitFailure, "cannot keep a backup of the ROM: " + reason +
                              "; nothing was written ('--no-backup' goes on without one)"};
}

fs::path state_folder()
{
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return state;
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return fs::path(home) / ".local/state";
    const passwd* user = getpwuid(getuid());
    if (user == nullptr || user->pw_dir == nullptr)
        throw Failure(kExitFailure, "there is no home folder");
    return fs::path(user->pw_dir) / ".local/state";
}

/// The serial number as a part of a file's name; a camera without one goes by its port.
std::string file_stem(const CameraEntry& camera)
{
    std::string stem = camera.serial.empty() ? "port-" + camera.port_path : camera.serial;
    std::ranges::replace_if(
        stem, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '_');
    return stem;
}

std::string utc_stamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    return {text, std::strftime(text, sizeof text, "-%Y%m%dT%H%M%SZ", &utc)};
}

fs::path free_name(const fs::path& folder, const std::string& stem, const char* suffix)
{
    constexpr int kTries = 30; // more cameras of one serial number than letters wait their second
    for (int i = 0; i < kTries; ++i) {
        const std::string base = stem + utc_stamp();
        for (const char letter : std::string("abcdefghijklmnopqrstuvwxyz")) {
            if (fs::path path = folder / (base + letter + suffix); !fs::exists(path))
                return path;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    throw Failure(kExitFailure, "there are many of this second already");
}

/// Keeps others of us from taking the same name, as long as it lives; on file systems that can.
files::Descriptor lock_folder(const fs::path& folder)
{
    files::Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    (void)flock(lock.get(), LOCK_EX);
    return lock;
}

fs::path change_file(const CameraEntry& camera)
{
    return state_folder() / "nyxus/changed" / file_stem(camera);
}

} // namespace

fs::path backup_folder()
{
    return state_folder() / "nyxus/backups";
}

static fs::path write_backup(const std::string& stem, std::span<const uint8_t> contents,
                             const char* suffix)
{
    const fs::path folder = backup_folder();
    fs::create_directories(folder);
    const files::Descriptor lock = lock_folder(folder);
    fs::path path = free_name(folder, stem, suffix);
    write_file(path, contents);
    return path;
}

fs::path keep_backup(const CameraEntry& camera, std::span<const uint8_t> contents, Proven proven)
{
    try {
        return write_backup(file_stem(camera), contents,
                            proven == Proven::kYes ? kSuffix : kUnprovenSuffix);
    } catch (const fs::filesystem_error& error) {
        throw backup_failure(in_quotes(error.path1().string()) + ": " + error.code().message());
    } catch (const Failure& failure) {
        throw backup_failure(failure.text());
    }
}

std::optional<fs::path> newest_backup(const CameraEntry& camera)
{
    const std::string stem = file_stem(camera);
    std::optional<fs::path> newest;
    std::error_code error;
    fs::directory_iterator files(backup_folder(), error);
    if (error && error != std::errc::no_such_file_or_directory) {
        throw Failure(kExitFailure, "cannot read " + in_quotes(backup_folder().string()) + ": " +
                                        error.message());
    }
    for (const fs::directory_entry& entry : files) {
        const std::string name = entry.path().filename().string();
        const bool is_mine = name.size() == stem.size() + kStampBytes + sizeof kSuffix - 1 &&
                             name.starts_with(stem + "-") && name.ends_with(kSuffix);
        if (is_mine && (!newest || name > newest->filename().string()))
            newest = entry.path();
    }
    return newest;
}

void remember_change(const CameraEntry& camera, const std::string& running)
{
    try {
        const fs::path path = change_file(camera);
        fs::create_directories(path.parent_path());
        write_file(path,
                   std::span(reinterpret_cast<const uint8_t*>(running.data()), running.size()));
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): see the header
    }
}

void forget_change(const CameraEntry& camera)
{
    try {
        fs::remove(change_file(camera));
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): a backup more is unproven
    }
}

bool is_rom_unchanged_since_start(const CameraEntry& camera, const std::string& running)
{
    try {
        std::ifstream file(change_file(camera));
        std::string before;
        return !std::getline(file, before) || before != running;
    } catch (const Failure&) {
        return true;
    }
}

} // namespace tool
