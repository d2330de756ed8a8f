#include "nbbase/common/NBPrivateKey.h"

#include <utility>

#include <openssl/evp.h>

namespace nb {

NBPrivateKey::NBPrivateKey(std::shared_ptr<evp_pkey_st> key) noexcept : key_(std::move(key)) {}

std::int32_t NBPrivateKey::sizeInBits() const noexcept { return EVP_PKEY_get_bits(key_.get()); }

std::size_t NBPrivateKey::blockSize() const noexcept {
    return static_cast<std::size_t>(EVP_PKEY_get_size(key_.get()));
}

std::shared_ptr<const NBPublicKey> NBPrivateKey::publicKey() const {
    // Not make_shared: the constructor is private to the key classes.
    return std::shared_ptr<const NBPublicKey>(new NBPublicKey(key_));
}

}  // namespace nb
