// SPDX-License-Identifier: Apache-2.0
#include "known_units.h"

#include <cctype>
#include <system_error>

#include "digest.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr char kUnitsFolder[] = "units";
constexpr char kUnitFile[] = "unit.json";
constexpr size_t kMostUnit = 0x10000;

std::optional<Unit> read_unit(const files::Folder& folder)
{
    const auto bytes = folder.read(kUnitFile, kMostUnit);
    return bytes ? parse_unit({bytes->begin(), bytes->end()}) : std::nullopt;
}

/// How sure it is that a camera is a unit.
enum class Likeness {
    kOther,
    kPerhaps,
    kByPort,   ///< its number has changed, but it is in the unit's port
    kByNumber, ///< and by the port where that belongs to the number
};

bool is_firmware_expected(const JournalState& state)
{
    return state.rom == RomRecord::kNone || state.rom == RomRecord::kStarted;
}

class Comparison {
public:
    Comparison(const Sighting& seen, const std::vector<KnownUnit>& known) : seen_(seen)
    {
        shares_number_ = seen.serial.empty() || !seen.twin_ports.empty() ||
                         std::ranges::any_of(known, [&](const KnownUnit& each) {
                             return each.unit.goes_by_port && has_chip(each.unit) &&
                                    each.unit.serial() == seen.serial;
                         });
    }

    bool shares_number() const { return shares_number_; }

    Likeness operator()(const KnownUnit& known) const
    {
        const Unit& unit = known.unit;
        if (!has_chip(unit))
            return Likeness::kOther;
        return unit.serial() == seen_.serial ? of_same_number(unit) : of_other_number(known);
    }

private:
    bool has_chip(const Unit& unit) const { return seen_.chip.empty() || unit.chip == seen_.chip; }

    Likeness of_same_number(const Unit& unit) const
    {
        const bool is_here = unit.port == seen_.port;
        if (seen_.serial.empty())
            return is_here ? Likeness::kByNumber : Likeness::kOther;
        if (!shares_number_ || (unit.goes_by_port && is_here))
            return Likeness::kByNumber;
        const bool is_a_twin =
            unit.goes_by_port && std::ranges::count(seen_.twin_ports, unit.port) > 0;
        return is_a_twin ? Likeness::kOther : Likeness::kPerhaps;
    }

    Likeness of_other_number(const KnownUnit& known) const
    {
        const Unit& unit = known.unit;
        const bool is_here = unit.port == seen_.port;
        const bool had_it = std::ranges::count(unit.serials, seen_.serial) > 0;
        if (!is_here)
            return had_it ? Likeness::kPerhaps : Likeness::kOther;
        const JournalState state = known.state();
        const bool is_written = !seen_.serial.empty() && state.line.serial == seen_.serial;
        // A serial number changes with a start, from the ROM or, without firmware there, from the
        // chip. The next camera in the port may have firmware, and the number that all begin with.
        const bool has_lost_it = (had_it || seen_.serial.empty()) && seen_.runs_mask_rom;
        if ((has_lost_it || is_written) && !is_firmware_expected(state))
            return Likeness::kByPort;
        return had_it || seen_.serial.empty() ? Likeness::kPerhaps : Likeness::kOther;
    }

    const Sighting& seen_;
    bool shares_number_ = false;
};

/// A part of a file's name; the digest tells apart what looks alike there.
std::string stem_of(const Sighting& sighting)
{
    constexpr size_t kMost = 40;
    std::string stem = sighting.serial.empty() ? "port-" + sighting.port : sighting.serial;
    std::ranges::replace_if(
        stem, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; }, '_');
    return stem.substr(0, kMost);
}

std::string id_of(const Sighting& sighting, bool goes_by_port)
{
    constexpr size_t kDigestDigits = 12;
    const std::string separator(1, '\0'); // chips and ports have none
    const std::string whole = sighting.chip + separator + (goes_by_port ? sighting.port : "") +
                              separator + sighting.serial;
    return stem_of(sighting) + "-" +
           sha256({reinterpret_cast<const uint8_t*>(whole.data()), whole.size()})
               .substr(0, kDigestDigits);
}

} // namespace

Sighting sight(const CameraInfo& info)
{
    Sighting seen;
    seen.serial = info.serial;
    seen.port = info.port_path;
    const auto connected = list_cameras();
    if (!connected)
        return seen;
    for (const CameraInfo& camera : *connected) {
        if (camera.port_path == info.port_path && camera.address == info.address)
            seen.serial = camera.serial;
    }
    for (const CameraInfo& camera : *connected) {
        if (camera.port_path != info.port_path && camera.serial == seen.serial)
            seen.twin_ports.push_back(camera.port_path);
    }
    return seen;
}

Sighting sight(const Camera& camera)
{
    Sighting seen = sight(camera.info());
    seen.chip = camera.chip();
    seen.runs_mask_rom = !camera.runs_external_firmware();
    return seen;
}

std::vector<KnownUnit> known_units(const fs::path& state, std::vector<std::string>* problems)
{
    std::vector<KnownUnit> known;
    const auto top = files::Folder::find(state);
    const auto units = top ? top->find_folder(kUnitsFolder) : std::nullopt;
    for (const std::string& name : units ? units->names() : std::vector<std::string>()) {
        try {
            auto folder = units->find_folder(name);
            auto unit = folder ? read_unit(*folder) : std::nullopt;
            if (!unit) {
                throw std::system_error(std::make_error_code(std::errc::invalid_argument),
                                        "no unit.json in '" + units->path() + "/" + name + "'");
            }
            unit->id = name;
            known.push_back({*std::move(unit), *std::move(folder)});
        } catch (const std::system_error& error) {
            if (problems != nullptr)
                problems->push_back(error.what());
        }
    }
    return known;
}

Identity identify(const fs::path& state, const Sighting& sighting)
{
    std::vector<KnownUnit> known = known_units(state);
    const Comparison compare(sighting, known);
    std::vector<Likeness> likeness(known.size());
    std::ranges::transform(known, likeness.begin(), compare);
    const auto by_number = std::ranges::count(likeness, Likeness::kByNumber);
    const auto by_port = std::ranges::count(likeness, Likeness::kByPort);
    const Likeness chosen = by_number > 0 ? Likeness::kByNumber : Likeness::kByPort;
    const bool is_one = (by_number > 0 ? by_number : by_port) == 1;
    Identity identity;
    identity.goes_by_port = compare.shares_number();
    identity.is_certain = by_port == 0 || (by_number == 0 && by_port == 1);
    for (size_t i = 0; i < known.size(); ++i) {
        if (likeness[i] == chosen && is_one) {
            identity.goes_by_port = known[i].unit.goes_by_port;
            identity.unit = std::move(known[i]);
        } else if (likeness[i] != Likeness::kOther) {
            identity.candidates.push_back(std::move(known[i]));
        }
    }
    return identity;
}

KnownUnit add_unit(const fs::path& state, const Sighting& sighting, bool goes_by_port)
{
    constexpr int kTries = 1000;
    const files::Folder units = files::Folder::make(state).make_folder(kUnitsFolder);
    const std::string id = id_of(sighting, goes_by_port);
    Unit unit{.id = id,
              .chip = sighting.chip,
              .serials = {sighting.serial},
              .port = sighting.port,
              .goes_by_port = goes_by_port,
              .first_seen = utc_now(),
              .last_seen = utc_now()};
    // One that has changed its serial number since may have taken the name.
    for (int i = 2; i < kTries; ++i) {
        files::Folder folder = units.make_folder(unit.id);
        const files::Descriptor lock = folder.lock();
        if (!folder.has(kUnitFile)) {
            folder.put(kUnitFile, to_text(unit));
            return {std::move(unit), std::move(folder)};
        }
        unit.id = id + "-" + std::to_string(i);
    }
    throw std::system_error(std::make_error_code(std::errc::file_exists), "cannot name a unit");
}

void update_unit(KnownUnit& known, const Sighting& sighting)
{
    Unit& unit = known.unit;
    if (unit.serial() != sighting.serial)
        unit.goes_by_port = sighting.serial.empty() || !sighting.twin_ports.empty();
    std::erase(unit.serials, sighting.serial);
    unit.serials.insert(unit.serials.begin(), sighting.serial);
    unit.port = sighting.port;
    unit.last_seen = utc_now();
    known.folder.put(kUnitFile, to_text(unit));
}

} // namespace nyxus::engine
