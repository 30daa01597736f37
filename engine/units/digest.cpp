// SPDX-License-Identifier: Apache-2.0
#include "digest.h"

#include <sodium/crypto_hash_sha256.h>
#include <sodium/utils.h>

namespace nyxus::engine {

std::string sha256(Bytes bytes)
{
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, bytes.data(), bytes.size());
    char digits[2 * sizeof digest + 1];
    return sodium_bin2hex(digits, sizeof digits, digest, sizeof digest);
}

} // namespace nyxus::engine
