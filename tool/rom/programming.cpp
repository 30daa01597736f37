// SPDX-License-Identifier: Apache-2.0
#include "rom/programming.h"

#include "session/dry_run.h"
#include "session/follower.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>

namespace tool {

namespace {

std::string line_of(const engine::Step& step)
{
    return std::string("\n  ") + to_text(step.action) +
           (step.size == 0 ? "" : format(": %u bytes from 0x%04X", step.size, step.address));
}

std::string lines_of(const char* title, const std::vector<engine::Part>& parts)
{
    std::string text;
    for (const engine::Part& part : parts)
        text += std::string("\n") + title + ": " + to_text(part);
    return text;
}

Value::List parts_json(const std::vector<engine::Part>& parts)
{
    Value::List list;
    for (const engine::Part& part : parts) {
        Members members = {{"part", part.name}, {"address", part.address}, {"bytes", part.size}};
        if (*part.why != '\0')
            members.push_back({"why", part.why});
        list.emplace_back(members);
    }
    return list;
}

Members step_json(const engine::Step& step)
{
    if (step.size == 0)
        return {{"step", to_text(step.action)}};
    return {{"step", to_text(step.action)}, {"address", step.address}, {"bytes", step.size}};
}

} // namespace

static engine::Firmware load_firmware(const Sources& sources)
{
    if (sources.file != "-")
        return value_of(engine::load_pinned(sources.file, sources.sha256));
    auto firmware = value_of(engine::Firmware::from(
        read_file("-", NYXUS_FW_BIN_CAPACITY, "a firmware image"), "standard input"));
    if (!sources.sha256.empty() && sources.sha256 != firmware.digest())
        throw Failure(kExitImageRefused, "standard input has another digest: " + firmware.digest());
    return firmware;
}

uint64_t image_bytes(const engine::Images& images)
{
    return images.firmware.bytes().size() + (images.mfi ? images.mfi->bytes().size() : 0);
}

void add_programming(Command& command, Arguments& arguments, Programming& how)
{
    add_choice(command, "--eeprom", &how.eeprom_kib, {"4", "8", "16", "32"},
               "The ROM is an EEPROM of 4, 8, 16 or 32 KiB; needed when it is blank")
        .shown_as("KIB");
    add_choice(
        command, "--keep", &how.keep, {"first64k", "whole"},
        "What of a flash is kept beside the image: of its first 64 KiB, which is all that the "
        "controller uses, or of the whole part [first64k]")
        .shown_as("AREA");
    add_choice(command, "--discard", &how.discard, {"mfi", "reserved", "mfi,reserved"},
               "Do not keep a flash's MFi image, or its reserved area")
        .shown_as("PARTS");
    add_no_backup(command, arguments);
    command.flag("--no-verify", &how.skip_verify, "Do not read back and compare");
    command.flag("--reset", &how.restart, "Restart the camera afterwards and show its new version");
    add_dry_run(command, arguments);
}

Offer load_images(const Sources& sources)
{
    if (sources.file.empty() == sources.manifest.empty())
        throw Failure(kExitUsage, "name a firmware image or a --manifest, one of them");
    if (!sources.mfi_serial.empty() && sources.mfi_file.empty() && sources.manifest.empty())
        throw Failure(kExitUsage, "--mfi-serial needs an MFi image to write it into: see --mfi");
    const auto folders = engine::TrustFolders::usual();
    const engine::Trust trust = value_of(find_trust(folders));
    if (sources.manifest.empty()) {
        require(trust.check_bare_image(sources.file));
        engine::Images images{load_firmware(sources)};
        if (!sources.mfi_file.empty())
            images.mfi = value_of(engine::Mfi::load(sources.mfi_file));
        return {{{"", std::move(images)}}};
    }
    engine::AcceptedManifest manifest = value_of(load_manifest(sources.manifest, trust));
    const engine::Status newest = check_newest(manifest, folders);
    if (!newest && !(sources.allow_downgrade && newest.reason() == engine::Reason::kDowngrade))
        throw failure_of(newest, advice_for(newest.reason()));
    std::vector<engine::ChipImages> images = value_of(engine::load_images(manifest));
    return {std::move(images), std::move(manifest)};
}

std::string text_of(const engine::AcceptedManifest& manifest)
{
    const std::string signer = manifest.signature ? "signed by " + manifest.signature->key + " (" +
                                                        manifest.signature->comment + ")"
                                                  : "not signed: " + manifest.unsigned_because;
    return in_quotes(manifest.product) + " " + manifest.version + ", " + signer;
}

void take(Console& console, const Arguments& arguments, const Offer& offer)
{
    if (!offer.manifest)
        return;
    require(remember(*offer.manifest, engine::TrustFolders::usual()));
    if (!arguments.quiet && (!arguments.json || console.display().tells_events()))
        console.display().note("manifest: " + text_of(*offer.manifest));
}

engine::Images choose_images(const Sources& sources, const Offer& offer, const Camera& camera)
{
    const auto found = engine::choose_images(offer.images, camera, sources.allow_downgrade);
    if (!found)
        throw failure_of(found.status(), advice_for(found.status().reason()));
    engine::Images images = (*found)->images;
    if (!sources.mfi_serial.empty() && !images.mfi)
        throw Failure(kExitUsage, "--mfi-serial needs an MFi image to write it into");
    if (!sources.mfi_serial.empty())
        require(images.mfi->set_serial(sources.mfi_serial));
    require(check_images(camera, images));
    return images;
}

engine::UpgradeOptions upgrade_options(const Arguments& arguments, const Programming& how)
{
    return {.always = how.always,
            .backup = !arguments.skip_backup,
            .verify = !how.skip_verify,
            .wait_s = arguments.return_wait_s(),
            .keep = how.keep == to_text(engine::Keep::kWhole) ? engine::Keep::kWhole
                                                              : engine::Keep::kFirst64K,
            .discard = {.mfi = how.discard.starts_with("mfi"),
                        .reserved = how.discard.ends_with("reserved")},
            .operation = how.operation};
}

void describe(Result& result, const engine::Images& images)
{
    result.sha256 = images.firmware.digest();
    result.mfi_sha256 = images.mfi ? images.mfi->digest() : "";
    result.version = images.version();
}

std::string what_is_done(const Programming& how, const engine::Images& images, const Result& result)
{
    return format("%zu bytes of firmware", images.firmware.bytes().size()) +
           (images.mfi ? format(", %zu bytes of MFi image", images.mfi->bytes().size()) : "") +
           (how.skip_verify ? ", not read back, " : ", read back and equal, ") +
           engine::version_change(result.report.version_before, result.version);
}

std::vector<uint8_t> read_before(Console& console, Camera& camera,
                                 const engine::UpgradeOptions& options)
{
    const uint32_t size = bytes_before(camera, options);
    if (size == 0)
        return {};
    Follower follower(console);
    return value_of(engine::read_rom(camera, 0, size, follower.caller()));
}

/// An end in the middle tells of what has been kept, too.
static engine::Caller telling(Console& console, Follower& follower, Result& result)
{
    engine::Caller caller = follower.caller();
    caller.tell = [&console, &result, tell = caller.tell](const engine::Event& event) {
        if (event.kind == engine::Event::Kind::kKept)
            result.report.kept.push_back(event.text);
        if (event.kind == engine::Event::Kind::kBackup) {
            result.report.backup = event.text;
            promise_result(console, result);
        }
        tell(event);
    };
    return caller;
}

bool program(Console& console, Camera& camera, const Arguments& arguments, const Programming& how,
             const engine::Images& images, Result& result)
{
    describe(result, images);
    promise_result(console, result);
    Follower follower(console);
    follower.expect(kUpgradePhases, image_bytes(images));
    result.report = engine::upgrade(camera, images, upgrade_options(arguments, how),
                                    engine::Backups(), telling(console, follower, result));
    console.drain();
    if (!result.report.status)
        throw failure_of(result.report);
    if (result.report.left_unlocked)
        console.display().note("the ROM could not be locked again");
    return !result.report.up_to_date;
}

void print_plan(Console& console, const Arguments& arguments, Camera& camera,
                const engine::Images& images, const engine::Plan& plan)
{
    const std::string version = images.version();
    const bool writes = std::ranges::any_of(plan.steps, [](const engine::Step& step) {
        return step.action == engine::Action::kUnlock;
    });
    std::string text = writes ? "to be done with " + camera.name() + ", " +
                                    engine::version_change(camera.version(), version) + ":"
                              : camera.name() + ": " + kUpToDate;
    Value::List steps;
    Cost cost;
    for (const engine::Step& step : plan.steps) {
        text += line_of(step);
        steps.emplace_back(step_json(step));
        cost += engine::cost_of(camera, step);
    }
    Members values = json_of_place(camera.info());
    values.push_back({"steps", steps});
    values.push_back({"sha256", images.firmware.digest()});
    values.push_back({"version", version.empty() ? Value() : Value(version)});
    values.push_back({"version_before", camera.version()});
    text += lines_of("kept", plan.kept) + lines_of("replaced", plan.replaced) +
            lines_of("lost", plan.lost) + lines_of("lost", plan.unreachable);
    values.push_back({"kept", parts_json(plan.kept)});
    values.push_back({"replaced", parts_json(plan.replaced)});
    values.push_back({"lost", parts_json(plan.lost)});
    values.push_back({"unreachable", parts_json(plan.unreachable)});
    if (!writes)
        values.push_back({"message", kUpToDate});
    print_dry_run(console, arguments, camera, text, values, cost,
                  writes && camera.has_spi_flash() ? kFlashTime : "");
}

std::string advice_after(engine::RomContents rom)
{
    return rom == engine::RomContents::kUnchanged ? "" : consequence_of(rom);
}

std::string way_back(const std::string& backup)
{
    return backup.empty() ? ", or recover another backup ('nyxus backups list')"
                          : ", or 'nyxus recover' to put the backup " + in_quotes(backup) + " back";
}

const char* advice_for(engine::Reason reason)
{
    switch (reason) {
        case engine::Reason::kUnknownRom:
            return "if it has an EEPROM, 'nyxus upgrade FILE --eeprom KIB' programs it";
        case engine::Reason::kNotStarted:
            return "'nyxus upgrade' installs another image, 'nyxus recover FILE' an older backup";
        case engine::Reason::kDowngrade:
            return "'--allow-downgrade' installs it all the same";
        default:
            return "";
    }
}

Failure failure_of(const engine::Report& report)
{
    const engine::Status& status = report.status;
    const bool may_be_incomplete = report.rom == engine::RomContents::kIncomplete ||
                                   report.rom == engine::RomContents::kUnknown;
    const std::string back = may_be_incomplete ? way_back(report.backup.string()) : "";
    if (status.reason() == engine::Reason::kStopped)
        return {kExitInterrupted, "interrupted: " + (consequence_of(report.rom) + back)};
    if (status.reason() == engine::Reason::kBackupNotKept)
        return {kExitFailure, status.text() + " ('--no-backup' goes on without one)"};
    const std::string advice = advice_for(status.reason());
    const Failure failure =
        failure_of(status, advice.empty() ? advice_after(report.rom) + back : advice);
    return report.stopped ? Failure(kExitInterrupted, "interrupted; " + failure.text()) : failure;
}

} // namespace tool
