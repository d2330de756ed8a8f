// NBKeyLoader: RSA keys from PEM text, for NBCryptor.
//
// What is accepted:
// - The text's first PEM block is the key: text before its "-----BEGIN" line is skipped and anything
//   after its "-----END" line ignored, but a first block of any other label is refused, even when a
//   wanted block follows it.
// - loadX509PEMPublicKey: a "PUBLIC KEY" block, an X.509 SubjectPublicKeyInfo. A PKCS#1
//   "RSA PUBLIC KEY" block, a certificate or a private key is refused.
// - loadPEMPrivateKey: an unencrypted "PRIVATE KEY" (PKCS#8) or "RSA PRIVATE KEY" (PKCS#1) block. An
//   encrypted key ("ENCRYPTED PRIVATE KEY", or a PKCS#1 block with a DEK-Info header) is refused without
//   ever asking for a passphrase.
// - For both, the key must be a plain RSA key (an RSA-PSS key, restricted to signing, is refused) of at
//   least kMinimumBits. Keys between kMinimumBits and 2048 bits are accepted although the feedback page
//   uses 2048; an upper limit is OpenSSL's, met when the key is used rather than when it is read.
//
// Failure answers nullptr and, when the caller passes `error`, sets *error to one line saying why ("not
// an RSA key (EC)", "RSA key of 512 bits is under the minimum of 1024") with OpenSSL's reason where
// OpenSSL refused the text. *error is left alone on success.
//
// Stateless: every function may be called on any thread, concurrently. Nothing throws. OpenSSL's error
// queue of the calling thread is left empty.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "nbbase/common/NBPrivateKey.h"
#include "nbbase/common/NBPublicKey.h"

namespace nb {

class NBKeyLoader {
public:
    // Smaller keys leave too little room per block once OAEP with SHA-256 takes its 66 bytes, and are
    // too weak to hide anything anyway.
    static constexpr std::int32_t kMinimumBits = 1024;

    [[nodiscard]] static std::shared_ptr<const NBPublicKey> loadX509PEMPublicKey(std::string_view pem,
                                                                                 std::string* error = nullptr);
    [[nodiscard]] static std::shared_ptr<const NBPrivateKey> loadPEMPrivateKey(std::string_view pem,
                                                                               std::string* error = nullptr);
};

}  // namespace nb
