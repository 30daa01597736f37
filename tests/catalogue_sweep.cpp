// SPDX-License-Identifier: Apache-2.0
// Every chip with every extension unit and every ROM: each combination is described, plugged in,
// probed and upgraded.
//
//   catalogue_sweep [--every N] [--shard I/N] [--verbose]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "cameras/camera_file.h"
#include "cameras/shipped.h"
#include "support/camera.h"

namespace {

struct Chip {
    const char* version_text;
    unsigned bond;
    const char* name;
    const char* family;
};

constexpr Chip kChips[] = {
    {"N/A-0.1", 0, "N/A", "N/A"},          {"LE-1.0", 0, "ZR5100 -series", "LARCH"},
    {"LD-1.0", 0, "NY6200", "LARCH"},      {"LS-1.0", 0, "NY6210", "LARCH"},
    {"LP-0.9.4", 0, "NY6300", "LARCH"},    {"FI-1.1", 0, "ZR5200 -series", "FI"},
    {"F2-1.4.2", 0, "ZR5200U", "FI2"},     {"WI-3.1.7", 0, "ZR5300 -series", "WILLOW"},
    {"HA-1.2.0", 0, "ZR5400", "HAWTHORN"}, {"RO1-1.0.12", 0, "NY6400", "ROWAN"},
    {"RO2-1.0.12", 0, "NY6410", "ROWAN"},  {"CD-2.0", 0, "NY6500", "CEDAR"},
    {"CB-2.3.1", 0, "NY7701", "CEDAR"},    {"CB-2.3.1", 1, "NY7700", "CEDAR"},
    {"CB-2.3.1", 2, "NY7780", "CEDAR"},    {"CB-2.3.1", 3, "NY7080", "CEDAR"},
};

struct Unit {
    const char* text; ///< in the description
    unsigned version;
    bool wide; ///< 32-byte ROM transfers, and writing unlocked by a control
    bool usable;
};

constexpr Unit kUnits[] = {
    {"", 0, false, true},
    {"xu_version = 0x0002\n", 0x0002, true, true},
    {"xu_version = 0x0003\n", 0x0003, true, true},
    {"xu_version = 0x0100\n", 0x0100, true, true},
    {"xu_version = 0x0101\n", 0x0101, true, true},
    // The library has no control table for it and refuses the camera.
    {"xu_version = 0x0777\n", 0x0777, true, false},
    {"xu_version = 0x0777\nmemory_extension = false\n", 0x0777, false, true},
    {"xu_version = 0x0002\nxu_prefix = \"FF\"\n", 0x0002, false, true},
};

struct Rom {
    std::string text; ///< in the description
    bool spi;
    std::string flash_name;  ///< as the library shall call it
    std::vector<uint8_t> id; ///< as it shall end up in the device object
    uint32_t rom_size;       ///< what the library shall say
    uint8_t rom_type;
};

constexpr uint32_t kEepromBytes[] = {512, 1024, 2048, 4096, 8192, 16384, 32768, 65536};
constexpr char kUnlistedFlash[] =
    "[flash]\nid = [0xD5, 0x30, 0x11]\nsize_bytes = 0x20000\nstatus_write_us = 15_000\n";

std::vector<Rom> all_roms()
{
    std::vector<Rom> roms;
    for (const sim::FlashPart& part : sim::flash_parts()) {
        // Two parts share an ID, and the library knows the first one by it.
        const bool shadowed = part.name == "ATMEL AT25F512A";
        roms.push_back({"flash = \"" + part.name + "\"\n",
                        true,
                        shadowed ? "Adesto AT25F512B" : part.name,
                        {part.id.begin(), part.id.end()},
                        0x10000,
                        0xFF});
    }
    roms.push_back({kUnlistedFlash, true, "Not Approved Flash", {0xD5, 0x30, 0x11}, 0x10000, 0xFF});
    for (const uint32_t bytes : kEepromBytes) {
        // The library knows sizes below 16 KiB by their type, and none above 32 KiB.
        roms.push_back({"[eeprom]\nsize_bytes = " + std::to_string(bytes) + "\n",
                        false,
                        "",
                        {},
                        std::min(bytes, 32768U),
                        static_cast<uint8_t>(std::min(bytes / 128, 128U))});
    }
    return roms;
}

/// What was not as it should be in one case; empty: nothing.
class Findings {
public:
    template <typename Found, typename Expected>
    void expect_equal(const char* what, const Found& found, const Expected& expected)
    {
        if (!(found == expected))
            text_ << "  " << what << " is " << found << ", not " << expected << "\n";
    }
    void expect(bool holds, const std::string& otherwise)
    {
        if (!holds)
            text_ << "  " << otherwise << "\n";
    }
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
};

struct Case {
    const Chip& chip;
    const Unit& unit;
    const Rom& rom;
    uint32_t image_bytes;

    std::string description() const
    {
        return "internal_version = \"" + std::string(chip.version_text) + "\"\n" +
               (chip.bond != 0 ? "bond = " + std::to_string(chip.bond) + "\n" : "") + unit.text +
               rom.text;
    }
};

/// The bond is told by a control that one extension unit has; to all others it reads as 0.
const char* expected_chip(const Case& c)
{
    return c.unit.version != 0x0003 && c.chip.bond != 0 ? "NY7701" : c.chip.name;
}

void check_probe(const Case& c, const NyDevice& device, Findings& findings)
{
    findings.expect_equal("the chip", std::string(device.oBackend.name), expected_chip(c));
    findings.expect_equal("the family", std::string(IC_FAMILY_STR[device.oBackend.family]),
                          c.chip.family);
    findings.expect_equal("the extension unit", unsigned{device.oXuCtrlVer.wVersion},
                          c.unit.version);
    findings.expect_equal("xFeatureXU", bool{device.xFeatureXU != 0}, c.unit.wide);
    findings.expect_equal("xSpiMode", bool{device.xSpiMode != 0}, c.rom.spi);
    findings.expect_equal("the ROM type", unsigned{device.bExtRomType}, unsigned{c.rom.rom_type});
    findings.expect_equal("the ROM size", device.dwExtRomSize, c.rom.rom_size);
    findings.expect_equal("the firmware", device.wExtFwVer, 0x0100);
    if (c.rom.spi) {
        findings.expect_equal("the flash", std::string(device.oFlashInfo.szName), c.rom.flash_name);
        findings.expect(std::equal(c.rom.id.begin(), c.rom.id.end(), device.oFlashInfo.ID),
                        "the flash ID is another");
    }
}

void check_upgrade(const Case& c, const sim::CameraModel& model, Camera& camera, NyDevice* device,
                   Findings& findings)
{
    const auto image = load_image(model, c.image_bytes);
    nyxus_write_cycle_time = 5;
    const int32_t rv = MP_FwUpgrade(device, nullptr);
    if (rv != 0) {
        findings.expect(false, "the upgrade failed: " + std::to_string(rv) + " " + nyxus_errmsg);
        return;
    }
    findings.expect(camera.rom(0, image.size()) == image, "the ROM does not hold the image");
    const auto controller = camera.sim().controller();
    if (c.rom.spi) {
        const uint32_t erased =
            model.flash.chip_erase_command == 0xFF ? 0x10000 : model.flash.size_bytes;
        const std::vector<uint8_t> rest = camera.rom(image.size(), erased - image.size());
        findings.expect(std::ranges::all_of(rest, [](uint8_t b) { return b == 0xFF; }),
                        "the flash is not erased behind the image");
        findings.expect_equal("the lock", controller->flash_status() & 0x0C, 0x0C);
    }
    findings.expect(controller->write_protect, "the ROM stays writable");
    controller->restart();
    findings.expect(controller->firmware.external, "the new firmware does not boot");
}

std::string run_case(const Case& c)
{
    Findings findings;
    const sim::CameraModel model = sim::parse_camera_file(c.description(), "case.toml");
    Camera camera(model, Time::kSimulated);
    camera.sim().set_tracing(false);
    NyDevice* device = camera.create();
    if (!c.unit.usable) {
        findings.expect(device == nullptr, "the probe accepts a unit without control table");
    } else if (device == nullptr) {
        findings.expect(false, std::string("the probe failed: ") + nyxus_errmsg);
    } else {
        check_probe(c, *device, findings);
        check_upgrade(c, model, camera, device, findings);
    }
    return findings.text();
}

/// The simulator's parts and the library's rows are written down apart from each other. Where the
/// library deviates from the part on purpose, its value stands here.
std::string compare_rows()
{
    const struct {
        std::string_view name;
        uint8_t size_code;
    } kSizeByHabit[] = {{"ZbitSemi ZB25VQ20", 4}, {"ZbitSemi ZB25VQ40", 3}, {"GigaDev GD25Q10", 1}};
    Findings findings;
    const auto parts = sim::flash_parts();
    findings.expect_equal("the number of parts", parts.size(),
                          static_cast<size_t>(spi_flash_table_count));
    for (size_t i = 0; i < std::min<size_t>(parts.size(), 42); ++i) {
        const sim::FlashPart& part = parts[i];
        const NyFlashInfo& row = spi_flash_table[i];
        const std::string of = " of " + part.name;
        const auto same = [&](const char* what, unsigned ours, unsigned row_value) {
            findings.expect_equal((what + of).c_str(), ours, row_value);
        };
        findings.expect_equal("the name", part.name, std::string(row.szName));
        same("bParam", part.info_param, row.bParam);
        same("bCmdCE", part.chip_erase_command, row.bCmdCE);
        same("bCmdBE", part.block_erase_command, row.bCmdBE);
        same("bCmdSE", part.sector_erase_command, row.bCmdSE);
        same("bCmdRDID", part.read_id_command, row.bCmdRDID);
        findings.expect(std::equal(part.id.begin(), part.id.end(), row.ID), "the ID differs" + of);
        findings.expect(std::equal(part.controller_params.begin(), part.controller_params.end(),
                                   row.abExtParam),
                        "abExtParam differs" + of);
        const auto* habit = std::ranges::find(
            kSizeByHabit, part.name, [](const auto& known) { return std::string(known.name); });
        same("bSize",
             habit != std::end(kSizeByHabit) ? (0x8000U << habit->size_code) : part.size_bytes,
             0x8000U << row.bSize);
        findings.expect(part.status_write_us <= 1000U * row.bTwsr, "bTwsr is too short" + of);
    }
    return findings.text();
}

struct Options {
    size_t every = 1;
    size_t shard = 0;
    size_t shards = 1;
    bool verbose = false;
};

bool parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : "";
        if (option == "--verbose") {
            options.verbose = true;
            continue;
        }
        if (option == "--every" && std::sscanf(value, "%zu", &options.every) == 1 &&
            options.every > 0) {
            ++i;
        } else if (option == "--shard" &&
                   std::sscanf(value, "%zu/%zu", &options.shard, &options.shards) == 2 &&
                   options.shard < options.shards) {
            ++i;
        } else {
            std::fprintf(stderr, "catalogue_sweep [--every N] [--shard I/N] [--verbose]\n");
            return false;
        }
    }
    return true;
}

/// Most are short, for speed; every eighth fills the 32 KiB that firmware may have.
uint32_t image_bytes(size_t number, const Rom& rom)
{
    const uint32_t whole = std::min(rom.spi ? 32768U : rom.rom_size, 32768U);
    return number % 8 == 0 ? whole
                           : std::min(whole, 0x180 + static_cast<uint32_t>(number * 37 % 0x300));
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options))
        return 2;
    const auto start = std::chrono::steady_clock::now();
    size_t cases = 0;
    size_t failed = 0;
    const auto report = [&](const std::string& name, const std::string& findings) {
        ++cases;
        if (!findings.empty() && ++failed <= 20) {
            std::printf("FAILED:\n%s%s\n", name.c_str(), findings.c_str());
        } else if (options.verbose) {
            std::printf("ok:\n%s\n", name.c_str());
        }
    };

    if (options.shard == 0)
        report("the catalogues\n", compare_rows());
    size_t number = 0;
    const auto roms = all_roms();
    for (const Chip& chip : kChips) {
        for (const Unit& unit : kUnits) {
            for (const Rom& rom : roms) {
                ++number;
                if (number % options.every != 0 ||
                    number / options.every % options.shards != options.shard)
                    continue;
                const Case c{chip, unit, rom, image_bytes(number, rom)};
                report(c.description(), run_case(c));
            }
        }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("catalogue_sweep: %zu cases, %zu failed, %.1f s\n", cases, failed, took.count());
    return failed == 0 ? 0 : 1;
}
