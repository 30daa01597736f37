// SPDX-License-Identifier: Apache-2.0
// The memories behind the controller: its registers, the sensor's, the processor's data.
#include "features/feature.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/memory.h>

namespace tool {

namespace {

using Access = int32_t (*)(NyDevice*, uint32_t, uint32_t, uint8_t*);
using ConstAccess = int32_t (*)(NyDevice*, uint32_t, uint32_t, const uint8_t*);

struct Memory {
    const char* name;
    const char* what;
    uint32_t size;
    Access read;
    ConstAccess write;
};

// clang-format off
constexpr Memory memories[] = {
//   name      what it is                 bytes    read           write
    {"reg",    "controller registers",    0x10000, XuRegRead,     XuRegWrite},
    {"sensor", "sensor registers",        0x10000, XuSensorRead,  XuSensorWrite},
    {"mcu",    "the controller's data",   0x100,   XuMcuDataRead, XuMcuDataWrite},
};
// clang-format on

/// One command moves at most so much; no register block is larger.
constexpr uint32_t kMostBytes = 0xFF;

struct MemoryOptions {
    uint32_t address = 0;
    uint32_t length = 1;
    std::vector<uint32_t> bytes;
};

void check_range(const Memory& memory, uint32_t address, size_t length)
{
    if (address + length > memory.size) {
        throw Failure(kExitUsage,
                      format("%zu bytes from 0x%04X reach beyond the end of ", length, address) +
                          memory.what + format(" (0x0000 to 0x%04X)", memory.size - 1));
    }
}

std::vector<uint8_t> read_bytes(Session& session, const Memory& memory, uint32_t address,
                                uint32_t length)
{
    std::vector<uint8_t> bytes(length);
    session.check(std::string("reading ") + memory.what,
                  memory.read(session.device(), address, length, bytes.data()));
    return bytes;
}

void run_read(Session& session, const Memory& memory, const MemoryOptions& options)
{
    const std::vector<uint8_t> bytes = read_bytes(session, memory, options.address, options.length);
    session.print(lines_of(bytes, options.address));
}

void run_write(Session& session, const Memory& memory, const MemoryOptions& options)
{
    const std::vector<uint8_t> bytes = to_bytes(options.bytes);
    const auto length = static_cast<uint32_t>(bytes.size());
    const auto write = [&] {
        return memory.write(session.device(), options.address, length, bytes.data());
    };
    // Not read back: a register need not read as it was written, and may restart the controller.
    session.make({.name = format("0x%04X", options.address),
                  .read = [&] { return read_bytes(session, memory, options.address, length); },
                  .wanted = bytes,
                  .doing = std::string("writing ") + memory.what,
                  .write = write,
                  .cost = register_write(length),
                  .read_back = false});
}

void add_memory(Command& app, Arguments& arguments, const Memory& memory)
{
    const auto options = std::make_shared<MemoryOptions>();
    Command& command =
        add_command(app, memory.name, std::string("Read or write ") + memory.what, "read 0x20 4");
    command.needing_command();

    Command& read = add_command(command, "read", "Read bytes", "0x20 4");
    add_address(read, &options->address, 0, memory.size - 1);
    add_number(read, "LENGTH", &options->length, 1, kMostBytes, "Bytes");
    set_action(
        read, arguments,
        [&memory, options](Session& session) { run_read(session, memory, *options); },
        [&memory, options] { check_range(memory, options->address, options->length); });

    Command& write = add_command(command, "write", "Write bytes", "0x20 0x12 0x34");
    add_address(write, &options->address, 0, memory.size - 1);
    write.number("BYTES", &options->bytes, kByteRange, "1 to 255 bytes")
        .required()
        .times(1, kMostBytes);
    set_writing_action(
        write, arguments,
        [&memory, options](Session& session) { run_write(session, memory, *options); },
        [&memory, options] { check_range(memory, options->address, options->bytes.size()); });
}

} // namespace

void add_memory_commands(Command& app, Arguments& arguments)
{
    for (const Memory& memory : memories)
        add_memory(app, arguments, memory);
}

} // namespace tool
