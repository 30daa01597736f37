// SPDX-License-Identifier: Apache-2.0
// Images that are what somebody has said they are.
#include <nyxus/engine/manifest.hpp>

#include <algorithm>
#include <cctype>
#include <system_error>

#include "images/image_file.h"
#include "manifest_text.h"
#include "text/numbers.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kMostSignatureBytes = 0x4000;

/// An image whose file has this digest, or any with "".
template <typename Image>
Result<Image> load_equal(const std::string& path, std::string wanted)
{
    auto image = Image::load(path);
    std::ranges::transform(wanted, wanted.begin(), [](unsigned char c) { return std::tolower(c); });
    if (!image || wanted.empty() || image->digest() == wanted)
        return image;
    return Status(Reason::kWrongImage, text::in_quotes(path) +
                                           " is not the image that is meant: its SHA-256 is " +
                                           image->digest() + ", not " + text::printable(wanted) +
                                           "; nothing was written");
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

template <typename Image>
Result<Image> load_inside(const fs::path& folder, const std::string& file,
                          const std::string& digest)
{
    const std::string path = folder / file;
    const auto place = place_in(folder, path);
    return place ? load_equal<Image>(path, digest) : place.status();
}

Result<ChipImages> load_entry(const fs::path& folder, const ManifestEntry& entry)
{
    auto firmware = load_inside<Firmware>(folder, entry.image, entry.sha256);
    if (!firmware)
        return firmware.status();
    if (Status fits = check_signature(entry, *firmware); !fits)
        return fits;
    ChipImages images{entry.chip, {*std::move(firmware)}};
    images.images.reports = entry.reports;
    if (entry.mfi.empty())
        return images;
    auto mfi = load_inside<Mfi>(folder, entry.mfi, entry.mfi_sha256);
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

/// As a number; nothing for what is no version.
std::optional<uint64_t> number_of(const std::string& version)
{
    return version.empty() ? std::nullopt : text::parse_number(version, 0xFFFF);
}

} // namespace

Result<ManifestEntry> describe_images(const fs::path& folder, const std::string& image,
                                      const std::string& mfi, const std::string& reports)
{
    const auto place = place_in(folder, image);
    if (!place)
        return place.status();
    const auto firmware = Firmware::load(image);
    if (!firmware)
        return firmware.status();
    ManifestEntry entry{firmware->signature(), *place, firmware->digest(),
                        reports.empty() ? firmware->version().value_or("") : reports};
    if (mfi.empty())
        return entry;
    const auto mfi_place = place_in(folder, mfi);
    const auto mfi_image = mfi_place ? Mfi::load(mfi) : mfi_place.status();
    if (!mfi_image)
        return mfi_image.status();
    entry.mfi = *mfi_place;
    entry.mfi_sha256 = mfi_image->digest();
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

Result<Firmware> load_pinned(const std::string& path, const std::string& sha256)
{
    return load_equal<Firmware>(path, sha256);
}

Result<const ChipImages*> choose_images(const std::vector<ChipImages>& all, const Camera& camera,
                                        bool allow_downgrade)
{
    const auto fit = [&](const ChipImages& images) { return fit_of(images, camera); };
    const auto best = std::ranges::max_element(all, {}, fit);
    if (best == all.end() || fit(*best) == 0) {
        return Status(Reason::kWrongImage, "the manifest has no image for the chip " +
                                               camera.chip() + "; nothing was written");
    }
    const std::string version = best->images.version();
    const auto before = number_of(camera.version());
    const auto after = number_of(version);
    if (before && after && *after < *before && !allow_downgrade) {
        return Status(Reason::kDowngrade, "the camera runs " + camera.version() +
                                              ", which is newer than " + version +
                                              "; nothing was written");
    }
    return &*best;
}

Status check_reports(const Camera& camera, const Images& images)
{
    const auto said = number_of(images.version());
    if (!said || said == number_of(camera.version()))
        return {};
    return {Reason::kNotStarted, camera.name() + " " + camera.firmware_sentence() +
                                     ", but the image is version " + images.version()};
}

} // namespace nyxus::engine
