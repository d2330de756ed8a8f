// UpdateSigner: the publisher's side of SUSignatureVerifier, for release tooling (`nbctl update keygen`
// and `nbctl update sign`), the reference host and tests. A client never needs it.
//
// Keys travel as base64: the private key is the 32-byte Ed25519 seed, the public key the 32-byte public
// key that hosts put under the information key "SUPublicEDKey". Signatures are 64 bytes in base64, pure
// Ed25519 over the whole file, as SUSignatureVerifier checks them.
//
// Failure: nothing throws. A seed that does not decode to 32 bytes makes an invalid signer; signing with it,
// or a file that cannot be read, answers nullopt with a one-line reason.
//
// Threads: an instance is immutable once built; every function may be called on any thread at once.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace nb {

class UpdateSigner {
public:
    struct KeyPair {
        std::string base64PrivateKey;
        std::string base64PublicKey;
    };
    // A fresh key pair from the system's random source; nullopt if OpenSSL cannot make one.
    [[nodiscard]] static std::optional<KeyPair> generateKeyPair();

    explicit UpdateSigner(std::string_view base64PrivateKey);
    ~UpdateSigner();
    UpdateSigner(const UpdateSigner&) = delete;
    UpdateSigner& operator=(const UpdateSigner&) = delete;

    [[nodiscard]] bool valid() const noexcept { return key_ != nullptr; }
    [[nodiscard]] const std::string& error() const noexcept { return error_; }
    // The matching public key in base64 ("" for an invalid signer).
    [[nodiscard]] std::string base64PublicKey() const;

    [[nodiscard]] std::optional<std::string> signData(std::string_view bytes, std::string* failureReason = nullptr) const;
    [[nodiscard]] std::optional<std::string> signFile(const std::filesystem::path& path,
                                                      std::string* failureReason = nullptr) const;

private:
    struct Key;
    std::unique_ptr<Key> key_;
    std::string error_;
};

}  // namespace nb
