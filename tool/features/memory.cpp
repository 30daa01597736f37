// SPDX-License-Identifier: Apache-2.0
// The memories behind the controller: its registers, the sensor's, the processor's data, and those
// of the device on the I2C bus.
#include "features/setting.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/memory.h>
#include <nyxus/peripheral.h>

namespace tool {

namespace {

struct Memory {
    const char* name;
    const char* summary;
    const char* what; ///< in messages
    const char* read_name;
    const char* write_name;
    uint32_t last;
    uint32_t end; ///< no byte from here on
    int digits;   ///< of an address
    uint32_t most_bytes;
    int32_t (*read)(NyDevice*, uint32_t, uint32_t, uint8_t*);
    int32_t (*write)(NyDevice*, uint32_t, uint32_t, const uint8_t*);
    Cost start;     ///< of a transfer, beside that of its bytes
    bool read_back; ///< a register need not read as it was written, and may restart the controller
};

int32_t read_i2c(NyDevice* device, uint32_t address, uint32_t length, uint8_t* bytes)
{
    return XU_I2cGet(device, static_cast<uint16_t>(address), static_cast<uint8_t>(length), bytes);
}

int32_t write_i2c(NyDevice* device, uint32_t address, uint32_t length, const uint8_t* bytes)
{
    return XU_I2cSet(device, static_cast<uint16_t>(address), static_cast<uint8_t>(length), bytes);
}

/// A transfer over I2C, even one that reads, is started by writing registers of the controller;
/// behind its 8 bytes lie the controller's own.
const Cost kI2cStart = register_write(4);

// clang-format off
const Memory memories[] = {
//   name      summary                                     in messages             read    write    last    end      digits most  functions                     cost       read back
    {"i2c",    "Talk to a device on the camera's I2C bus", "over I2C",             "get",  "set",   0x1FF,  0x207,   3,     8,   read_i2c,      write_i2c,      kI2cStart, true},
    {"reg",    "Read or write controller registers",      "controller registers",  "read", "write", 0xFFFF, 0x10000, 4,     255, XuRegRead,     XuRegWrite,     {},        false},
    {"sensor", "Read or write sensor registers",          "sensor registers",      "read", "write", 0xFFFF, 0x10000, 4,     255, XuSensorRead,  XuSensorWrite,  {},        false},
    {"mcu",    "Read or write the controller's data",     "the controller's data", "read", "write", 0xFF,   0x100,   4,     255, XuMcuDataRead, XuMcuDataWrite, {},        false},
};
// clang-format on

struct MemoryOptions {
    uint32_t address = 0;
    uint32_t length = 1;
    std::vector<uint32_t> bytes;
};

void check_range(const Memory& memory, uint32_t address, size_t length)
{
    if (address + length > memory.end) {
        throw Failure(kExitUsage,
                      format("%zu bytes from 0x%04X reach beyond the end of ", length, address) +
                          memory.what + format(" (0x0000 to 0x%04X)", memory.last));
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
    session.print(lines_of(bytes, options.address, memory.digits));
}

void run_write(Session& session, const Memory& memory, const MemoryOptions& options)
{
    const std::vector<uint8_t> bytes = to_bytes(options.bytes);
    const auto length = static_cast<uint32_t>(bytes.size());
    const Cost read = memory.start + register_read(length);
    const auto write = [&] {
        return memory.write(session.device(), options.address, length, bytes.data());
    };
    session.make(
        {.name = format("0x%0*X", memory.digits, options.address),
         .read = [&] { return read_bytes(session, memory, options.address, length); },
         .wanted = bytes,
         .doing = std::string("writing ") + memory.what,
         .write = write,
         .cost = register_write(length) + memory.start + (memory.read_back ? read + read : Cost{}),
         .read_back = memory.read_back,
         .reading_writes = memory.start.transfers != 0});
}

Command& add_memory(Command& app, Arguments& arguments, const Memory& memory)
{
    const auto options = std::make_shared<MemoryOptions>();
    Command& command =
        add_command(app, memory.name, memory.summary, std::string(memory.read_name) + " 0x20 4");
    command.needing_command();

    Command& read = add_command(command, memory.read_name, "Read bytes", "0x20 4");
    add_address(read, &options->address, 0, memory.last);
    add_number(read, "LENGTH", &options->length, 1, memory.most_bytes, "Bytes");
    set_action(
        read, arguments,
        [&memory, options](Session& session) { run_read(session, memory, *options); },
        [&memory, options] { check_range(memory, options->address, options->length); });

    Command& write = add_command(command, memory.write_name, "Write bytes", "0x20 0x12 0x34");
    add_address(write, &options->address, 0, memory.last);
    write.number("BYTES", &options->bytes, kByteRange, format("1 to %u bytes", memory.most_bytes))
        .required()
        .times(1, static_cast<int>(memory.most_bytes));
    set_writing_action(
        write, arguments,
        [&memory, options](Session& session) { run_write(session, memory, *options); },
        [&memory, options] { check_range(memory, options->address, options->bytes.size()); });
    return command;
}

} // namespace

void add_memory_commands(Command& app, Arguments& arguments)
{
    for (const Memory& memory : memories) {
        Command& command = add_memory(app, arguments, memory);
        if (memory.write == write_i2c) {
            add_setting(command, arguments,
                        {.name = "config",
                         .summary = "Choose the device, or ask",
                         .example = "0x60",
                         .title = "i2c_configuration",
                         .what = "the I2C configuration",
                         .read = read_number<XU_I2cConfigGet>,
                         .write = write_number<XU_I2cConfigSet>,
                         .cost = register_write(2) + register_read(2),
                         .form = {.argument = "BYTE",
                                  .help = "Device address in 8-bit form, bit 0 = addressing mode",
                                  .is_hex = true}});
        }
    }
}

} // namespace tool
