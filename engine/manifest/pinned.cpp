// SPDX-License-Identifier: Apache-2.0
// Images that are what somebody has said they are.
#include <nyxus/engine/manifest.hpp>

#include <algorithm>
#include <cctype>
#include <system_error>

#include "images/image_file.h"
#include "manifest_text.h"
#include "text/format.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "units/digest.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kMostSignatureBytes = 0x4000;

/// A file's bytes, read once, and their digest.
struct Contents {
    std::vector<uint8_t> bytes;
    std::string digest;
};

Result<Contents> read_contents(const std::string& path, uint32_t capacity, const char* kind)
{
    auto bytes = read_image_file(path, capacity, kind);
    if (!bytes)
        return bytes.status();
    std::string digest = sha256(*bytes);
    return Contents{*std::move(bytes), std::move(digest)};
}

Result<Contents> read_firmware(const std::string& path)
{
    return read_contents(path, NYXUS_FW_BIN_CAPACITY, "a firmware image");
}

Result<Contents> read_mfi(const std::string& path)
{
    return read_contents(path, NYXUS_MFI_BIN_CAPACITY, "an MFi image");
}

Status check_digest(const std::string& path, const Contents& contents, std::string wanted)
{
    std::ranges::transform(wanted, wanted.begin(), [](unsigned char c) { return std::tolower(c); });
    if (wanted.empty() || contents.digest == wanted)
        return {};
    return {Reason::kWrongImage, text::in_quotes(path) +
                                     " is not the image that is meant: its "
                                     "SHA-256 is " +
                                     contents.digest + ", not " + text::printable(wanted) +
                                     "; nothing was written"};
}

std::string_view as_text(const std::vector<uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A file's place below a folder, wherever links lead; kWrongImage outside of it.
Result<fs::path> place_in(const fs::path& folder, const std::string& file)
{
    std::error_code error;
    const fs::path inside = fs::canonical(folder, error);
    const fs::path path = error ? fs::path() : fs::canonical(file, error);
    if (error) {
        return Status(Reason::kFile,
                      "cannot read " + text::in_quotes(file) + ": " + error.message());
    }
    const fs::path place = path.lexically_relative(inside);
    if (!place.empty() && *place.begin() != "..")
        return place;
    return Status(Reason::kWrongImage,
                  text::in_quotes(file) + " lies outside the folder of the manifest");
}

/// The chip that an entry names has to be the image's.
Status check_signature(const ManifestEntry& entry, const Firmware& firmware)
{
    std::string signature = entry.chip;
    for (int32_t i = 0; i < backend_list_count; ++i) {
        if (entry.chip == backend_list[i].name)
            signature = backend_list[i].signature;
    }
    signature.resize(2);
    if (firmware.signature() == signature)
        return {};
    return {Reason::kWrongImage, text::in_quotes(entry.image) + " is not for the chip '" +
                                     text::printable(entry.chip) + "': its signature is '" +
                                     text::printable(firmware.signature()) + "'"};
}

Result<ChipImages> load_entry(const fs::path& folder, const ManifestEntry& entry)
{
    const auto load = [&](const std::string& file, const std::string& digest, const auto& read) {
        const std::string path = folder / file;
        if (const auto place = place_in(folder, path); !place)
            return Result<Contents>(place.status());
        Result<Contents> contents = read(path);
        if (!contents)
            return contents;
        const Status equal = check_digest(path, *contents, digest);
        return equal ? std::move(contents) : equal;
    };
    auto contents = load(entry.image, entry.sha256, read_firmware);
    if (!contents)
        return contents.status();
    auto firmware = Firmware::from(std::move(contents->bytes), text::in_quotes(entry.image));
    if (!firmware)
        return firmware.status();
    if (Status fits = check_signature(entry, *firmware); !fits)
        return fits;
    ChipImages images{entry.chip, {*std::move(firmware)}, {}, folder / entry.image};
    if (const auto version = text::parse_number(entry.reports))
        images.reports = static_cast<uint16_t>(*version);
    if (entry.mfi.empty())
        return images;
    contents = load(entry.mfi, entry.mfi_sha256, read_mfi);
    if (!contents)
        return contents.status();
    auto mfi = Mfi::from(std::move(contents->bytes), text::in_quotes(entry.mfi));
    if (!mfi)
        return mfi.status();
    images.images.mfi = *std::move(mfi);
    return images;
}

/// How well images fit a camera; 0: not at all.
size_t fit_of(const ChipImages& images, const Camera& camera)
{
    if (images.chip == camera.nyxus::Camera::chip())
        return SIZE_MAX;
    return camera.internal_version().starts_with(images.chip) ? images.chip.size() + 1 : 0;
}

std::string name_of(std::optional<uint16_t> version)
{
    return version ? text::format("0x%04X", *version) : "an unknown version";
}

} // namespace

Result<ManifestEntry> describe_images(const fs::path& folder, const std::string& image,
                                      const std::string& mfi, const std::string& reports)
{
    const auto place = place_in(folder, image);
    if (!place)
        return place.status();
    auto contents = read_firmware(image);
    if (!contents)
        return contents.status();
    const auto firmware = Firmware::from(std::move(contents->bytes), text::in_quotes(image));
    if (!firmware)
        return firmware.status();
    ManifestEntry entry{firmware->signature(), *place, contents->digest, reports};
    if (mfi.empty())
        return entry;
    const auto mfi_place = place_in(folder, mfi);
    if (!mfi_place)
        return mfi_place.status();
    const auto mfi_contents = read_mfi(mfi);
    if (!mfi_contents)
        return mfi_contents.status();
    entry.mfi = *mfi_place;
    entry.mfi_sha256 = mfi_contents->digest;
    return entry;
}

Result<AcceptedManifest> load_manifest(const std::string& path, const Trust& trust)
{
    const auto text = read_image_file(path, kMostTomlBytes, "a manifest");
    if (!text)
        return text.status();
    AcceptedManifest accepted;
    if (trust.keys.empty()) {
        accepted.unsigned_because = "no key is trusted here";
    } else {
        const std::string name = path + ".minisig";
        const auto file = read_image_file(name, kMostSignatureBytes, "a signature");
        const auto signature =
            file ? verify_signature(*text, as_text(*file), trust.keys, name) : file.status();
        if (!signature && trust.needs_signature()) {
            return Status(Reason::kUntrusted,
                          text::in_quotes(path) +
                              " has no trusted signature: " + signature.status().message());
        }
        if (signature)
            accepted.signature = *signature;
        accepted.unsigned_because = signature.status().message();
    }
    const auto manifest = parse_manifest(as_text(*text), text::in_quotes(path));
    if (!manifest)
        return manifest.status();
    static_cast<Manifest&>(accepted) = *manifest;
    const fs::path folder = fs::path(path).parent_path();
    accepted.folder = folder.empty() ? "." : folder;
    return accepted;
}

Result<std::vector<ChipImages>> load_images(const AcceptedManifest& manifest)
{
    std::vector<ChipImages> all;
    for (const ManifestEntry& entry : manifest.firmware) {
        auto images = load_entry(manifest.folder, entry);
        if (!images)
            return images.status();
        all.push_back(*std::move(images));
    }
    return all;
}

Result<ChipImages> load_pinned(const std::string& path, const std::string& sha256)
{
    auto contents = read_firmware(path);
    if (!contents)
        return contents.status();
    if (Status equal = check_digest(path, *contents, sha256); !equal)
        return equal;
    auto firmware = Firmware::from(std::move(contents->bytes), text::in_quotes(path));
    if (!firmware)
        return firmware.status();
    return ChipImages{"", {*std::move(firmware)}, {}, path};
}

Result<ChosenImages> choose_images(const std::vector<ChipImages>& all, const Camera& camera,
                                   bool allow_downgrade)
{
    const auto fit = [&](const ChipImages& images) { return fit_of(images, camera); };
    const auto best = std::ranges::max_element(all, {}, fit);
    if (best == all.end() || fit(*best) == 0) {
        return Status(Reason::kWrongImage, "the manifest has no image for the chip " +
                                               camera.chip() + "; nothing was written");
    }
    const bool has_firmware = camera.runs_external_firmware();
    const std::string from =
        has_firmware ? name_of(camera.firmware_version()) : "the firmware in the chip";
    if (has_firmware && best->reports && *best->reports < camera.firmware_version() &&
        !allow_downgrade) {
        return Status(Reason::kDowngrade, "the camera runs " + from + ", which is newer than " +
                                              name_of(best->reports) + "; nothing was written");
    }
    return ChosenImages{&*best, "from " + from + " to " + name_of(best->reports)};
}

Status check_reports(const Camera& camera, const ChipImages& images)
{
    if (!images.reports || *images.reports == camera.firmware_version())
        return {};
    return {Reason::kNotStarted, camera.name() + " " + camera.firmware_sentence() +
                                     ", but the manifest says " + name_of(images.reports)};
}

} // namespace nyxus::engine
