#include "nbbase/updater/UpdateSigner.h"

#include <openssl/evp.h>

#include <fstream>
#include <iterator>

#include "nbbase/common/NBBase64.h"
#include "platform/common/OpenSslError.h"

namespace nb {

namespace {

constexpr std::size_t kKeyBytes = 32;

void setReason(std::string* failureReason, std::string text) {
    if (failureReason != nullptr) *failureReason = std::move(text);
}

std::string rawKeyBase64(EVP_PKEY* key, bool isPrivate) {
    Data raw(kKeyBytes);
    std::size_t length = raw.size();
    const int ok = isPrivate ? EVP_PKEY_get_raw_private_key(key, raw.data(), &length)
                             : EVP_PKEY_get_raw_public_key(key, raw.data(), &length);
    if (ok != 1) return {};
    raw.resize(length);
    return NBBase64::base64StringFromData(raw);
}

}  // namespace

struct UpdateSigner::Key {
    explicit Key(EVP_PKEY* key) : key(key) {}
    ~Key() { EVP_PKEY_free(key); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    EVP_PKEY* const key;
};

std::optional<UpdateSigner::KeyPair> UpdateSigner::generateKeyPair() {
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    if (key == nullptr) {
        ERR_clear_error();
        return std::nullopt;
    }
    KeyPair pair{rawKeyBase64(key, true), rawKeyBase64(key, false)};
    EVP_PKEY_free(key);
    if (pair.base64PrivateKey.empty() || pair.base64PublicKey.empty()) return std::nullopt;
    return pair;
}

UpdateSigner::UpdateSigner(std::string_view base64PrivateKey) {
    const auto seed = NBBase64::dataFromBase64String(base64PrivateKey);
    if (!seed || seed->size() != kKeyBytes) {
        error_ = "the private key is not 32 bytes of base64";
        return;
    }
    EVP_PKEY* key = EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, seed->data(), seed->size());
    if (key == nullptr) {
        error_ = "the private key was refused: " + openssl::lastErrorReason();
        return;
    }
    key_ = std::make_unique<Key>(key);
}

UpdateSigner::~UpdateSigner() = default;

std::string UpdateSigner::base64PublicKey() const { return key_ ? rawKeyBase64(key_->key, false) : std::string(); }

std::optional<std::string> UpdateSigner::signData(std::string_view bytes, std::string* failureReason) const {
    if (!key_) {
        setReason(failureReason, error_);
        return std::nullopt;
    }
    Data signature(64);
    std::size_t length = signature.size();
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    const bool ok = context != nullptr &&
                    EVP_DigestSignInit_ex(context, nullptr, nullptr, nullptr, nullptr, key_->key, nullptr) == 1 &&
                    EVP_DigestSign(context, signature.data(), &length,
                                   reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) == 1;
    EVP_MD_CTX_free(context);
    if (!ok) {
        setReason(failureReason, "signing failed: " + openssl::lastErrorReason());
        return std::nullopt;
    }
    signature.resize(length);
    return NBBase64::base64StringFromData(signature);
}

std::optional<std::string> UpdateSigner::signFile(const std::filesystem::path& path, std::string* failureReason) const {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        setReason(failureReason, "cannot read " + path.string());
        return std::nullopt;
    }
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        setReason(failureReason, "cannot read " + path.string());
        return std::nullopt;
    }
    return signData(bytes, failureReason);
}

}  // namespace nb
