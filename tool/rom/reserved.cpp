// SPDX-License-Identifier: Apache-2.0
// The reserved area of the SPI flash.
#include "features/feature.h"
#include "rom/programming.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/rom.h>

namespace tool {

namespace {

constexpr uint16_t kAreaBytes = 256;

void require_flash(const Session& session)
{
    if (!session.camera.has_spi_flash()) {
        throw Failure(kExitNotSupported,
                      session.camera.name() + " has no SPI flash, and so no reserved area");
    }
}

std::vector<uint8_t> read_area(Session& session, uint16_t size)
{
    std::vector<uint8_t> bytes(size);
    session.check("reading the reserved area",
                  XU_SpiGetReservedArea(session.device(), size, bytes.data()));
    return bytes;
}

void run_read(Session& session, const std::string& file)
{
    require_flash(session);
    const std::vector<uint8_t> bytes = read_area(session, kAreaBytes);
    session.console.drain();
    if (file == "-")
        return session.console.display().pass_on(bytes);
    write_file(file, bytes);
    session.print({{"reserved", format("%zu bytes read", bytes.size())}});
}

void run_write(Session& session, const std::vector<uint8_t>& bytes)
{
    require_flash(session);
    const auto size = static_cast<uint16_t>(bytes.size());
    std::vector<uint8_t> after(size);
    const auto write_and_compare = [&]() -> engine::Status {
        int32_t rv = XU_SpiSetReservedArea(session.device(), size, bytes.data());
        if (rv < 0)
            return engine::library_failure("writing the reserved area", rv);
        rv = XU_SpiGetReservedArea(session.device(), size, after.data());
        if (rv < 0)
            return engine::library_failure("reading the reserved area", rv);
        if (after == bytes)
            return {};
        return {engine::Reason::kMismatch,
                "the reserved area does not hold what was written: it is not erased first, so bits "
                "that are 0 stay 0"};
    };
    Camera& camera = session.camera;
    const auto change = [&] {
        change_rom(session.console, session.arguments, camera, "reserved", write_and_compare);
        return 0;
    };
    session.order("reserved", format("%u bytes written, not erased before", size),
                  "writing the reserved area", change,
                  backup_cost(session) + rom_query(camera) + rom_unlock(camera) +
                      rom_write(camera, size) + rom_lock(camera) + rom_query(camera) +
                      rom_read(camera, size),
                  kFlashTime);
}

} // namespace

void add_reserved_command(Command& app, Arguments& arguments)
{
    const auto file = std::make_shared<std::string>();
    const auto bytes = std::make_shared<std::vector<uint8_t>>();
    Command& command = add_command(
        app, "reserved", "Read or write the flash's reserved area, which an upgrade keeps",
        "read notes.bin");
    command.needing_command();
    Command& read = add_command(command, "read", "Copy the area to a file", "notes.bin");
    add_file(read, file.get(), "File to write; - is standard output");
    set_action(
        read, arguments, [file](Session& session) { run_read(session, *file); },
        [file] {
            if (*file != "-")
                refuse_impossible_target(*file);
        });

    Command& write = add_command(
        command, "write", "Program the area; it is not erased first, so only 1 bits become 0",
        "notes.bin");
    add_file(write, file.get(), "At most 256 bytes");
    set_writing_action(
        write, arguments, [bytes](Session& session) { run_write(session, *bytes); },
        [file, bytes] { *bytes = read_file(*file, kAreaBytes, "the reserved area"); });
    add_no_backup(write, arguments);
}

} // namespace tool
