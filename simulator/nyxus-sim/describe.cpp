// SPDX-License-Identifier: Apache-2.0
#include "camera_request.h"
#include "cameras/fields.h"
#include "cameras/shipped.h"
#include "commands.h"
#include "faults/fault_fields.h"
#include "text/format.h"
#include "text/hex.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace sim {

namespace {

constexpr size_t kColumns = 92;
constexpr size_t kIndent = 4;

constexpr char kIntroduction[] = R"(A camera description is a TOML file. The shortest:

    internal_version = "RO2-1.0.12"
    xu_version = 0x0002
    flash = "MXIC MX25L1006E"

Use it as a camera:      nyxus-sim run --camera ./my.toml -- nyxus info
Start from a model:      nyxus-sim describe rowan-spi > my.toml
Numbers may be written 131072, 131_072 or 0x20000; '#' starts a comment.
)";

template <typename Target>
std::string describe_fallback(const Field<Target>& field)
{
    if (const auto* value = std::get_if<Value>(&field.fallback))
        return "Default: " + format_value(*value, field.kind) + ".";
    if (const auto* absent = std::get_if<Absent>(&field.fallback))
        return "Default: " + std::string(absent->text) + ".";
    if (const auto* computed = std::get_if<Computed<Target>>(&field.fallback))
        return "Default: " + std::string(computed->text) + ".";
    return "Required.";
}

template <typename Target>
void print_section(const char* title, std::span<const Field<Target>> fields)
{
    std::printf("\n%s\n", title);
    for (const Field<Target>& field : fields) {
        std::printf("\n  %s: %s\n", std::string(field.key).c_str(),
                    describe_kind(field.kind).c_str());
        const std::string text = std::string(field.meaning) + " " + describe_fallback(field);
        std::printf("%*s%s\n", static_cast<int>(kIndent), "",
                    text::wrapped(text, kIndent, kColumns).c_str());
    }
}

void print_keys()
{
    std::fputs(kIntroduction, stdout);
    print_section("The camera", camera_fields());
    print_section("[firmware]", firmware_fields());
    print_section("[[format]]", format_fields());
    print_section("[picture]", picture_fields());
    print_section("[controls]", control_fields());
    print_section("[controls.NAME]", range_fields());
    print_section("[flash]", flash_fields());
    print_section("[eeprom]", eeprom_fields());
    print_section("[[fault]]", fault_fields());
    print_section("[fault.when]", trigger_fields());
}

void print_flash_parts()
{
    std::printf("%-20s %-8s %8s  %-4s %-5s %-5s %-6s\n", "name", "ID", "KiB", "read", "chip",
                "block", "sector");
    for (const FlashPart& part : flash_parts()) {
        const std::string id = text::hex(std::span(part.id).first(part.id_length), " ");
        std::printf("%-20s %-8s %8u  0x%02X  0x%02X  0x%02X   0x%02X\n", part.name.c_str(),
                    id.c_str(), part.size_bytes / 1024, part.read_id_command,
                    part.chip_erase_command, part.block_erase_command, part.sector_erase_command);
    }
}

void print_eeprom_parts()
{
    std::printf("%-20s %8s %8s\n", "name", "bytes", "page");
    for (const EepromPart& part : eeprom_parts())
        std::printf("%-20s %8u %8u\n", part.name.c_str(), part.size_bytes, part.page_bytes);
}

} // namespace

int describe(const DescribeArguments& arguments)
{
    if (arguments.flash_parts) {
        print_flash_parts();
    } else if (arguments.eeprom_parts) {
        print_eeprom_parts();
    } else if (arguments.model.empty()) {
        print_keys();
    } else if (const std::string_view text = model_file(arguments.model); !text.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        const auto model = model_named(arguments.model); // a file, or there is no such thing
        std::printf("%s describes the camera '%s'.\n", arguments.model.c_str(),
                    model->name.c_str());
    }
    return 0;
}

int list_models()
{
    size_t width = 0;
    for (const CameraModel& model : models())
        width = std::max(width, model.name.size());
    for (const CameraModel& model : models()) {
        std::printf("%-*s  %s\n", static_cast<int>(width), model.name.c_str(),
                    model.description.c_str());
    }
    return 0;
}

} // namespace sim
