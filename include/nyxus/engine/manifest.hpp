// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Which images cameras are to get: manifests, which name them by chip and pin them by digest; who
 * has signed them; and what this machine trusts. docs/file-formats.md describes the files.
 *
 * Nothing here but choose_images() and check_reports() looks at a camera, and these transfer
 * nothing. Everything else may block for the file system. Thread-safe.
 */
#ifndef NYXUS_ENGINE_MANIFEST_HPP
#define NYXUS_ENGINE_MANIFEST_HPP

#include <nyxus/engine/images.hpp>

#include <array>
#include <filesystem>
#include <string_view>

namespace nyxus::engine {

/// The images for the cameras of one chip. Files are relative to the manifest's folder, and inside
/// it wherever links lead.
struct ManifestEntry {
    std::string chip;            ///< its name ("NY6410"), or how its internal version begins ("RO")
    std::string image;           ///< file of the firmware
    std::string sha256;          ///< of all its bytes, as 64 hexadecimal digits
    std::string reports = {};    ///< version that a camera with it reports, "0x0205"; "": unknown
    std::string mfi = {};        ///< file of the MFi image; "" without one
    std::string mfi_sha256 = {}; ///< its digest
};

struct Manifest {
    std::string product;
    std::string version; ///< numbers with dots between them, which tell the newer of two
    std::vector<ManifestEntry> firmware = {};
};

/// kWrongImage for a text that is no manifest, or that says more than is known here.
NYXUS_ENGINE_API Result<Manifest> parse_manifest(std::string_view text,
                                                 const std::string& name = "the manifest");
/// A text that parse_manifest() makes the same manifest of.
NYXUS_ENGINE_API std::string to_text(const Manifest& manifest);
/// What a manifest in this folder has to say of the files. kFile, kWrongImage.
NYXUS_ENGINE_API Result<ManifestEntry> describe_images(const std::filesystem::path& folder,
                                                       const std::string& image,
                                                       const std::string& mfi = {},
                                                       const std::string& reports = {});

// Signatures are those of the program minisign: Ed25519 over a manifest, or over its BLAKE2b
// digest.

struct PublicKey {
    std::string id; ///< 16 hexadecimal digits
    std::array<uint8_t, 32> bytes = {};
    std::string file = {}; ///< that it comes from
};
/// From the text of a public key's file. kUntrusted.
NYXUS_ENGINE_API Result<PublicKey> parse_public_key(std::string_view text, const std::string& name);

struct Signature {
    std::string key;     ///< id of the public key
    std::string comment; ///< that is signed as well; printable
};
/// From the text of a signature's file, `name`. kUntrusted unless one of the keys has signed both
/// the message and the comment.
NYXUS_ENGINE_API Result<Signature> verify_signature(Bytes message, std::string_view signature,
                                                    const std::vector<PublicKey>& keys,
                                                    const std::string& name);

/// Where it stands what is trusted.
struct TrustFolders {
    std::filesystem::path system; ///< root's: keys.d/*.pub, and nyxus.toml
    std::filesystem::path user;   ///< the user's: keys.d/*.pub; "" for none
    std::filesystem::path state;  ///< which manifests have been accepted

    /// /etc/nyxus, $XDG_CONFIG_HOME/nyxus or ~/.config/nyxus, and the folder of Backups.
    NYXUS_ENGINE_API static TrustFolders usual();
};

/// What root and the user trust.
struct Trust {
    std::vector<PublicKey> keys = {};
    bool allow_unsigned = false; ///< root's word

    bool needs_signature() const { return !keys.empty() && !allow_unsigned; }
    /// kUntrusted where an image that no manifest names may not be used.
    NYXUS_ENGINE_API Status check_bare_image(const std::string& file) const;
};
/// kUntrusted for a key, a folder or a configuration that cannot be read, or that others than root
/// and the user may write: nobody knows what would be trusted without it.
NYXUS_ENGINE_API Result<Trust> find_trust(const TrustFolders& folders);

/// A manifest that may be used.
struct AcceptedManifest : Manifest {
    std::filesystem::path folder;            ///< that it lies in
    std::optional<Signature> signature = {}; ///< by a trusted key
    std::string unsigned_because = {};       ///< without one: why
};
/// Reads a manifest and the signature beside it (".minisig"). kFile, kWrongImage; kUntrusted where
/// a trusted signature is needed.
NYXUS_ENGINE_API Result<AcceptedManifest> load_manifest(const std::string& path,
                                                        const Trust& trust);
/// kDowngrade when a newer one of its product has been remembered. kFile.
NYXUS_ENGINE_API Status check_newest(const Manifest& manifest, const TrustFolders& folders);
/// Remembers it as used, unless a newer one has been. kFile.
NYXUS_ENGINE_API Status remember(const Manifest& manifest, const TrustFolders& folders);

/// Images, and the cameras that they are for.
struct ChipImages {
    std::string chip = {}; ///< as in a manifest; "" for all
    Images images;
};
/// All that a manifest names; each file is read once and compared with its digest. kFile,
/// kWrongImage.
NYXUS_ENGINE_API Result<std::vector<ChipImages>> load_images(const AcceptedManifest& manifest);
/// A firmware image alone; kWrongImage unless this is its digest, or "".
NYXUS_ENGINE_API Result<Firmware> load_pinned(const std::string& path, const std::string& sha256);

/// Those for the camera: by the name of its chip, or else by the longest beginning of its internal
/// version. kWrongImage when there are none; kDowngrade when the camera runs a newer version, as
/// far as that is known, unless that is allowed.
NYXUS_ENGINE_API Result<const ChipImages*> choose_images(const std::vector<ChipImages>& all,
                                                         const Camera& camera,
                                                         bool allow_downgrade);
/// Whether a restarted camera reports the version of its images, where that is known. kNotStarted.
NYXUS_ENGINE_API Status check_reports(const Camera& camera, const Images& images);

} // namespace nyxus::engine

#endif
