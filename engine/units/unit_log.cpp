// SPDX-License-Identifier: Apache-2.0
#include "unit_log.h"

#include <system_error>

#include "backup_files.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

bool holds_image(RomRecord rom)
{
    return rom == RomRecord::kWritten || rom == RomRecord::kVerified || rom == RomRecord::kStarted;
}

Status not_kept(Reason reason, const char* what, const std::system_error& error)
{
    return {reason, std::string("cannot keep ") + what + " of the ROM: " + error.what()};
}

RomHistory history_in(const KnownUnit& known, const std::optional<std::string>& running,
                      const std::function<std::string(const std::string&)>& version_of)
{
    const JournalState state = known.state();
    RomHistory history;
    history.rom = state.rom;
    if (running && state.rom != RomRecord::kNone)
        history.rom = with_regard_to(state, *running, version_of(state.line.image));
    history.since = state.line.time;
    history.operation = state.line.operation;
    if (!state.line.backup.empty())
        history.backup = known.folder.path() + "/" + state.line.backup + ".rom";
    return history;
}

} // namespace

RomHistory history_of(const Identity& identity, const std::optional<std::string>& running,
                      const std::function<std::string(const std::string&)>& version_of)
{
    if (identity.unit) {
        RomHistory own = history_in(*identity.unit, running, version_of);
        if (own.rom != RomRecord::kNone)
            return own;
    }
    for (const KnownUnit& candidate : identity.candidates) {
        RomHistory history = history_in(candidate, running, version_of);
        history.certain = false;
        if (history.needs_care())
            return history;
    }
    return {};
}

Result<UnitLog> UnitLog::of(const Backups& backups, const Camera& camera)
{
    if (backups.state_folder().empty())
        return Status(Reason::kFile, "there is no home folder");
    UnitLog log(backups.state_folder(), camera);
    try {
        log.identity_ = identify(log.state_, log.sighting_);
    } catch (const std::system_error& error) {
        return Status(Reason::kFile, error.what());
    }
    return log;
}

RomHistory UnitLog::history(const std::string& running) const
{
    return history_of(identity_, running,
                      [this](const std::string& image) { return version_of(image); });
}

std::string UnitLog::version_of(const std::string& image) const
{
    std::string version;
    const auto learn = [&version](const std::string& running) {
        const bool is_same = version.empty() || version == running;
        version = is_same ? running : "?"; // no camera reports that
    };
    if (image.empty())
        return version;
    for (const KnownUnit& known : known_units(state_)) {
        for (const JournalLine& line : read_journal(known.folder)) {
            if (line.step == JournalStep::kStarted && line.image == image)
                learn(line.running);
        }
    }
    for (const BackupFacts& facts :
         identity_.unit ? backups_in(*identity_.unit) : std::vector<BackupFacts>()) {
        if (facts.image == image && facts.backup.started == Started::kYes)
            learn(facts.backup.running);
    }
    return version == "?" ? "" : version;
}

void UnitLog::make_sure_of_unit()
{
    if (!identity_.unit)
        identity_.unit = add_unit(state_, sighting_, identity_.goes_by_port);
}

/// Whether the camera has started from what its ROM holds, and how that is known.
std::pair<Started, std::string> UnitLog::start_of(const Camera& camera) const
{
    const std::string running = camera.running();
    if (running.empty() || camera.rom_state() != RomState::kFirmware)
        return {Started::kNo, "it ran the firmware in its chip"};
    const RomHistory history = identity_.unit ? this->history(running) : RomHistory();
    const std::string since = history.operation + ", " + history.since;
    switch (history.certain ? history.rom : RomRecord::kNone) {
        case RomRecord::kNone:
            return {Started::kYes, "it ran firmware from its ROM, of which no change was known"};
        case RomRecord::kStarted:
            return {Started::kYes,
                    "it ran what its ROM holds since the last known change (" + since + ")"};
        case RomRecord::kElsewhere:
            return {Started::kUnknown,
                    "the ROM was changed elsewhere after the last known change "
                    "(" +
                        since + ")"};
        default:
            return {Started::kNo, "its ROM was changed after it had started (" + since + ")"};
    }
}

Result<Backup> UnitLog::keep(const Camera& camera, Bytes contents)
{
    try {
        make_sure_of_unit();
        const files::Descriptor lock = identity_.unit->folder.lock();
        update_unit(*identity_.unit, sighting_);
        BackupFacts facts;
        Backup& backup = facts.backup;
        backup.time = utc_now();
        backup.chip = sighting_.chip;
        backup.serial = text::printable(sighting_.serial);
        backup.port = sighting_.port;
        backup.running = camera.running();
        std::tie(backup.started, backup.how) = start_of(camera);
        return add_backup(*identity_.unit, std::move(facts), contents);
    } catch (const std::system_error& error) {
        return not_kept(Reason::kBackupNotKept, "a backup", error);
    }
}

void UnitLog::write(JournalLine line)
{
    line.time = utc_now();
    const files::Descriptor lock = identity_.unit->folder.lock();
    write_journal(identity_.unit->folder, line);
}

void UnitLog::update_here()
{
    const files::Descriptor lock = identity_.unit->folder.lock();
    update_unit(*identity_.unit, sighting_);
}

void UnitLog::update(const Camera& returned)
{
    sighting_ = sight(returned);
    update_here();
}

Status UnitLog::note_return(const Camera& returned)
{
    if (!identity_.unit)
        return {};
    try {
        update(returned);
        return {};
    } catch (const std::system_error& error) {
        return not_kept(Reason::kJournalNotKept, "the journal", error);
    }
}

Status UnitLog::begin(JournalLine facts)
{
    try {
        make_sure_of_unit();
        update_here();
        facts.step = JournalStep::kBegins;
        write(std::move(facts));
        return {};
    } catch (const std::system_error& error) {
        return not_kept(Reason::kJournalNotKept, "the journal", error);
    }
}

Status UnitLog::note(JournalStep step)
{
    if (!identity_.unit)
        return {};
    try {
        const std::vector<JournalLine> lines = read_journal(identity_.unit->folder);
        JournalLine line = lines.empty() ? JournalLine() : lines.back();
        line.step = step;
        write(std::move(line));
        return {};
    } catch (const std::system_error& error) {
        return not_kept(Reason::kJournalNotKept, "the journal", error);
    }
}

Status not_started(const Camera& camera, const std::string& expected)
{
    const std::string name = camera.name();
    if (!camera.runs_external_firmware()) {
        return {Reason::kNotStarted,
                name + " came back with its mask ROM: it does not start what its ROM holds"};
    }
    return {Reason::kNotStarted, name + " came back with firmware " + camera.running() +
                                     ", not with " + expected + ", which was programmed"};
}

Status UnitLog::note_restart(const Camera& returned)
{
    const bool is_known = identity_.unit.has_value();
    const JournalState state = is_known ? identity_.unit->state() : JournalState();
    JournalLine line = state.line;
    // It may start from what was there before, or from what somebody else has written.
    if (!holds_image(state.rom) || history(running_).rom == RomRecord::kElsewhere)
        line.image = line.file = "";
    const std::string expected = version_of(line.image);
    line.running = returned.running();
    const bool is_as_expected = expected.empty() || expected == line.running;
    const bool started = returned.runs_external_firmware() && is_as_expected;
    line.step = started ? JournalStep::kStarted : JournalStep::kNotStarted;
    if (is_known && state.rom != RomRecord::kNone) {
        try {
            update(returned);
            write(line);
        } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch)
            // What the journal says then is worse than what is there.
        }
    }
    return started ? Status() : not_started(returned, expected);
}

Status UnitLog::latest_restart(const Camera& camera) const
{
    const auto lines =
        identity_.unit ? read_journal(identity_.unit->folder) : std::vector<JournalLine>();
    const bool failed = !lines.empty() && lines.back().step == JournalStep::kNotStarted &&
                        lines.back().running == camera.running();
    if (camera.runs_external_firmware() && !failed)
        return {};
    const JournalState state = state_of(lines);
    if (state.rom == RomRecord::kBlank && !camera.runs_external_firmware()) {
        return {Reason::kNotStarted, camera.name() +
                                         " came back with its mask ROM: its ROM was erased on "
                                         "purpose (" +
                                         state.line.operation + ", " + state.line.time + ")"};
    }
    return not_started(camera, failed ? version_of(lines.back().image) : "");
}

} // namespace nyxus::engine
