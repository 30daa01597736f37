// SPDX-License-Identifier: Apache-2.0
#include <pwd.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <nyxus/engine/backups.hpp>

#include "text/format.h"
#include "whole_file.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr char kSuffix[] = ".rom";
constexpr char kUnprovenSuffix[] = ".rom-unproven";
/// "-20260501T120000Z", and one more character to tell backups of one second apart.
constexpr size_t kStampBytes = 18;
/// More cameras of one serial number than letters wait for their second.
constexpr int kTries = 30;
constexpr useconds_t kPause_us = 100'000;

fs::path home_folder()
{
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return home;
    passwd entry;
    passwd* user = nullptr;
    std::vector<char> texts(16384);
    getpwuid_r(getuid(), &entry, texts.data(), texts.size(), &user);
    return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

fs::path state_folder()
{
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return fs::path(state) / "nyxus";
    const fs::path home = home_folder();
    return home.empty() ? home : home / ".local/state/nyxus";
}

/// The serial number as a part of a file's name; a camera without one goes by its port.
std::string file_stem(const CameraInfo& camera)
{
    std::string stem = camera.serial.empty() ? "port-" + camera.port_path : camera.serial;
    std::replace_if(
        stem.begin(), stem.end(),
        [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '_');
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

Status not_kept(const std::string& reason)
{
    return {Reason::kBackupNotKept,
            "cannot keep a backup of the ROM: " + reason + "; nothing was written"};
}

} // namespace

Backups::Backups() : folder_(state_folder()) {}

Result<fs::path> Backups::keep(const CameraInfo& camera, Bytes contents, Proven proven) const
{
    if (folder_.empty())
        return not_kept("there is no home folder");
    std::error_code error;
    fs::create_directories(folder(), error);
    if (error)
        return not_kept("'" + folder().string() + "': " + error.message());
    const char* suffix = proven == Proven::kYes ? kSuffix : kUnprovenSuffix;
    for (int i = 0; i < kTries; ++i) {
        const std::string stem = file_stem(camera) + utc_stamp();
        for (char letter = 'a'; letter <= 'z'; ++letter) {
            fs::path path = folder() / (stem + letter + suffix);
            const Status written = write_whole_file(path, contents, IfThere::kLeave);
            if (written)
                return path;
            if (written.code() != NYXUS_E_SYSTEM(EEXIST))
                return not_kept(written.message());
        }
        usleep(kPause_us);
    }
    return not_kept("there are many of this second already");
}

Result<fs::path> Backups::newest(const CameraInfo& camera) const
{
    if (folder_.empty())
        return Status(Reason::kFile, "there is no home folder");
    const std::string stem = file_stem(camera);
    std::string newest;
    std::error_code error;
    for (fs::directory_iterator file(folder(), error); !error && file != fs::directory_iterator();
         file.increment(error)) {
        const std::string name = file->path().filename().string();
        const bool is_mine = name.size() == stem.size() + kStampBytes + sizeof kSuffix - 1 &&
                             name.starts_with(stem + "-") && name.ends_with(kSuffix);
        newest = is_mine ? std::max(newest, name) : newest;
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        return Status(Reason::kFile, "cannot read '" + folder().string() + "': " + error.message());
    }
    if (newest.empty())
        return Status(Reason::kNoBackup, "there is no backup in '" + folder().string() + "'");
    return folder() / newest;
}

fs::path Backups::change_file(const CameraInfo& camera) const
{
    return folder_.empty() ? folder_ : folder_ / "changed" / file_stem(camera);
}

void Backups::remember_change(const CameraInfo& camera, const std::string& running) const
{
    const fs::path path = change_file(camera);
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    const Bytes text(reinterpret_cast<const uint8_t*>(running.data()), running.size());
    (void)write_whole_file(path, text, IfThere::kReplace); // as announced
}

void Backups::forget_change(const CameraInfo& camera) const
{
    std::error_code error; // a backup more is unproven then
    fs::remove(change_file(camera), error);
}

bool Backups::is_unchanged_since_start(const CameraInfo& camera, const std::string& running) const
{
    std::ifstream file(change_file(camera));
    std::string before;
    return !std::getline(file, before) || before != running;
}

} // namespace nyxus::engine
