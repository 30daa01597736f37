// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/manifest.hpp>

#include <sodium.h>
#include <algorithm>

#include "text/hex.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

constexpr std::string_view kUntrustedComment = "untrusted comment: ";
constexpr std::string_view kTrustedComment = "trusted comment: ";
constexpr std::string_view kPlain = "Ed";  ///< the message is signed; a key says the same
constexpr std::string_view kHashed = "ED"; ///< its digest is
constexpr size_t kIdBytes = 8;

/// "Ed" or "ED", id, and the key or signature: what one line holds in base64.
template <size_t kSize>
struct Packed {
    std::string kind;
    std::array<uint8_t, kIdBytes> id;
    std::array<uint8_t, kSize> bytes;
};

/// The next line, without its end, which is taken off the text.
std::string_view take_line(std::string_view& text)
{
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

template <size_t kSize>
bool decode(std::string_view line, std::array<uint8_t, kSize>& bytes)
{
    size_t size = 0;
    return sodium_base642bin(bytes.data(), bytes.size(), line.data(), line.size(), nullptr, &size,
                             nullptr, sodium_base64_VARIANT_ORIGINAL) == 0 &&
           size == kSize;
}

template <size_t kSize>
bool unpack(std::string_view line, Packed<kSize>& packed)
{
    std::array<uint8_t, 2 + kIdBytes + kSize> bytes;
    if (!decode(line, bytes))
        return false;
    packed.kind.assign(bytes.begin(), bytes.begin() + 2);
    std::copy_n(bytes.begin() + 2, kIdBytes, packed.id.begin());
    std::copy_n(bytes.begin() + 2 + kIdBytes, kSize, packed.bytes.begin());
    return packed.kind == kPlain || packed.kind == kHashed;
}

/// As minisign shows it: the last byte first.
std::string text_of(std::array<uint8_t, kIdBytes> id)
{
    std::ranges::reverse(id);
    return text::hex(id);
}

bool has_signed(const PublicKey& key, Bytes message, const uint8_t* signature)
{
    return crypto_sign_verify_detached(signature, message.data(), message.size(),
                                       key.bytes.data()) == 0;
}

/// What is signed: the message, or its digest.
std::vector<uint8_t> signed_bytes(Bytes message, const std::string& kind)
{
    if (kind == kPlain)
        return {message.begin(), message.end()};
    std::vector<uint8_t> digest(crypto_generichash_BYTES_MAX);
    crypto_generichash(digest.data(), digest.size(), message.data(), message.size(), nullptr, 0);
    return digest;
}

} // namespace

Result<PublicKey> parse_public_key(std::string_view text, const std::string& name)
{
    Packed<crypto_sign_PUBLICKEYBYTES> packed;
    const bool has_comment = take_line(text).starts_with(kUntrustedComment);
    if (has_comment && unpack(take_line(text), packed) && packed.kind == kPlain && text.empty())
        return PublicKey{text_of(packed.id), packed.bytes, name};
    return Status(Reason::kUntrusted, text::in_quotes(name) + " is no public key of minisign");
}

Result<Signature> verify_signature(Bytes message, std::string_view signature,
                                   const std::vector<PublicKey>& keys, const std::string& name)
{
    const auto refused = [&](const std::string& why) {
        return Status(Reason::kUntrusted, text::in_quotes(name) + why);
    };
    Packed<crypto_sign_BYTES> packed;
    std::array<uint8_t, crypto_sign_BYTES> of_comment;
    const bool has_comment = take_line(signature).starts_with(kUntrustedComment);
    const bool has_signature = unpack(take_line(signature), packed);
    std::string_view comment = take_line(signature);
    if (sodium_init() < 0 || !has_comment || !has_signature ||
        !comment.starts_with(kTrustedComment) || !decode(take_line(signature), of_comment) ||
        !signature.empty())
        return refused(" is no signature of minisign");
    comment.remove_prefix(kTrustedComment.size());
    const std::string id = text_of(packed.id);
    const auto key = std::ranges::find(keys, id, &PublicKey::id);
    if (key == keys.end())
        return refused(" is a signature by the key " + id + ", which is not trusted here");
    if (!has_signed(*key, signed_bytes(message, packed.kind), packed.bytes.data()))
        return refused(" is not a signature of this text: one of them has been changed");
    std::vector<uint8_t> commented(packed.bytes.begin(), packed.bytes.end());
    commented.insert(commented.end(), comment.begin(), comment.end());
    if (!has_signed(*key, commented, of_comment.data()))
        return refused(" has a comment that has been changed");
    return Signature{id, text::printable(comment)};
}

} // namespace nyxus::engine
