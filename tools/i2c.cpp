// SPDX-License-Identifier: Apache-2.0
#include "feature.h"
#include "text.h"

#include <nyxus/peripheral.h>

namespace tool {

namespace {

constexpr uint32_t kLastRegister = 0x1FF;
/// Behind the bytes of a transfer lie the controller's own I2C registers.
constexpr uint32_t kMostBytes = 8;

struct Options {
    uint32_t address = 0;
    uint32_t length = 1;
    std::vector<uint32_t> bytes;
    std::optional<uint32_t> config;
};

std::vector<uint8_t> read_registers(Session& session, const Options& options, size_t length)
{
    std::vector<uint8_t> bytes(length);
    session.check("reading over I2C",
                  XU_I2cGet(session.device(), static_cast<uint16_t>(options.address),
                            static_cast<uint8_t>(length), bytes.data()));
    return bytes;
}

std::string name_of(const Options& options)
{
    return format("0x%03X", options.address);
}

void run_get(Session& session, const Options& options)
{
    session.print({{name_of(options), read_registers(session, options, options.length)}});
}

void run_set(Session& session, const Options& options)
{
    const std::vector<uint8_t> bytes = to_bytes(options.bytes);
    const std::vector<uint8_t> before = read_registers(session, options, bytes.size());
    session.check("writing over I2C",
                  XU_I2cSet(session.device(), static_cast<uint16_t>(options.address),
                            static_cast<uint8_t>(bytes.size()), bytes.data()));
    session.print_change(name_of(options), before, read_registers(session, options, bytes.size()));
}

std::string config_of(Session& session)
{
    uint8_t config = 0;
    session.check("reading the I2C configuration", XU_I2cConfigGet(session.device(), &config));
    return format("0x%02X", config);
}

void run_config(Session& session, const Options& options)
{
    const std::string before = config_of(session);
    if (!options.config)
        return session.print({{"i2c_configuration", before}});
    const auto config = static_cast<uint8_t>(*options.config);
    session.check("setting the I2C configuration", XU_I2cConfigSet(session.device(), &config));
    session.print_change("i2c_configuration", before, config_of(session));
}

} // namespace

void add_i2c_command(CLI::App& app, Arguments& arguments)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command =
        add_feature(app, "i2c", "Talk to a device on the camera's I2C bus", "nyxus i2c get 0x10 4");
    command->require_subcommand(1);

    CLI::App* get = add_feature(*command, "get", "Read registers of the configured device",
                                "nyxus i2c get 0x10 4");
    add_address(get, options->address, 0, kLastRegister);
    add_number(get, "LENGTH", options->length, 1, kMostBytes, "Bytes");
    set_action(get, arguments, [options](Session& session) { run_get(session, *options); });

    CLI::App* set = add_feature(*command, "set", "Write registers of the configured device",
                                "nyxus i2c set 0x10 0x12 0x34");
    add_address(set, options->address, 0, kLastRegister);
    add_bytes(set, "BYTES", options->bytes, "1 to 8 bytes")
        ->required()
        ->expected(1, static_cast<int>(kMostBytes));
    set_action(set, arguments, [options](Session& session) { run_set(session, *options); });

    CLI::App* config =
        add_feature(*command, "config", "Choose the device, or ask", "nyxus i2c config 0x60");
    config
        ->add_option("BYTE", options->config,
                     "Device address in 8-bit form, bit 0 = addressing mode (0 to 255)")
        ->type_name("")
        ->check(CLI::Range(0U, 0xFFU).description(""));
    set_action(config, arguments, [options](Session& session) { run_config(session, *options); });
}

} // namespace tool
