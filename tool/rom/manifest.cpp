// SPDX-License-Identifier: Apache-2.0
// Manifests, without a camera.
#include "command_line/command_line.h"
#include "commands.h"
#include "rom/programming.h"
#include "session/whole_file.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

namespace tool {

namespace {

struct ManifestOptions {
    engine::Manifest manifest;
    std::vector<std::string> images;
    std::string reports;
    std::string mfi;
    std::string output = "manifest.toml";
};

ExitCode create_manifest(Console& console, const Arguments& arguments,
                         const ManifestOptions& options)
{
    engine::Manifest manifest = options.manifest;
    std::filesystem::path folder = std::filesystem::path(options.output).parent_path();
    if (folder.empty())
        folder = ".";
    for (const std::string& image : options.images) {
        manifest.firmware.push_back(
            value_of(engine::describe_images(folder, image, options.mfi, options.reports)));
    }
    const std::string text = to_text(manifest);
    if (const auto parsed = engine::parse_manifest(text, "that makes no manifest"); !parsed)
        throw Failure(kExitUsage, parsed.status().text());
    write_file(options.output, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    const std::string message = format("%zu image%s in ", manifest.firmware.size(),
                                       manifest.firmware.size() == 1 ? "" : "s");
    console.display().say(arguments.json ? json_text(Members{{"file", options.output}})
                                         : message + in_quotes(options.output));
    return kExitOk;
}

Members entry_json(const engine::ManifestEntry& entry)
{
    return {{"chip", entry.chip},       {"image", entry.image}, {"sha256", entry.sha256},
            {"reports", entry.reports}, {"mfi", entry.mfi},     {"mfi_sha256", entry.mfi_sha256}};
}

Members manifest_json(const engine::AcceptedManifest& manifest)
{
    Value::List entries;
    for (const engine::ManifestEntry& entry : manifest.firmware)
        entries.emplace_back(entry_json(entry));
    const auto& signature = manifest.signature;
    return {{"product", manifest.product},
            {"version", manifest.version},
            {"signed_by", signature ? Value(signature->key) : Value()},
            {"comment", signature ? Value(signature->comment) : Value()},
            {"firmware", entries}};
}

ExitCode check_manifest(Console& console, const Arguments& arguments, const Sources& sources)
{
    const Offer offer = load_images(sources);
    if (arguments.json) {
        console.display().say(json_text(manifest_json(*offer.manifest)));
        return kExitOk;
    }
    console.display().say(text_of(*offer.manifest));
    for (const engine::ManifestEntry& entry : offer.manifest->firmware) {
        console.display().say(padded(entry.chip, 8) + entry.sha256.substr(0, 16) + "...  " +
                              (entry.reports.empty() ? "-     " : entry.reports) + "  " +
                              in_quotes(entry.image) +
                              (entry.mfi.empty() ? "" : ", " + in_quotes(entry.mfi)));
    }
    return kExitOk;
}

} // namespace

void add_manifest_command(Command& app, Arguments& arguments)
{
    Command& command = add_command(app, "manifest", "Which images are meant for which cameras",
                                   "check manifest.toml");
    command.needing_command();
    Command& creation = add_command(command, "create", "Write one, which 'minisign -Sm' then signs",
                                    "--product Door --version 2.1 --reports 0x0205 door.bin");
    auto& options = set_run<ManifestOptions>(creation, arguments, create_manifest);
    creation.file("IMAGES", &options.images, "Firmware images, one for each chip")
        .required()
        .times(1, Option::kAnyNumber);
    creation.text("--product", &options.manifest.product, "Name of the product")
        .shown_as("NAME")
        .required();
    creation
        .text("--version", &options.manifest.version, "Its version: numbers with dots between them")
        .shown_as("VERSION")
        .required();
    creation.text("--reports", &options.reports, "Version that cameras with these images report")
        .shown_as("VERSION");
    creation.file("--mfi", &options.mfi, "MFi image to program beside them");
    creation.file("--output", &options.output,
                  "File to write; the images lie in its folder or below [manifest.toml]");
    Command& test = add_command(command, "check",
                                "Check a manifest, its signature and its images, without a camera",
                                "manifest.toml");
    auto& sources = set_run<Sources>(test, arguments, check_manifest);
    add_file(test, &sources.manifest, "Manifest");
    test.flag("--allow-downgrade", &sources.allow_downgrade,
              "Also where a newer one of the product has been used");
}

} // namespace tool
