// SPDX-License-Identifier: Apache-2.0
// What lies where in the ROM.
#include "commands.h"
#include "rom/image.h"
#include "rom/programming.h"
#include "rom/range.h"
#include "session/choose.h"
#include "session/follower.h"
#include "session/run.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>

namespace tool {

namespace {

struct Row {
    std::string name;
    RomRange range;
    size_t used = 0;     ///< bytes that are not 0xFF
    std::string upgrade; ///< what it does to them
};

size_t used_bytes(std::span<const uint8_t> bytes)
{
    return bytes.size() - static_cast<size_t>(std::ranges::count(bytes, 0xFF));
}

std::string fate_of(const std::string& name, const Camera& camera)
{
    if (name == "header" || name == "body")
        return "replaced";
    return camera.has_spi_flash() ? "erased, then written back" : "left alone";
}

/// The regions with what is free between them, as far as was read.
std::vector<Row> rows_of(const Camera& camera, std::span<const uint8_t> rom)
{
    std::vector<Row> rows;
    uint32_t next = 0;
    const auto add = [&](const std::string& name, uint32_t end) {
        end = std::min<uint32_t>(end, static_cast<uint32_t>(rom.size()));
        if (end <= next)
            return;
        const size_t used = used_bytes(rom.subspan(next, end - next));
        const bool is_other = name == "free" && used > 0;
        rows.push_back({is_other ? "other" : name,
                        {next, end - next},
                        used,
                        used > 0 ? fate_of(name, camera) : "-"});
        next = end;
    };
    for (const Region& region : regions()) {
        add("free", region.range.address);
        add(region.name, region.range.address + region.range.bytes);
    }
    add("free", static_cast<uint32_t>(rom.size()));
    if (const uint32_t part = part_bytes(camera); part > next) {
        const bool is_erased = engine::erased_flash_bytes(camera) > next;
        rows.push_back({"beyond",
                        {next, part - next},
                        0,
                        is_erased ? "lost unless --keep whole" : "left alone"});
    }
    return rows;
}

std::string holding(std::vector<uint8_t> rom)
{
    return engine::is_blank(rom) ? "blank" : summary_of(engine::inspect_contents(std::move(rom)));
}

Members map_json(const Camera& camera, const std::string& holds, const std::vector<Row>& rows)
{
    Value::List list;
    for (const Row& row : rows) {
        const bool is_known = row.name != "beyond";
        list.emplace_back(Members{{"region", row.name},
                                  {"address", row.range.address},
                                  {"bytes", row.range.bytes},
                                  {"used_bytes", is_known ? Value(row.used) : Value()},
                                  {"upgrade", row.upgrade}});
    }
    return {{"part_bytes", part_bytes(camera)},
            {"readable_bytes", readable_bytes(camera)},
            {"holds", holds},
            {"regions", list}};
}

ExitCode run_map(Console& console, const Arguments& arguments)
{
    Camera camera = open_with_rom(console, arguments);
    Follower follower(console);
    const auto rom =
        value_of(engine::read_rom(camera, 0, engine::replaced_bytes(camera), follower.caller()));
    console.drain();
    const std::vector<Row> rows = rows_of(camera, rom);
    const std::string holds = holding(rom);
    if (arguments.json) {
        say_json(console, arguments, map_json(camera, holds, rows));
        return kExitOk;
    }
    Display& display = console.display();
    display.say(format("ROM of %u bytes: ", part_bytes(camera)) + holds);
    display.say("REGION     ADDRESS     BYTES    USED  AN UPGRADE");
    for (const Row& row : rows) {
        display.say(padded(row.name, 11) + padded(format("0x%04X", row.range.address), 9) +
                    format("%8u", row.range.bytes) +
                    (row.name == "beyond" ? "       ?" : format("%8zu", row.used)) + "  " +
                    row.upgrade);
    }
    return kExitOk;
}

} // namespace

void add_map_command(Command& parent, Arguments& arguments)
{
    Command& command = add_command(parent, "map", "Show what lies where in the ROM", "");
    add_all(command, arguments);
    set_run(command, arguments, run_map);
}

} // namespace tool
