// SPDX-License-Identifier: Apache-2.0
// Fingerprint-reader boards.
#include "features/feature.h"
#include "rom/programming.h"
#include "session/follower.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/access.h>
#include <nyxus/fingerprint.h>

namespace tool {

namespace {

constexpr uint32_t kWindowStart = 0x2400;
constexpr uint32_t kWindowEnd = 0x8000;
constexpr uint32_t kWindowBytes = kWindowEnd - kWindowStart;

struct FingerprintOptions {
    uint32_t address = 0;
    uint32_t length = 0;
    std::string file;
    std::vector<uint8_t> bytes;
};
using SharedFingerprint = std::shared_ptr<FingerprintOptions>;

/// What cannot be read back.
struct Order {
    const char* name;
    const char* summary;
    int32_t (*run)(NyDevice*, int32_t);
    const char* title;
    const char* done; ///< nullptr: it is switched on or off, as the command line says
    Cost cost;
};

template <auto kRun>
int32_t plain(NyDevice* device, int32_t /*on*/)
{
    return kRun(device);
}

struct Question {
    const char* name;
    const char* summary;
    int32_t (*get)(NyDevice*, uint8_t*);
};

// clang-format off
const Order orders[] = {
//   name         summary                              function                       title     what has been done     cost
    {"reset",     "Reset and set up the sensor",       plain<SG_SetSensorResetInit>,  "sensor", "reset and set up",    {1}},
    {"reset-pin", "Pulse the sensor's reset pin",      plain<SG_SetSensorResetPin>,   "sensor", "reset by its pin",    {1}},
    {"trigger",   "Trigger a snapshot",                plain<SG_SnapshotModeTrigger>, "sensor", "snapshot triggered",  {1}},
};
const Order modes[] = {
    {"stream",    "Leave the snapshot mode",           plain<SG_StreamModeEnable>,    "sensor", "streams",             {2, 0.1}},
    {"snapshot",  "Enter the snapshot mode",           plain<SG_SnapshotModeEnable>,  "sensor", "waits for a trigger", {1}},
};
const Order switches[] = {
    {"power",     "Switch the automatic power",        SG_SetAutoPower,               "power",  nullptr,               register_write(1)},
    {"led",       "Switch the illumination",           SG_LedControl,                 "led",    nullptr,               register_write(1)},
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
    require_eeprom(session);
    const auto change = [&] {
        Follower follower(session.console);
        const engine::Report report =
            engine::write_window(session.camera, options.address, options.bytes, engine::Backups(),
                                 follower.caller(), !session.arguments.skip_backup);
        session.console.drain();
        if (!report.status)
            throw failure_of(report);
        return 0;
    };
    session.order(
        "eeprom", format("%zu bytes written at 0x%04X", options.bytes.size(), options.address),
        "writing the EEPROM", change, backup_cost(session) + window_cost(session.camera, options));
}

void add_order(Command& parent, Arguments& arguments, const Order& row)
{
    const auto state = std::make_shared<std::string>();
    Command& command = add_command(parent, row.name, row.summary, row.done != nullptr ? "" : "on");
    if (row.done == nullptr)
        add_choice(command, "STATE", state.get(), {"on", "off"}, "on or off").required();
    set_writing_action(command, arguments, [&row, state](Session& session) {
        session.order(
            row.title, row.done != nullptr ? Value(row.done) : on_or_off(*state == "on"),
            row.summary, [&] { return row.run(session.device(), *state == "on"); }, row.cost);
    });
}

void add_question(Command& sg, Arguments& arguments, const Question& row)
{
    Command& command = add_command(sg, row.name, row.summary, "");
    set_action(command, arguments, [&row](Session& session) {
        uint8_t value = 0;
        session.check(row.summary, row.get(session.device(), &value));
        session.print({{row.name, value}});
    });
}

void add_window(Command& sg, Arguments& arguments, const SharedFingerprint& options)
{
    Command& read = add_command(sg, "read", "Read the EEPROM window", "0x2400 64");
    add_address(read, &options->address, kWindowStart, kWindowEnd - 1);
    add_number(read, "LENGTH", &options->length, 1, kWindowBytes, "Bytes").required();
    set_action(
        read, arguments, [options](Session& session) { run_read(session, *options); },
        [options] { check_window(options->address, options->length); });

    Command& write = add_command(sg, "write", "Write the EEPROM window", "0x2400 keys.bin");
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
    Command& sg = add_command(app, "sg", "Fingerprint-reader boards", "led on");
    sg.needing_command();
    for (const Order& row : orders)
        add_order(sg, arguments, row);
    Command& mode = add_command(sg, "mode", "How the sensor works", "snapshot");
    mode.needing_command();
    for (const Order& row : modes)
        add_order(mode, arguments, row);
    for (const Order& row : switches)
        add_order(sg, arguments, row);
    for (const Question& row : questions)
        add_question(sg, arguments, row);
    add_window(sg, arguments, options);
}

} // namespace tool
