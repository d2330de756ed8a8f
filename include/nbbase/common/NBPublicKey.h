// NBPublicKey: an RSA public key, as NBKeyLoader reads it from a PEM text (or as NBPrivateKey::publicKey
// derives it). It only encrypts, through NBCryptor.
//
// Immutable once made: every function is const and may be called on any thread, and one key may be used
// by any number of threads at once. Copies share the underlying OpenSSL key, which lives as long as the
// last copy. Only NBKeyLoader and NBPrivateKey make keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// OpenSSL's EVP_PKEY, named here without its headers so that users of this library need none of them.
struct evp_pkey_st;

namespace nb {

class NBPublicKey {
public:
    // The modulus size, 2048 for the feedback page's key.
    [[nodiscard]] std::int32_t sizeInBits() const noexcept;
    // k, the size in bytes of the modulus and so of every RSA block that NBCryptor writes.
    [[nodiscard]] std::size_t blockSize() const noexcept;

private:
    friend class NBKeyLoader;
    friend class NBPrivateKey;
    friend class NBCryptor;

    // Never null: the makers refuse to build a key object without a key.
    explicit NBPublicKey(std::shared_ptr<evp_pkey_st> key) noexcept;

    std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace nb
