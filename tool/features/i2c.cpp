// SPDX-License-Identifier: Apache-2.0
#include "features/setting.h"
#include "terminal/text.h"

#include <nyxus/peripheral.h>

namespace tool {

namespace {

constexpr uint32_t kLastRegister = 0x1FF;
/// Behind the bytes of a transfer lie the controller's own I2C registers.
constexpr uint32_t kMostI2cBytes = 8;
constexpr uint32_t kTransferRegisters = 4;

struct I2cOptions {
    uint32_t address = 0;
    uint32_t length = 1;
    std::vector<uint32_t> bytes;
};

std::vector<uint8_t> read_registers(Session& session, const I2cOptions& options, size_t length)
{
    std::vector<uint8_t> bytes(length);
    session.check("reading over I2C",
                  XU_I2cGet(session.device(), static_cast<uint16_t>(options.address),
                            static_cast<uint8_t>(length), bytes.data()));
    return bytes;
}

std::string name_of(const I2cOptions& options)
{
    return format("0x%03X", options.address);
}

void run_get(Session& session, const I2cOptions& options)
{
    session.print({{name_of(options), read_registers(session, options, options.length)}});
}

void run_set(Session& session, const I2cOptions& options)
{
    const std::vector<uint8_t> bytes = to_bytes(options.bytes);
    // A transfer over I2C, even one that reads, is started by writing registers of the controller.
    const Cost start = register_write(kTransferRegisters);
    const Cost read = start + register_read(bytes.size());
    const auto write = [&] {
        return XU_I2cSet(session.device(), static_cast<uint16_t>(options.address),
                         static_cast<uint8_t>(bytes.size()), bytes.data());
    };
    session.make({.name = name_of(options),
                  .read = [&] { return read_registers(session, options, bytes.size()); },
                  .wanted = bytes,
                  .doing = "writing over I2C",
                  .write = write,
                  .cost = read + register_write(bytes.size()) + start + read,
                  .reading_writes = true});
}

} // namespace

void add_i2c_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<I2cOptions>();
    Command& command =
        add_command(app, "i2c", "Talk to a device on the camera's I2C bus", "get 0x10 4");
    command.needing_command();

    Command& get = add_command(command, "get", "Read registers of the configured device", "0x10 4");
    add_address(get, &options->address, 0, kLastRegister);
    add_number(get, "LENGTH", &options->length, 1, kMostI2cBytes, "Bytes");
    set_action(get, arguments, [options](Session& session) { run_get(session, *options); });

    Command& set =
        add_command(command, "set", "Write registers of the configured device", "0x10 0x12 0x34");
    add_address(set, &options->address, 0, kLastRegister);
    set.number("BYTES", &options->bytes, kByteRange, "1 to 8 bytes")
        .required()
        .times(1, kMostI2cBytes);
    set_writing_action(set, arguments, [options](Session& session) { run_set(session, *options); });

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

} // namespace tool
