// SPDX-License-Identifier: Apache-2.0
// Fingerprint-reader boards.
#include "failure.h"
#include "feature.h"
#include "programming.h"
#include "text.h"
#include "whole_file.h"

#include <nyxus/access.h>
#include <nyxus/fingerprint.h>

namespace tool {

namespace {

constexpr uint32_t kWindowStart = 0x2400;
constexpr uint32_t kWindowEnd = 0x8000;
constexpr uint32_t kWindowBytes = kWindowEnd - kWindowStart;

struct FingerprintOptions {
    std::string state;
    uint32_t address = 0;
    uint32_t length = 0;
    std::string file;
    std::vector<uint8_t> bytes;
};
using SharedFingerprint = std::shared_ptr<FingerprintOptions>;

/// Orders that cannot be read back.
struct Order {
    const char* name;
    const char* summary;
    int32_t (*run)(NyDevice*);
    const char* done;
    Cost cost;
};

struct SwitchOrder {
    const char* name;
    const char* summary;
    int32_t (*set)(NyDevice*, int32_t);
};

struct Question {
    const char* name;
    const char* summary;
    int32_t (*get)(NyDevice*, uint8_t*);
};

// clang-format off
constexpr Order orders[] = {
//   name         summary                              function                what has been done     cost
    {"reset",     "Reset and set up the sensor",       SG_SetSensorResetInit,  "reset and set up",    {1}},
    {"reset-pin", "Pulse the sensor's reset pin",      SG_SetSensorResetPin,   "reset by its pin",    {1}},
    {"trigger",   "Trigger a snapshot",                SG_SnapshotModeTrigger, "snapshot triggered",  {1}},
};
constexpr Order modes[] = {
    {"stream",    "Leave the snapshot mode",           SG_StreamModeEnable,    "streams",             {2, 0.1}},
    {"snapshot",  "Enter the snapshot mode",           SG_SnapshotModeEnable,  "waits for a trigger", {1}},
};
constexpr SwitchOrder switch_orders[] = {
    {"power",     "Switch the automatic power",        SG_SetAutoPower},
    {"led",       "Switch the illumination",           SG_LedControl},
};
constexpr Question questions[] = {
    {"touch",     "Show the touch state",              SG_TouchStatus},
    {"speed",     "Show the USB-speed flag",           SG_UsbSpeed},
};
// clang-format on

void require_eeprom(const Session& session)
{
    if (session.camera.has_spi_flash()) {
        throw Failure(
            kExitNotSupported,
            session.camera.name() + " has an SPI flash; the fingerprint boards have an EEPROM");
    }
}

void check_window(uint32_t address, size_t length)
{
    if (address < kWindowStart || length == 0 || address + length > kWindowEnd) {
        throw Failure(kExitUsage,
                      format("%zu bytes from 0x%04X are not in the window 0x%04X to 0x%04X", length,
                             address, kWindowStart, kWindowEnd - 1));
    }
}

std::vector<uint8_t> read_window(Session& session, uint32_t address, size_t length)
{
    std::vector<uint8_t> bytes(length);
    session.check("reading the EEPROM",
                  SG_EepromRead(session.device(), static_cast<uint16_t>(address),
                                static_cast<uint16_t>(length), bytes.data()));
    return bytes;
}

void run_read(Session& session, const FingerprintOptions& options)
{
    require_eeprom(session);
    const std::vector<uint8_t> bytes = read_window(session, options.address, options.length);
    session.print(lines_of(bytes, options.address));
}

/// The library writes each page of the window by itself and reads it by the 512-byte path.
Cost window_cost(const Camera& camera, const FingerprintOptions& options)
{
    constexpr uint32_t kPageBytes = 32;
    constexpr uint32_t kReadBytes = 512;
    Cost cost = pin_change(0) + pin_change(0) + rom_unlock(camera) + rom_lock(camera);
    for (size_t done = 0; done < options.bytes.size();) {
        const size_t page = kPageBytes - (options.address + done) % kPageBytes;
        const size_t piece = std::min(page, options.bytes.size() - done);
        cost += rom_write(camera, piece);
        done += piece;
    }
    cost.transfers +=
        2 * static_cast<uint32_t>((options.bytes.size() + kReadBytes - 1) / kReadBytes);
    return cost;
}

void run_write(Session& session, const FingerprintOptions& options)
{
    constexpr int32_t kWriteCycle_ms = 5;
    require_eeprom(session);
    XU_SetWriteCycleTime(kWriteCycle_ms);
    const auto address = static_cast<uint16_t>(options.address);
    const auto size = static_cast<uint16_t>(options.bytes.size());
    std::vector<uint8_t> after(size);
    const auto write_and_compare = [&]() -> engine::Status {
        int32_t rv = SG_EepromWrite(session.device(), address, size, options.bytes.data());
        if (rv < 0)
            return engine::library_failure("writing the EEPROM", rv);
        rv = SG_EepromRead(session.device(), address, size, after.data());
        if (rv < 0)
            return engine::library_failure("reading the EEPROM", rv);
        if (after == options.bytes)
            return {};
        return {engine::Reason::kMismatch,
                "the EEPROM does not hold what was written; is it protected?"};
    };
    const auto change = [&] {
        change_rom(session.console, session.arguments, session.camera, "sg", write_and_compare);
        return 0;
    };
    session.order(
        "eeprom", format("%zu bytes written at 0x%04X", options.bytes.size(), options.address),
        "writing the EEPROM", change, backup_cost(session) + window_cost(session.camera, options));
}

void add_order(Command& parent, Arguments& arguments, const Order& row, const std::string& call)
{
    Command& command = add_command(parent, row.name, row.summary, call + row.name);
    set_writing_action(command, arguments, [&row](Session& session) {
        session.order(
            "sensor", row.done, row.summary, [&] { return row.run(session.device()); }, row.cost);
    });
}

void add_switch_order(Command& sg, Arguments& arguments, const SwitchOrder& row,
                      const SharedFingerprint& options)
{
    Command& command =
        add_command(sg, row.name, row.summary, std::string("nyxus sg ") + row.name + " on");
    add_choice(command, "STATE", &options->state, {"on", "off"}, "on or off").required();
    set_writing_action(command, arguments, [&row, options](Session& session) {
        session.order(
            row.name, options->state, row.summary,
            [&] { return row.set(session.device(), options->state == "on"); }, register_write(1));
    });
}

void add_question(Command& sg, Arguments& arguments, const Question& row)
{
    Command& command = add_command(sg, row.name, row.summary, std::string("nyxus sg ") + row.name);
    set_action(command, arguments, [&row](Session& session) {
        uint8_t value = 0;
        session.check(row.summary, row.get(session.device(), &value));
        session.print({{row.name, value}});
    });
}

void add_window(Command& sg, Arguments& arguments, const SharedFingerprint& options)
{
    Command& read = add_command(sg, "read", "Read the EEPROM window", "nyxus sg read 0x2400 64");
    add_address(read, &options->address, kWindowStart, kWindowEnd - 1);
    add_number(read, "LENGTH", &options->length, 1, kWindowBytes, "Bytes").required();
    set_action(
        read, arguments, [options](Session& session) { run_read(session, *options); },
        [options] { check_window(options->address, options->length); });

    Command& write =
        add_command(sg, "write", "Write the EEPROM window", "nyxus sg write 0x2400 keys.bin");
    add_address(write, &options->address, kWindowStart, kWindowEnd - 1);
    add_file(write, &options->file, "File to write there");
    set_writing_action(
        write, arguments, [options](Session& session) { run_write(session, *options); },
        [options] {
            options->bytes = read_file(options->file, kWindowBytes, "the window");
            check_window(options->address, options->bytes.size());
        });
    add_no_backup(write, arguments);
}

} // namespace

void add_fingerprint_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<FingerprintOptions>();
    Command& sg = add_command(app, "sg", "Fingerprint-reader boards", "nyxus sg led on");
    sg.needing_command();
    for (const Order& row : orders)
        add_order(sg, arguments, row, "nyxus sg ");
    Command& mode = add_command(sg, "mode", "How the sensor works", "nyxus sg mode snapshot");
    mode.needing_command();
    for (const Order& row : modes)
        add_order(mode, arguments, row, "nyxus sg mode ");
    for (const SwitchOrder& row : switch_orders)
        add_switch_order(sg, arguments, row, options);
    for (const Question& row : questions)
        add_question(sg, arguments, row);
    add_window(sg, arguments, options);
}

} // namespace tool
