#include "nbbase/common/NBCryptor.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include "OpenSslError.h"

namespace nb {

namespace {

// OAEP with a 32-byte hash leaves k - 2*32 - 2 bytes of message in a k-byte block.
constexpr std::size_t kOaepOverhead = 2 * 32 + 2;

struct ContextFree {
    void operator()(EVP_PKEY_CTX* context) const noexcept { EVP_PKEY_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_PKEY_CTX, ContextFree>;

std::nullopt_t fail(std::string* error, std::string reason) {
    if (error != nullptr) *error = std::move(reason);
    return std::nullopt;
}

// One context for every block of a call, set up with the parameters the header promises; both
// directions take them from here so that they cannot drift apart. Null on failure, with *error set.
Context makeContext(evp_pkey_st* key, bool encrypt, std::string* error) {
    Context context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (!context) {
        fail(error, "cannot use the key: " + openssl::lastErrorReason());
        return nullptr;
    }
    // OSSL_PARAM wants writable strings, although OpenSSL only reads them.
    char padMode[] = OSSL_PKEY_RSA_PAD_MODE_OAEP;
    char oaepDigest[] = "SHA256";
    char mgf1Digest[] = "SHA256";
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, padMode, 0),
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_OAEP_DIGEST, oaepDigest, 0),
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_MGF1_DIGEST, mgf1Digest, 0),
        OSSL_PARAM_construct_end(),
    };
    const int ok = encrypt ? EVP_PKEY_encrypt_init_ex(context.get(), params)
                           : EVP_PKEY_decrypt_init_ex(context.get(), params);
    if (ok <= 0) {
        fail(error, fmt::format("cannot set up RSA-OAEP {}: {}", encrypt ? "encryption" : "decryption",
                                openssl::lastErrorReason()));
        return nullptr;
    }
    return context;
}

}  // namespace

std::optional<Data> NBCryptor::encryptData(const Data& data, const NBPublicKey& withPublicKey, std::string* error) {
    ERR_clear_error();
    const std::size_t blockSize = withPublicKey.blockSize();
    if (blockSize <= kOaepOverhead) return fail(error, "RSA key too small for OAEP with SHA-256");
    const std::size_t chunkSize = blockSize - kOaepOverhead;
    // The empty text still makes one block, so that a cipher text is never empty.
    const std::size_t chunks = data.empty() ? 1 : (data.size() + chunkSize - 1) / chunkSize;
    if (chunks > Data().max_size() / blockSize) return fail(error, "plain text too long");

    const Context context = makeContext(withPublicKey.key_.get(), true, error);
    if (!context) return std::nullopt;
    // OpenSSL copies from the input pointer even for zero bytes; an empty vector may have none.
    static const std::uint8_t kNothing = 0;
    Data cipher(chunks * blockSize);
    for (std::size_t i = 0; i < chunks; ++i) {
        const std::size_t offset = i * chunkSize;
        const std::size_t length = std::min(chunkSize, data.size() - offset);
        const std::uint8_t* input = data.empty() ? &kNothing : data.data() + offset;
        std::size_t written = blockSize;
        if (EVP_PKEY_encrypt(context.get(), cipher.data() + i * blockSize, &written, input, length) <= 0) {
            return fail(error,
                        fmt::format("RSA-OAEP encryption of block {} failed: {}", i, openssl::lastErrorReason()));
        }
        if (written != blockSize) {
            return fail(error, fmt::format("RSA-OAEP block {} came out {} bytes long, not {}", i, written, blockSize));
        }
    }
    return cipher;
}

std::optional<Data> NBCryptor::decryptData(const Data& data, const NBPrivateKey& withPrivateKey, std::string* error) {
    ERR_clear_error();
    const std::size_t blockSize = withPrivateKey.blockSize();
    if (blockSize <= kOaepOverhead) return fail(error, "RSA key too small for OAEP with SHA-256");
    if (data.empty()) return fail(error, "empty cipher text");
    if (data.size() % blockSize != 0) {
        return fail(error, fmt::format("cipher text of {} bytes is not a whole number of {}-byte blocks", data.size(),
                                       blockSize));
    }

    const Context context = makeContext(withPrivateKey.key_.get(), false, error);
    if (!context) return std::nullopt;
    const std::size_t blocks = data.size() / blockSize;
    Data plain;
    plain.reserve(blocks * (blockSize - kOaepOverhead));
    Data block(blockSize);
    for (std::size_t i = 0; i < blocks; ++i) {
        std::size_t written = block.size();
        if (EVP_PKEY_decrypt(context.get(), block.data(), &written, data.data() + i * blockSize, blockSize) <= 0) {
            return fail(error,
                        fmt::format("RSA-OAEP decryption of block {} failed: {}", i, openssl::lastErrorReason()));
        }
        plain.insert(plain.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(written));
    }
    return plain;
}

}  // namespace nb
