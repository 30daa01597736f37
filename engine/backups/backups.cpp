// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <nyxus/engine/backups.hpp>
#include <system_error>

#include "files/descriptor.h"
#include "files/replace.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr char kSuffix[] = ".rom";
constexpr char kUnprovenSuffix[] = ".rom-unproven";
/// "-20260501T120000Z", and one more character to tell backups of one second apart.
constexpr size_t kStampBytes = 18;
/// More cameras of one serial number than letters wait for their second.
constexpr int kTriesForAName = 30;
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

fs::path usual_folder()
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

/// Keeps others of us from taking the same name, as long as it lives; on file systems that can.
files::Descriptor lock_folder(const fs::path& folder)
{
    files::Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    (void)flock(lock.get(), LOCK_EX);
    return lock;
}

/// "" when there are more cameras of one serial number than letters.
fs::path free_name(const fs::path& folder, const std::string& stem, const char* suffix)
{
    for (int i = 0; i < kTriesForAName; ++i) {
        const std::string base = stem + utc_stamp();
        for (char letter = 'a'; letter <= 'z'; ++letter) {
            if (fs::path path = folder / (base + letter + suffix); !fs::exists(path))
                return path;
        }
        usleep(kPause_us);
    }
    return {};
}

} // namespace

Backups::Backups() : folder_(usual_folder()) {}

Result<fs::path> Backups::keep(const CameraInfo& camera, Bytes contents, Proven proven) const
{
    if (folder_.empty())
        return not_kept("there is no home folder");
    try {
        fs::create_directories(folder());
        const files::Descriptor lock = lock_folder(folder());
        fs::path path = free_name(folder(), file_stem(camera),
                                  proven == Proven::kYes ? kSuffix : kUnprovenSuffix);
        if (path.empty())
            return not_kept("there are many of this second already");
        files::replace_file(path, {contents.data(), contents.size()});
        return path;
    } catch (const fs::filesystem_error& error) {
        return not_kept(text::in_quotes(error.path1().string()) + ": " + error.code().message());
    } catch (const std::system_error& error) {
        return not_kept(error.what());
    }
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
        return Status(Reason::kFile,
                      "cannot read " + text::in_quotes(folder().string()) + ": " + error.message());
    }
    if (newest.empty()) {
        return Status(Reason::kNoBackup,
                      "there is no backup in " + text::in_quotes(folder().string()));
    }
    return folder() / newest;
}

fs::path Backups::change_file(const CameraInfo& camera) const
{
    return folder_.empty() ? folder_ : folder_ / "changed" / file_stem(camera);
}

void Backups::remember_change(const CameraInfo& camera, const std::string& running) const
{
    const fs::path path = change_file(camera);
    try {
        fs::create_directories(path.parent_path());
        files::replace_file(path,
                            {reinterpret_cast<const uint8_t*>(running.data()), running.size()});
    } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch): see the header
    }
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
