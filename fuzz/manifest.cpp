// SPDX-License-Identifier: Apache-2.0
// Feeds the readers of manifests, of signatures and of public keys. A manifest that is taken has to
// be the same one when it has been written and read again; a signature has to be of the one message
// that was ever signed.
//
// Input: what it is; for signatures two bytes with their length, the signature and the message;
// the text.
#include <nyxus/engine/manifest.hpp>

#include <cstdlib>
#include <string>

#include "support/input.h"

namespace {

namespace engine = nyxus::engine;
using Bytes = std::vector<uint8_t>;

constexpr char kKey[] =
    "untrusted comment: minisign public key 75C57BC7151CAE2E\n"
    "RWQurhwVx3vFdd04xlqsTRFkf76NDlkYDft3l4yxSKh3P/mv+aO6vl49\n";
/// Its secret key has signed this, and nothing else.
constexpr char kSigned[] =
    "product = \"Door camera\"\nversion = \"2.1.0\"\n\n[[firmware]]\nchip = \"RO\"\n"
    "image = \"rowan.bin\"\n"
    "sha256 = \"b6ba4e994e4cbf9706e6b2ab3ae952b7ce00d02a1e131a5a59be3286c4621671\"\n"
    "reports = \"0x0205\"\n";

void check(bool holds)
{
    if (!holds)
        std::abort();
}

/// What is refused says why.
template <typename Value>
bool is_taken(const engine::Result<Value>& result)
{
    check(result || !result.status().message().empty());
    return bool(result);
}

std::string text_of(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

void read_manifest(const std::string& text)
{
    const auto manifest = engine::parse_manifest(text);
    if (!is_taken(manifest))
        return;
    const std::string written = to_text(*manifest);
    const auto again = engine::parse_manifest(written);
    check(is_taken(again) && to_text(*again) == written);
}

void read_signature(const std::string& signature, const Bytes& message)
{
    static const std::vector<engine::PublicKey> keys = {*engine::parse_public_key(kKey, "key")};
    if (is_taken(engine::verify_signature(message, signature, keys, "signature")))
        check(text_of(message) == kSigned);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    enum Task : uint8_t { kManifest, kSignature, kPublicKey, kTasks };
    fuzz::Input input(data, size);
    const uint8_t task = input.byte() % kTasks;
    if (task == kManifest) {
        read_manifest(text_of(input.rest()));
    } else if (task == kSignature) {
        const Bytes signature = input.bytes(input.word());
        read_signature(text_of(signature), input.rest());
    } else {
        (void)is_taken(engine::parse_public_key(text_of(input.rest()), "key"));
    }
    return 0;
}
