// SPDX-License-Identifier: Apache-2.0
#include "cameras/camera_file.h"

#include "cameras/fields.h"
#include "cameras/shipped.h"
#include "description/reader.h"
#include "faults/fault_tables.h"
#include "files/read.h"
#include "text/nearest.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace sim {

namespace {

constexpr size_t kLargestFile = 32 << 10;

const auto kNoSections = [](const auto&, const toml::key*) {};

FlashPart read_part(const toml::table& table, const FlashPart&, Mistakes& mistakes)
{
    FlashPart part;
    read_fields(table, "flash", flash_fields(), part, mistakes, kNoSections);
    if (part.size_bytes != 0 && part.block_erase_bytes > part.size_bytes) {
        mistakes.add(find_key(table, "block_erase_bytes")->source(),
                     "'block_erase_bytes' is more than the 'size_bytes' of the flash");
    }
    return part;
}

EepromPart read_part(const toml::table& table, const EepromPart&, Mistakes& mistakes)
{
    EepromPart part;
    read_fields(table, "eeprom", eeprom_fields(), part, mistakes, kNoSections);
    return part;
}

/// The part of that name; a mistake, and any part, when there is none.
template <typename Part>
Part part_named(const toml::key& key, std::string_view name, std::span<const Part> parts,
                Mistakes& mistakes)
{
    const auto found = std::ranges::find(parts, name, &Part::name);
    if (found != parts.end())
        return *found;
    std::vector<std::string_view> names;
    std::ranges::transform(parts, std::back_inserter(names), &Part::name);
    const std::string kind(key.str());
    std::string advice = text::did_you_mean(name, names, '"');
    if (advice.empty())
        advice = "; 'nyxus-sim describe --" + kind + "-parts' lists them";
    mistakes.add(key.source(), "there is no " + kind + " part of that name" + advice);
    return parts.front();
}

/// A key that holds the name of a part, or a table with what the part does.
template <typename Part>
Part read_part_or_table(const toml::key& key, const toml::node& node, const Kind& kind,
                        std::span<const Part> parts, Mistakes& mistakes)
{
    if (const auto* table = node.as_table())
        return read_part(*table, Part(), mistakes);
    if (const auto* name = node.as_string())
        return part_named(key, name->get(), parts, mistakes);
    report_kind(key, node, kind, mistakes);
    return parts.front();
}

class CameraReader {
public:
    CameraReader(const toml::table& table, CameraDescription& model, Mistakes& mistakes)
        : table_(table), model_(model), mistakes_(mistakes)
    {
    }

    void read()
    {
        read_fields<CameraModel>(table_, "", camera_fields(), model_, mistakes_,
                                 [this](const Field<CameraModel>& field, const toml::key* key) {
                                     open_section(field, key);
                                 });
        check_together();
    }

private:
    void open_section(const Field<CameraModel>& field, const toml::key* key)
    {
        const toml::node* node = table_.get(field.key);
        if (field.key == "firmware") {
            read_firmware(field, key, node);
        } else if (key == nullptr) {
            return;
        } else if (field.key == "format") {
            read_formats(field, *key, *node);
        } else if (field.key == "fault") {
            model_.faults = read_fault_tables(*key, *node, model_.name, mistakes_);
        } else if (field.key == "controls") {
            read_controls(field, *key, *node);
        } else if (field.key == "flash") {
            model_.rom_kind = RomKind::kSpiFlash;
            model_.flash = read_part_or_table(*key, *node, field.kind, flash_parts(), mistakes_);
        } else {
            model_.rom_kind = RomKind::kEeprom;
            model_.eeprom = read_part_or_table(*key, *node, field.kind, eeprom_parts(), mistakes_);
        }
    }

    void read_formats(const Field<CameraModel>& field, const toml::key& key, const toml::node& node)
    {
        model_.formats.clear();
        for (const toml::table* table :
             tables_of(key, node, std::get<Tables>(field.kind), mistakes_)) {
            read_fields(*table, "format", format_fields(), model_.formats.emplace_back(), mistakes_,
                        kNoSections);
        }
    }

    void read_controls(const Field<CameraModel>& field, const toml::key& key,
                       const toml::node& node)
    {
        const auto* table = node.as_table();
        if (table == nullptr) {
            report_kind(key, node, field.kind, mistakes_);
            return;
        }
        model_.controls = {};
        read_fields<CameraModel>(*table, "controls", control_fields(), model_, mistakes_,
                                 [&](const Field<CameraModel>& control, const toml::key* name) {
                                     if (name != nullptr)
                                         read_range(control, *name, *table->get(control.key));
                                 });
    }

    void read_range(const Field<CameraModel>& control, const toml::key& key, const toml::node& node)
    {
        const auto* table = node.as_table();
        if (table == nullptr) {
            report_kind(key, node, control.kind, mistakes_);
            return;
        }
        const auto place = static_cast<size_t>(&control - control_fields().data());
        ControlRange& range = model_.controls[place].emplace();
        read_fields(*table, control.key, range_fields(), range, mistakes_, kNoSections);
        const bool is_in_order = range.least <= range.standard && range.standard <= range.most;
        if (!is_in_order || (range.least < 0 && range.most > INT16_MAX)) {
            mistakes_.add(key.source(), "'" + std::string(control.key) +
                                            "' needs min, default and max in this order, and with "
                                            "a sign at most 32767");
        }
    }

    void read_firmware(const Field<CameraModel>& field, const toml::key* key,
                       const toml::node* node)
    {
        static const toml::table kAllDefaults;
        if (node != nullptr && !node->is_table()) {
            report_kind(*key, *node, field.kind, mistakes_);
            node = nullptr;
        }
        const toml::table& table = node != nullptr ? *node->as_table() : kAllDefaults;
        read_fields<CameraModel>(table, "firmware", firmware_fields(), model_, mistakes_,
                                 kNoSections);
        const toml::key* size = find_key(table, "size_bytes");
        if (size != nullptr && rom_bytes(model_) > 0 &&
            model_.factory_firmware_bytes > rom_bytes(model_)) {
            mistakes_.add(size->source(), "the firmware is larger than the ROM, which has " +
                                              std::to_string(rom_bytes(model_)) + " bytes");
        }
    }

    /// What is right by itself but not with the rest.
    void check_together()
    {
        const toml::key* flash = find_key(table_, "flash");
        const toml::key* eeprom = find_key(table_, "eeprom");
        if (flash != nullptr && eeprom != nullptr) {
            mistakes_.add(
                std::max(flash->source().begin, eeprom->source().begin) == flash->source().begin
                    ? flash->source()
                    : eeprom->source(),
                "a camera has one ROM: there is both 'flash' and 'eeprom'");
        } else if (flash == nullptr && eeprom == nullptr) {
            mistakes_.add(
                "the ROM is missing: either 'flash' or 'eeprom', the name of a part or "
                "a table");
        }
        check_needs_version("memory_extension", model_.has_memory_extension);
        check_needs_version("xu_prefix", model_.selects_every_block);
    }

    void check_needs_version(const char* name, bool is_set)
    {
        const toml::key* key = find_key(table_, name);
        if (key != nullptr && is_set && !model_.has_xu_version) {
            mistakes_.add(key->source(), "'" + std::string(name) +
                                             "' is part of the version record, which a camera "
                                             "without 'xu_version' does not have");
        }
    }

    const toml::table& table_;
    CameraDescription& model_;
    Mistakes& mistakes_;
};

/// The file's name without folder and ending, with '-' for what a name cannot hold.
std::string name_from(const std::string& file)
{
    constexpr size_t kLongestName = 40;
    std::string name = std::filesystem::path(file).stem().string().substr(0, kLongestName);
    std::ranges::replace_if(
        name, [](char c) { return !is_name_character(c); }, '-');
    return name.empty() ? "camera" : name;
}

template <typename Part>
std::vector<Part> parse_parts(std::string_view text, const std::string& file, const char* section)
{
    Mistakes mistakes(file);
    std::vector<Part> parts;
    const toml::table table = parse_toml(text, file);
    const std::string_view known[] = {section};
    check_keys(table, known, mistakes);
    if (const auto* list = table.get_as<toml::array>(section)) {
        for (const toml::node& item : *list) {
            if (const auto* row = item.as_table())
                parts.push_back(read_part(*row, Part(), mistakes));
        }
    }
    mistakes.throw_if_any();
    return parts;
}

} // namespace

CameraDescription parse_camera_file(std::string_view text, const std::string& file)
{
    const toml::table table = parse_toml(text, file);
    Mistakes mistakes(file);
    CameraDescription model;
    model.name = name_from(file);
    CameraReader(table, model, mistakes).read();
    mistakes.throw_if_any();
    return model;
}

CameraDescription read_camera_file(const std::string& path)
{
    const auto fail = [&path](const std::string& why) -> void {
        throw DescriptionError(path + ": " + why);
    };
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found)
        fail("there is no such file");
    if (!std::filesystem::is_regular_file(status))
        fail("a camera description is a plain file");
    try {
        return parse_camera_file(files::read_text(path, kLargestFile), path);
    } catch (const std::system_error& failure) {
        throw DescriptionError(path + (failure.code() == std::errc::file_too_large
                                           ? ": a camera description has at most " +
                                                 std::to_string(kLargestFile) + " bytes"
                                           : ": the file cannot be read"));
    }
}

std::vector<FlashPart> parse_flash_parts(std::string_view text, const std::string& file)
{
    return parse_parts<FlashPart>(text, file, "flash");
}

std::vector<EepromPart> parse_eeprom_parts(std::string_view text, const std::string& file)
{
    return parse_parts<EepromPart>(text, file, "eeprom");
}

} // namespace sim
