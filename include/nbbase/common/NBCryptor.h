// NBCryptor: seals data with an RSA public key so that only the holder of the private key can read it,
// as the feedback page's "data" value is sealed. The web page's owner decrypts with their own code, so
// the format below is a contract and must not change:
//
// - Scheme: RSAES-OAEP (PKCS #1 v2.2, RFC 8017 section 7.1) with SHA-256 as the OAEP hash and MGF1 with
//   SHA-256 as the mask generation function, and no label (the empty label).
// - Let k be the key's modulus size in bytes (256 for a 2048-bit key). The plain text is cut, from its
//   start, into chunks of k - 2*32 - 2 bytes (190 for a 2048-bit key), the last one shorter when the
//   length is not a multiple of it. Each chunk is encrypted on its own with fresh OAEP randomness, giving
//   a block of exactly k bytes (the big-endian integer, left-padded with zeros to k bytes).
// - The cipher text is the blocks concatenated in the order of their chunks, with nothing before,
//   between or after them: its length is k times the number of chunks.
// - An empty plain text is encrypted as one block of the empty message, so a cipher text is never empty.
//   (The feedback page then base64-encodes the cipher text; see NBBase64.)
// - To decrypt: cut the cipher text into k-byte blocks, OAEP-decrypt each with the same parameters and
//   concatenate the results in order.
//
// OAEP is randomised: encrypting the same text twice gives different cipher texts, both of which decrypt.
//
// decryptData refuses an empty cipher text or one whose length is not a multiple of k, and fails as a
// whole when any block fails to decrypt (a wrong key, a damaged block). Every
// failure answers nullopt and, when the caller passes `error`, sets *error to one line saying why, with
// OpenSSL's reason when OpenSSL refused; nothing partial is returned. *error is left alone on success.
//
// Stateless: every function may be called on any thread, concurrently, with shared keys. Nothing throws.
// OpenSSL's error queue of the calling thread is left empty.
#pragma once

#include <optional>
#include <string>

#include "nbbase/common/NBPrivateKey.h"
#include "nbbase/common/NBPublicKey.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBCryptor {
public:
    [[nodiscard]] static std::optional<Data> encryptData(const Data& data, const NBPublicKey& withPublicKey,
                                                         std::string* error = nullptr);
    [[nodiscard]] static std::optional<Data> decryptData(const Data& data, const NBPrivateKey& withPrivateKey,
                                                         std::string* error = nullptr);
};

}  // namespace nb
