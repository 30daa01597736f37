// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/backups.hpp>

#include <system_error>

#include "backup_files.h"
#include "report/state_folder.h"
#include "text/printable.h"
#include "unit_log.h"

namespace nyxus::engine {

namespace {

/// What `work` returns; kFile with what it throws, or without a state folder.
template <typename Work>
auto with_files(const std::filesystem::path& state, const Work& work) -> decltype(work())
{
    if (state.empty())
        return Status(Reason::kFile, "there is no home folder");
    try {
        return work();
    } catch (const std::system_error& error) {
        return Status(Reason::kFile, error.what());
    }
}

std::vector<Backup> backups_of(const KnownUnit& known)
{
    std::vector<Backup> backups;
    for (BackupFacts& facts : backups_in(known))
        backups.push_back(std::move(facts.backup));
    return backups;
}

void append(std::vector<Backup>& all, std::vector<Backup> more)
{
    std::ranges::move(more, std::back_inserter(all));
}

std::vector<Backup> old_backups_of(const std::filesystem::path& state, const Sighting& sighting)
{
    std::vector<Backup> old = old_backups(state);
    std::erase_if(old, [&](const Backup& each) { return !may_be_of(each, sighting); });
    return old;
}

Status no_backup(const std::string& what, const std::filesystem::path& state)
{
    return {Reason::kNoBackup, what + " in " + text::in_quotes(state.string())};
}

/// What prune() removes of a unit's.
std::vector<Backup> superfluous(const KnownUnit& known, unsigned keep)
{
    std::vector<Backup> backups = backups_of(known);
    const JournalState state = known.state();
    const bool is_open = state.rom != RomRecord::kNone && state.rom != RomRecord::kStarted;
    const auto latest_started =
        std::ranges::find(backups.rbegin(), backups.rend(), Started::kYes, &Backup::started);
    const uint32_t started = latest_started == backups.rend() ? 0 : latest_started->sequence;
    backups.resize(backups.size() - std::min<size_t>(keep, backups.size()));
    std::erase_if(backups, [&](const Backup& backup) {
        return backup.sequence == started ||
               (is_open && sequence_text(backup.sequence) == state.line.backup);
    });
    return backups;
}

/// Old ones, those of other units that it may be, and its own, the latest one last.
std::vector<Backup> backups_for(const std::filesystem::path& state, const Sighting& sighting)
{
    const Identity identity = identify(state, sighting);
    std::vector<Backup> all = old_backups_of(state, sighting);
    for (const KnownUnit& candidate : identity.candidates)
        append(all, backups_of(candidate));
    if (identity.unit)
        append(all, backups_of(*identity.unit));
    return all;
}

} // namespace

std::string RomHistory::sentence() const
{
    constexpr const char* kSentences[] = {
        "",
        "the ROM is incomplete",
        "the ROM is blank",
        "the ROM is complete, neither read back nor started",
        "the ROM is complete and read back, not started",
        "the camera has started from its ROM",
        "the camera does not start from its ROM",
        "the state of the ROM is unknown: it was changed elsewhere after",
    };
    if (rom == RomRecord::kNone)
        return "";
    return std::string(certain ? "" : "perhaps ") + kSentences[static_cast<size_t>(rom)] +
           (rom == RomRecord::kElsewhere ? " " : ", as of ") + since + " (" + operation + ")";
}

Backups::Backups() : folder_(usual_state_folder()) {}

Result<std::vector<Backup>> Backups::list(std::vector<std::string>* problems) const
{
    return with_files(folder_, [&]() -> Result<std::vector<Backup>> {
        std::vector<Backup> all = old_backups(folder_);
        for (const KnownUnit& known : known_units(folder_, problems))
            append(all, backups_of(known));
        return all;
    });
}

Result<std::vector<Backup>> Backups::list(const CameraInfo& camera) const
{
    return with_files(folder_, [&]() -> Result<std::vector<Backup>> {
        return backups_for(folder_, sight(camera));
    });
}

Result<Backup> Backups::find(const std::string& name) const
{
    const auto all = list();
    if (!all)
        return all.status();
    const auto found = std::ranges::find_if(
        *all, [&](const Backup& backup) { return backup.name == name || backup.file == name; });
    if (found != all->end())
        return *found;
    return no_backup("there is no backup " + text::in_quotes(name), folder_);
}

Result<Backup> Backups::latest(const Camera& camera) const
{
    const auto log = UnitLog::of(*this, camera);
    if (!log)
        return log.status();
    const Identity& identity = log->identity();
    if (identity.unit && identity.is_certain) {
        const std::vector<Backup> own = backups_of(*identity.unit);
        const auto found = std::find_if(own.rbegin(), own.rend(), [this](const Backup& backup) {
            return backup.started == Started::kYes && read(backup);
        });
        if (found != own.rend())
            return *found;
    }
    if (candidates(camera).empty())
        return no_backup("there is no backup of " + camera.name(), folder_);
    return Status(Reason::kUncertainBackup,
                  "it is not certain which backup is of " + camera.name());
}

std::vector<Backup> Backups::candidates(const Camera& camera) const
{
    const auto found = with_files(folder_, [&]() -> Result<std::vector<Backup>> {
        std::vector<Backup> all = backups_for(folder_, sight(camera));
        std::erase_if(all, [this](const Backup& backup) {
            return backup.started == Started::kNo || !read(backup);
        });
        return all;
    });
    return found ? *found : std::vector<Backup>();
}

Result<std::vector<uint8_t>> Backups::read(const Backup& backup) const
{
    return with_files(folder_, [&]() -> Result<std::vector<uint8_t>> {
        auto bytes = contents_of(folder_, backup);
        if (bytes)
            return *std::move(bytes);
        return Status(Reason::kMismatch, "the backup " + text::in_quotes(backup.name) +
                                             " is not what was kept: its digest differs");
    });
}

Result<std::vector<Backup>> Backups::prune(unsigned keep, bool only_tell) const
{
    return with_files(folder_, [&]() -> Result<std::vector<Backup>> {
        std::vector<Backup> pruned;
        for (const KnownUnit& known : known_units(folder_)) {
            const files::Descriptor lock = known.folder.lock();
            const std::vector<Backup> unit = superfluous(known, keep);
            for (const Backup& backup : unit) {
                if (!only_tell)
                    remove_backup(known, backup.sequence);
            }
            append(pruned, unit);
        }
        return pruned;
    });
}

RomHistory Backups::history(const Camera& camera) const
{
    const auto log = UnitLog::of(*this, camera);
    return log ? log->history(camera.running()) : RomHistory();
}

RomHistory Backups::history(const CameraInfo& camera) const
{
    const auto found = with_files(folder_, [&]() -> Result<RomHistory> {
        return history_of(identify(folder_, sight(camera)), std::nullopt, {});
    });
    return found ? *found : RomHistory();
}

} // namespace nyxus::engine
