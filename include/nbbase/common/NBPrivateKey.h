// NBPrivateKey: an RSA private key, as NBKeyLoader reads it from a PEM text. It decrypts what NBCryptor
// encrypted with its public half. The library itself never holds one: tests and the command-line tool's
// decryption load it from a file.
//
// Immutable once made: every function is const and may be called on any thread, and one key may be used
// by any number of threads at once. Copies share the underlying OpenSSL key, which lives as long as the
// last copy or public half derived from it. Only NBKeyLoader makes keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "nbbase/common/NBPublicKey.h"

namespace nb {

class NBPrivateKey {
public:
    [[nodiscard]] std::int32_t sizeInBits() const noexcept;
    // k, the modulus size in bytes: NBCryptor reads cipher text in blocks of this size.
    [[nodiscard]] std::size_t blockSize() const noexcept;
    // The matching public key. It shares this key's OpenSSL object, private half included, but only
    // ever encrypts with it.
    [[nodiscard]] std::shared_ptr<const NBPublicKey> publicKey() const;

private:
    friend class NBKeyLoader;
    friend class NBCryptor;

    // Never null: NBKeyLoader refuses to build a key object without a key.
    explicit NBPrivateKey(std::shared_ptr<evp_pkey_st> key) noexcept;

    std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace nb
