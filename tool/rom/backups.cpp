// SPDX-License-Identifier: Apache-2.0
// What is kept of the cameras' ROMs.
#include "command_line/command_line.h"
#include "commands.h"
#include "session/camera_list.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <nyxus/engine/backups.hpp>

namespace tool {

namespace {

using engine::Backup;
using engine::Backups;

struct BackupOptions {
    std::vector<std::string> names;
    std::string name;
    std::string file;
    uint32_t keep = 0;
};

Members backup_json(const Backup& backup)
{
    return {{"name", backup.name},
            {"file", backup.file.string()},
            {"sequence", backup.sequence},
            {"time", backup.time},
            {"chip", backup.chip},
            {"serial", backup.serial},
            {"port", backup.port},
            {"running", backup.running},
            {"bytes", backup.bytes},
            {"sha256", backup.sha256},
            {"started", to_text(backup.started)},
            {"how_that_is_known", backup.how}};
}

std::string line_of(const Backup& backup)
{
    return printable(padded(backup.name, 32) + " " + padded(backup.time, 21) +
                     padded(to_text(backup.started), 8) +
                     (backup.running.empty() ? "-" : backup.running));
}

void print_all(Console& console, const Arguments& arguments, const std::vector<Backup>& backups)
{
    Display& display = console.display();
    if (arguments.json) {
        Value::List list;
        for (const Backup& backup : backups)
            list.emplace_back(backup_json(backup));
        return display.say(json_text(list));
    }
    if (!backups.empty())
        display.say(padded("BACKUP", 32) + " TIME                 STARTED RUNNING");
    for (const Backup& backup : backups)
        display.say(line_of(backup));
}

/// Those of the chosen camera, or all.
std::vector<Backup> listed(Console& console, const Arguments& arguments)
{
    const Backups store;
    if (!arguments.camera.empty())
        return value_of(store.list(select_camera(list_cameras(), arguments.camera)));
    std::vector<std::string> problems;
    std::vector<Backup> backups = value_of(store.list(&problems));
    for (const std::string& problem : problems)
        console.display().warn("nyxus: " + problem);
    return backups;
}

ExitCode run_backups_list(Console& console, const Arguments& arguments)
{
    print_all(console, arguments, listed(console, arguments));
    return kExitOk;
}

ExitCode run_backups_show(Console& console, const Arguments& arguments,
                          const BackupOptions& options)
{
    const Members members = backup_json(value_of(Backups().find(options.name)));
    if (arguments.json) {
        console.display().say(json_text(members));
        return kExitOk;
    }
    for (const auto& [name, value] : members) {
        const auto* text = std::get_if<std::string>(&value.content());
        std::string label = name;
        std::ranges::replace(label, '_', ' ');
        console.display().say(padded(label, 20) +
                              (text != nullptr ? printable(*text) : json_line(value)));
    }
    return kExitOk;
}

ExitCode run_backups_verify(Console& console, const Arguments& arguments,
                            const BackupOptions& options)
{
    const Backups store;
    std::vector<Backup> backups;
    for (const std::string& name : options.names)
        backups.push_back(value_of(store.find(name)));
    if (options.names.empty())
        backups = listed(console, arguments);
    Value::List list;
    ExitCode code = kExitOk;
    for (const Backup& backup : backups) {
        const engine::Status status = store.read(backup).status();
        const bool has_digest = !backup.sha256.empty();
        const std::string verdict = !status ? status.message() : has_digest ? "good" : "no digest";
        code = status ? code : kExitMismatch;
        list.emplace_back(Members{{"name", backup.name},
                                  {"good", status && has_digest ? Value(true)
                                           : status             ? Value()
                                                                : Value(false)}});
        if (!arguments.json)
            console.display().say(printable(padded(backup.name, 32)) + " " + printable(verdict));
    }
    if (arguments.json)
        console.display().say(json_text(list));
    return code;
}

ExitCode run_backups_export(Console& console, const Arguments& arguments,
                            const BackupOptions& options)
{
    const Backups store;
    const Backup backup = value_of(store.find(options.name));
    const std::vector<uint8_t> bytes = value_of(store.read(backup));
    if (options.file == "-") {
        console.display().pass_on(bytes);
        return kExitOk;
    }
    write_file(options.file, bytes);
    const std::string message = format("%zu bytes written to ", bytes.size());
    console.display().say(arguments.json ? json_text(Members{{"name", backup.name},
                                                             {"file", options.file},
                                                             {"bytes", bytes.size()}})
                                         : message + in_quotes(options.file));
    return kExitOk;
}

ExitCode run_backups_prune(Console& console, const Arguments& arguments,
                           const BackupOptions& options)
{
    const std::vector<Backup> pruned = value_of(Backups().prune(options.keep, arguments.dry_run));
    print_all(console, arguments, pruned);
    if (!arguments.json) {
        console.display().say(format("%zu backup%s %sremoved", pruned.size(),
                                     pruned.size() == 1 ? "" : "s",
                                     arguments.dry_run ? "would be " : ""));
    }
    return kExitOk;
}

/// How backups can be named, for the completion of command lines.
command_line::Words names_of_backups()
{
    command_line::Words names;
    if (const auto all = Backups().list()) {
        for (const Backup& backup : *all)
            names.push_back(backup.name);
    }
    return names;
}

void add_name(Command& command, BackupOptions& options)
{
    command.text("NAME", &options.name, "As 'nyxus backups list' shows it, or the file's path")
        .offering(names_of_backups)
        .required();
}

} // namespace

void add_backups_command(Command& app, Arguments& arguments)
{
    constexpr uint32_t kMostKept = 1000;
    Command& command =
        add_command(app, "backups", "Copies of what the ROMs held before changes", "list");
    command.needing_command();
    Command& list =
        add_command(command, "list", "List them, by unit and in their order", "-c A0001234");
    set_run(list, arguments, run_backups_list);
    Command& show =
        add_command(command, "show", "Show what is known of one", "A0001234-5f3c0a1b2c4d/000003");
    add_name(show, set_run<BackupOptions>(show, arguments, run_backups_show));
    Command& verify = add_command(command, "verify", "Compare them with their digests", "");
    auto& verified = set_run<BackupOptions>(verify, arguments, run_backups_verify);
    verify.text("NAMES", &verified.names, "As 'nyxus backups list' shows them [all]")
        .offering(names_of_backups)
        .times(0, kMostKept);
    Command& copy = add_command(command, "export", "Copy one that is what was kept to a file",
                                "A0001234-5f3c0a1b2c4d/000003 camera.rom");
    auto& copied = set_run<BackupOptions>(copy, arguments, run_backups_export);
    add_name(copy, copied);
    add_file(copy, &copied.file, "File to write; - is standard output");
    Command& prune =
        add_command(command, "prune", "Remove old ones that nothing needs any more", "--keep 5");
    auto& pruned = set_run<BackupOptions>(prune, arguments, run_backups_prune);
    prune.number("--keep", &pruned.keep, {1, kMostKept}, "So many of each unit stay")
        .shown_as("N")
        .required();
    add_dry_run(prune, arguments);
}

} // namespace tool
