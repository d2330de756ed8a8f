#include "nbbase/common/NBPublicKey.h"

#include <utility>

#include <openssl/evp.h>

namespace nb {

NBPublicKey::NBPublicKey(std::shared_ptr<evp_pkey_st> key) noexcept : key_(std::move(key)) {}

std::int32_t NBPublicKey::sizeInBits() const noexcept { return EVP_PKEY_get_bits(key_.get()); }

std::size_t NBPublicKey::blockSize() const noexcept {
    return static_cast<std::size_t>(EVP_PKEY_get_size(key_.get()));
}

}  // namespace nb
