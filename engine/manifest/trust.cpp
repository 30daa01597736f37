// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/manifest.hpp>
#include <system_error>

#include "files/folder.h"
#include "json/json.h"
#include "manifest_text.h"
#include "report/state_folder.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

constexpr char kKeysFolder[] = "keys.d";
constexpr char kKeyEnding[] = ".pub";
constexpr size_t kMostKeyBytes = 4096;
constexpr char kPolicyFile[] = "nyxus.toml";
/// In the state folder: the newest version of each product that has been used, by its name.
constexpr char kAcceptedFolder[] = "manifests";
constexpr char kAcceptedFile[] = "accepted.json";
constexpr size_t kMostAcceptedBytes = 0x100000;

template <typename Work>
auto with_trusted_files(Reason reason, const Work& work) -> decltype(work())
{
    try {
        return work();
    } catch (const std::system_error& error) {
        return Status(reason, error.what());
    }
}

std::string text_of(const std::vector<uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// That nobody else may write, and that is no link. Throws std::system_error.
std::optional<files::Folder> find_own_folder(const std::filesystem::path& path)
{
    const auto above = files::Folder::find(path.parent_path());
    return above ? above->find_folder(path.filename()) : std::nullopt;
}

/// Adds the keys of a folder.
Status add_keys(const files::Folder& folder, std::vector<PublicKey>& keys)
{
    const auto keys_folder = folder.find_folder(kKeysFolder);
    if (!keys_folder)
        return {};
    for (const std::string& name : keys_folder->names()) {
        if (!name.ends_with(kKeyEnding))
            continue;
        const auto bytes = keys_folder->read(name, kMostKeyBytes);
        if (!bytes) // it has just been removed
            continue;
        auto key = parse_public_key(text_of(*bytes), keys_folder->path() + "/" + name);
        if (!key)
            return key.status();
        keys.push_back(*std::move(key));
    }
    return {};
}

Result<Policy> read_policy(const files::Folder& folder)
{
    const auto bytes = folder.read(kPolicyFile, kMostTomlBytes);
    return bytes ? parse_policy(text_of(*bytes), text::in_quotes(folder.path() + "/" + kPolicyFile))
                 : Policy();
}

/// The newest version that has been used of a product; "" for none. Throws std::system_error.
std::string newest_version(const files::Folder& folder, const std::string& product)
{
    const auto bytes = folder.read(kAcceptedFile, kMostAcceptedBytes);
    const json::Json all = bytes ? json::parsed(text_of(*bytes)) : json::Json::object();
    if (!all.is_object()) {
        throw std::system_error(
            std::make_error_code(std::errc::invalid_argument),
            "cannot read " + text::in_quotes(folder.path() + "/" + kAcceptedFile));
    }
    const auto found = all.find(product);
    return found != all.end() && found->is_string() ? found->get<std::string>() : "";
}

void put_version(const files::Folder& folder, const Manifest& manifest)
{
    const auto bytes = folder.read(kAcceptedFile, kMostAcceptedBytes);
    json::Json all = bytes ? json::parsed(text_of(*bytes)) : json::Json::object();
    all[manifest.product] = manifest.version;
    folder.put(kAcceptedFile, json::printed(all, 2) + "\n");
}

bool is_older(const std::string& version, const std::string& other)
{
    return parse_version(version) < parse_version(other);
}

} // namespace

TrustFolders TrustFolders::usual()
{
    return {"/etc/nyxus", usual_config_folder(), usual_state_folder()};
}

Status Trust::check_bare_image(const std::string& file) const
{
    if (!needs_signature())
        return {};
    return {Reason::kUntrusted,
            "the key " + text::in_quotes(keys.front().file) +
                " is trusted here, so that images need a signed manifest, and " +
                text::in_quotes(file) + " has none; nothing was written"};
}

Result<Trust> find_trust(const TrustFolders& folders)
{
    return with_trusted_files(Reason::kUntrusted, [&]() -> Result<Trust> {
        Trust trust;
        Policy policy;
        if (const auto folder = find_own_folder(folders.system)) {
            const auto said = read_policy(*folder);
            if (!said)
                return said.status();
            policy = *said;
            if (Status added = add_keys(*folder, trust.keys); !added)
                return added;
        }
        trust.allow_unsigned = policy.allow_unsigned;
        if (!policy.user_keys || folders.user.empty())
            return trust;
        if (const auto folder = find_own_folder(folders.user)) {
            if (Status added = add_keys(*folder, trust.keys); !added)
                return added;
        }
        return trust;
    });
}

Status check_newest(const Manifest& manifest, const TrustFolders& folders)
{
    return with_trusted_files(Reason::kFile, [&]() -> Status {
        const auto state = files::Folder::find(folders.state);
        const auto folder = state ? state->find_folder(kAcceptedFolder) : std::nullopt;
        const std::string newest = folder ? newest_version(*folder, manifest.product) : "";
        if (newest.empty() || !is_older(manifest.version, newest))
            return {};
        return {Reason::kDowngrade, "the manifest is version " + manifest.version + " of " +
                                        text::in_quotes(manifest.product) + ", but " + newest +
                                        " has been used already; nothing was written"};
    });
}

Status remember(const Manifest& manifest, const TrustFolders& folders)
{
    return with_trusted_files(Reason::kFile, [&]() -> Status {
        const auto folder = files::Folder::make(folders.state).make_folder(kAcceptedFolder);
        const auto lock = folder.lock();
        const std::string newest = newest_version(folder, manifest.product);
        if (newest.empty() || is_older(newest, manifest.version))
            put_version(folder, manifest);
        return {};
    });
}

} // namespace nyxus::engine
