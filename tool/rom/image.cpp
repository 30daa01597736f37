// SPDX-License-Identifier: Apache-2.0
// What an image file holds, also without a camera.
#include "rom/image.h"

#include "commands.h"
#include "session/choose.h"
#include "session/whole_file.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

namespace tool {

namespace {

using engine::ImageFacts;

struct ImageArguments {
    std::string file;
};

/// Whether a connected camera could use the image.
struct Fit {
    CameraEntry camera;
    std::string reason; ///< "" if it could
};

std::string reason_against(const CameraEntry& entry, const ImageFacts& facts)
{
    const auto camera = engine::Camera::open(entry);
    return camera ? engine::check_image(*camera, facts).message() : camera.status().text();
}

/// Without USB there is no camera either.
std::vector<Fit> look_at_cameras(Console& console, const Arguments& arguments,
                                 const ImageFacts& facts)
{
    std::vector<Fit> fits;
    try {
        for (const CameraEntry& entry : matching_cameras(console, arguments))
            fits.push_back({entry, reason_against(entry, facts)});
    } catch (const Failure& failure) {
        console.display().warn("nyxus: " + failure.text());
    }
    console.drain();
    return fits;
}

std::string signature_of(const ImageFacts& facts)
{
    return facts.firmware ? printable(facts.firmware->signature()) : "";
}

Value mfi_json(const std::optional<engine::MfiFacts>& mfi)
{
    if (!mfi)
        return {};
    Value::List parts;
    for (const engine::MfiPart& part : mfi->parts) {
        parts.emplace_back(
            Members{{"part", part.name}, {"address", part.address}, {"bytes", part.size}});
    }
    return Members{
        {"bytes", mfi->bytes}, {"mfi_serial", nothing_or(mfi->serial)}, {"parts", parts}};
}

Value cameras_json(const std::vector<Fit>& fits)
{
    Value::List list;
    for (const Fit& fit : fits) {
        Members members = json_of(fit.camera);
        members.push_back({"fits", fit.reason.empty()});
        members.push_back({"reason", nothing_or(fit.reason)});
        list.emplace_back(members);
    }
    return list;
}

Members image_json(const std::string& file, const ImageFacts& facts, const std::vector<Fit>& fits)
{
    const engine::ImageKind kind = facts.kind.value_or(engine::ImageKind());
    const auto number = [](uint32_t value) { return value == 0 ? Value() : Value(value); };
    return {{"file", file},
            {"bytes", facts.bytes},
            {"sha256", facts.sha256},
            {"contents", to_text(facts.contents)},
            {"signature", nothing_or(signature_of(facts))},
            {"chips", Value::List(facts.chips.begin(), facts.chips.end())},
            {"kind", nothing_or(kind.name)},
            {"version", nothing_or(kind.version)},
            {"problem", nothing_or(kind.problem)},
            {"rom_bytes", number(facts.rom_bytes)},
            {"larch_rom_bytes", number(facts.larch_rom_bytes)},
            {"firmware_end", number(facts.firmware_end)},
            {"reaches_mfi", facts.reaches_mfi()},
            {"reaches_reserved", facts.reaches_reserved()},
            {"mfi", mfi_json(facts.mfi)},
            {"cameras", cameras_json(fits)}};
}

std::string contents_text(const ImageFacts& facts)
{
    static constexpr const char* kTexts[] = {"unknown", "firmware", "contents of a ROM",
                                             "MFi image"};
    return kTexts[static_cast<size_t>(facts.contents)] +
           (facts.kind ? " (" + facts.kind->name + ")" : "");
}

std::string chips_text(const ImageFacts& facts)
{
    std::string text;
    for (const std::string& chip : facts.chips)
        text += (text.empty() ? "" : ", ") + chip;
    return in_quotes(signature_of(facts)) + (text.empty() ? ", of an unknown chip" : ": " + text);
}

std::string checks_text(const ImageFacts& facts)
{
    if (!facts.kind)
        return "none is known for it";
    return facts.kind->problem.empty() ? "length and checksums are right" : facts.kind->problem;
}

std::string rom_text(const ImageFacts& facts)
{
    if (facts.chips.empty()) {
        return format("unknown; %u bytes if it is no LARCH chip, else %u", facts.rom_bytes,
                      facts.larch_rom_bytes);
    }
    return format("%u bytes", std::max(facts.rom_bytes, facts.larch_rom_bytes));
}

std::string end_text(const ImageFacts& facts)
{
    const std::string mfi = format("the MFi image (0x%04X)", NYXUS_MFI_ROM_ADDR);
    const std::string reserved = format("the reserved area (0x%04X)", SPI_RESERVED_ADDR);
    const std::string end = format("0x%04X, ", facts.firmware_end);
    if (facts.reaches_reserved())
        return end + "over the places of " + mfi + " and " + reserved;
    if (facts.reaches_mfi())
        return end + "over the place of " + mfi + ", before that of " + reserved;
    return end + "before the places of " + mfi + " and " + reserved;
}

using Rows = std::vector<std::pair<std::string, std::string>>;

void add_mfi(Rows& rows, const engine::MfiFacts& mfi)
{
    rows.emplace_back("MFi image", format("%u bytes", mfi.bytes));
    rows.emplace_back("MFi serial number", mfi.serial.empty() ? "none" : mfi.serial);
    for (const engine::MfiPart& part : mfi.parts)
        rows.emplace_back("", format("0x%04X, %u bytes: ", part.address, part.size) + part.name);
}

std::string described(const std::string& file, const ImageFacts& facts,
                      const std::vector<Fit>& fits)
{
    Rows rows = {{"File", printable(file)},
                 {"Size", format("%llu bytes", static_cast<unsigned long long>(facts.bytes))},
                 {"SHA-256", facts.sha256},
                 {"Contents", contents_text(facts)}};
    if (facts.firmware) {
        const std::string version = facts.kind ? facts.kind->version : "";
        rows.insert(rows.end(), {{"Signature", chips_text(facts)},
                                 {"Version", version.empty() ? "unknown" : version},
                                 {"Checks", checks_text(facts)},
                                 {"ROM that it names", rom_text(facts)},
                                 {"Ends at", end_text(facts)}});
    }
    if (facts.mfi)
        add_mfi(rows, *facts.mfi);
    for (const Fit& fit : fits) {
        rows.emplace_back("Camera " + fit.camera.port_path,
                          fit.reason.empty() ? "it fits" : "does not fit: " + fit.reason);
    }
    std::string lines;
    for (const auto& [name, value] : rows)
        lines += (lines.empty() ? "" : "\n") + padded(name, 20) + value;
    return lines;
}

ExitCode run_image(Console& console, const Arguments& arguments, const ImageArguments& wanted)
{
    constexpr size_t kLargestPart = 0x1000000;
    const ImageFacts facts = wanted.file == "-"
                                 ? engine::inspect_contents(read_file("-", kLargestPart, "any ROM"))
                                 : value_of(engine::inspect_image(wanted.file));
    const std::vector<Fit> fits = look_at_cameras(console, arguments, facts);
    console.display().say(arguments.json ? json_text(image_json(wanted.file, facts, fits))
                                         : described(wanted.file, facts, fits));
    const bool is_whole = !facts.kind || facts.kind->problem.empty();
    return is_whole ? kExitOk : kExitImageRefused;
}

} // namespace

std::string summary_of(const ImageFacts& facts)
{
    std::string text = contents_text(facts);
    if (facts.kind && !facts.kind->version.empty())
        text += ", version " + facts.kind->version;
    if (facts.mfi && facts.contents != ImageFacts::Contents::kMfi)
        text += ", MFi image";
    if (facts.mfi && !facts.mfi->serial.empty())
        text += ", MFi serial number " + printable(facts.mfi->serial);
    return text;
}

void add_image_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(
        app, "image", "Show what an image holds, and which cameras it fits", "camera.bin");
    auto& wanted = set_run<ImageArguments>(command, arguments, run_image);
    add_file(command, &wanted.file,
             "Firmware, MFi image, backup or any other file; - is standard input");
}

} // namespace tool
