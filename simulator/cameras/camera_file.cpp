// SPDX-License-Identifier: Apache-2.0
#include "cameras/camera_file.h"

#include "cameras/fields.h"
#include "cameras/film_file.h"
#include "cameras/shipped.h"
#include "description/reader.h"
#include "faults/fault_tables.h"
#include "files/read.h"
#include "text/format.h"
#include "text/nearest.h"
#include "usb/descriptors.h"

#include <algorithm>
#include <bit>
#include <filesystem>
#include <memory>
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
    CameraReader(const toml::table& table, std::filesystem::path folder, CameraDescription& model,
                 Mistakes& mistakes)
        : table_(table), folder_(std::move(folder)), model_(model), mistakes_(mistakes)
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
        } else if (field.key == "picture") {
            read_picture(field, *key, *node);
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
            read_format(*table, model_.formats.emplace_back());
        }
    }

    void read_format(const toml::table& table, FrameFormat& format)
    {
        const toml::key* file = nullptr;
        read_fields(table, "format", format_fields(), format, mistakes_,
                    [&file](const Field<FrameFormat>&, const toml::key* key) { file = key; });
        const bool has_film = format.pixels == PixelFormat::kH264;
        if (file != nullptr && !has_film)
            mistakes_.add(file->source(), "'file' belongs to a format of H264");
        if (!has_film)
            return;
        if (file == nullptr)
            mistakes_.add(table.source(), "[format] 'file' is missing: the name of a file");
        if (format.sizes.size() > 1) {
            mistakes_.add(find_key(table, "sizes")->source(),
                          "H264 has one size, that of its file");
        }
        if (file != nullptr && !format.sizes.empty())
            format.film = read_film(*file, *table.get("file"), format.sizes.front());
    }

    std::shared_ptr<const Film> read_film(const toml::key& key, const toml::node& node,
                                          const FrameSize& size)
    {
        const auto name = read_value(key, node, Path{}, mistakes_);
        if (!name)
            return nullptr;
        try {
            return std::make_shared<Film>(
                read_h264_film(folder_ / std::get<std::string>(*name), size.bytes()));
        } catch (const DescriptionError& error) {
            mistakes_.add(node.source(), error.what());
            return nullptr;
        }
    }

    void read_picture(const Field<CameraModel>& field, const toml::key& key, const toml::node& node)
    {
        const auto* table = node.as_table();
        if (table == nullptr) {
            report_kind(key, node, field.kind, mistakes_);
            return;
        }
        SceneSource source;
        read_fields(*table, "picture", picture_fields(), source, mistakes_, kNoSections);
        model_.numbers_frames = source.numbers_frames;
        if (source.file.empty())
            return;
        try {
            model_.scene =
                std::make_shared<Film>(read_scene(folder_ / source.file, source.raw_size));
        } catch (const DescriptionError& error) {
            mistakes_.add(table->get("file")->source(), error.what());
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
        const std::string name = "'" + std::string(control.key) + "'";
        const unsigned bits = 8U * kControlPlaces[place].bytes;
        const int64_t half = int64_t{1} << (bits - 1);
        const int64_t most = range.least < 0 ? half - 1 : 2 * half - 1;
        if (range.least > range.standard || range.standard > range.most) {
            mistakes_.add(key.source(), name + " needs min, default and max in this order");
        } else if (range.least < -half || range.most > most || range.step > most) {
            mistakes_.add(key.source(),
                          name + text::format(" has %u bits, which hold up to %lld, or "
                                              "from %lld to %lld",
                                              bits, 2LL * half - 1, -1LL * half, half - 1LL));
        } else if (place == kExposureMode && !has_mode(range)) {
            mistakes_.add(key.source(), name +
                                            " has the bits of its modes in 'step', and one of them "
                                            "as 'default'");
        }
    }

    static bool has_mode(const ControlRange& modes)
    {
        constexpr int32_t kAll = kManual | kAutomatic | kShutterPriority | kAperturePriority;
        const auto standard = static_cast<uint32_t>(modes.standard);
        return modes.step <= kAll && std::has_single_bit(standard) &&
               (modes.step & modes.standard) != 0;
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
        check_packets();
        check_rates();
    }

    void check_packets()
    {
        const toml::key* key = find_key(table_, "iso_packet_bytes");
        if (key == nullptr)
            return;
        if (!model_.streams_isochronously)
            mistakes_.add(key->source(), "'iso_packet_bytes' means nothing to a bulk camera");
        for (const uint32_t bytes : model_.iso_packet_bytes) {
            const uint32_t packets = (bytes + kMostPacketBytes - 1) / kMostPacketBytes;
            if (bytes % packets != 0) {
                mistakes_.add(key->source(),
                              text::format("%u bytes are not %u equal packets", bytes, packets));
            }
        }
    }

    /// What a second of the pipe carries.
    double bus_bytes() const
    {
        constexpr double kMicroframes = 8000;
        constexpr uint32_t kMostBulkPackets = 13; // of a high-speed bus without other traffic
        return kMicroframes * (model_.streams_isochronously ? model_.iso_packet_bytes.back()
                                                            : kMostBulkPackets * kBulkPacketBytes);
    }

    void check_rates()
    {
        if (model_.streams_isochronously && model_.iso_packet_bytes.empty())
            return;
        const toml::key* packets = find_key(table_, "iso_packet_bytes");
        const auto otherwise = packets != nullptr ? packets->source() : table_.source();
        for (size_t i = 0; const FrameFormat& format : model_.formats) {
            const auto sizes = table_["format"][i++]["sizes"];
            for (size_t place = 0; const FrameSize& size : format.sizes) {
                const toml::node* where = sizes[place++].node();
                check_rate(format, size, where != nullptr ? where->source() : otherwise);
            }
        }
    }

    void check_rate(const FrameFormat& format, const FrameSize& size,
                    const toml::source_region& where)
    {
        constexpr double kSecond100ns = 1e7;
        constexpr double kMega = 1e6;
        const double rate = kSecond100ns / size.intervals_100ns.front();
        const double most = bus_bytes();
        double needed = bytes_on_the_bus(format.pixels, size) * rate;
        if (model_.streams_isochronously) {
            const double packet = model_.iso_packet_bytes.back();
            needed *= packet / (packet - kPayloadHeaderBytes);
        }
        if (needed <= most)
            return;
        mistakes_.add(
            where,
            text::format("%s of %ux%u at %.0f a second takes %.1f MB/s, and the %s "
                         "pipe carries %.1f MB/s",
                         std::string(name_of(format.pixels)).c_str(), size.width, size.height, rate,
                         needed / kMega, model_.streams_isochronously ? "isochronous" : "bulk",
                         most / kMega));
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
    std::filesystem::path folder_;
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
    CameraReader(table, std::filesystem::path(file).parent_path(), model, mistakes).read();
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
