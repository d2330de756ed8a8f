// SUSignatureVerifier: checks that an update package was signed by the publisher's Ed25519 key.
//
// The public key is the 32 raw bytes of an Ed25519 key in base64, as hosts publish it under the main
// bundle's information key "SUPublicEDKey"; a signature is the 64 raw bytes of a pure Ed25519 signature
// (RFC 8032, no pre-hash, no context) of the whole file, in base64, as feeds carry it in the enclosure's
// "sparkle:edSignature" attribute. Base64 may be wrapped or padded as NBBase64 accepts it.
//
// Ed25519 signs the whole message, so the file is mapped into memory and verified in one call; its size
// is bounded by the address space, not by RAM (the pages are read once, in order, and may be dropped).
//
// Failure: nothing throws. A key that does not decode to 32 bytes makes an invalid verifier (valid()
// answers false, error() says why); verification with it always fails. verifyFile answers false with a
// one-line reason for a signature that does not decode to 64 bytes, a file that cannot be opened or
// mapped, and a signature that does not match.
//
// Threads: an instance is immutable once built; every function may be called on any thread at once.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

class SUSignatureVerifier {
public:
    explicit SUSignatureVerifier(std::string_view base64PublicKey);
    ~SUSignatureVerifier();
    SUSignatureVerifier(const SUSignatureVerifier&) = delete;
    SUSignatureVerifier& operator=(const SUSignatureVerifier&) = delete;

    [[nodiscard]] bool valid() const noexcept { return key_ != nullptr; }
    // Why the key was refused; "" for a valid verifier.
    [[nodiscard]] const std::string& error() const noexcept { return error_; }

    // True when `base64Signature` is this key's signature of the file's whole content.
    [[nodiscard]] bool verifyFile(const std::filesystem::path& path, std::string_view base64Signature,
                                  std::string* failureReason = nullptr) const;
    // The same for bytes in memory.
    [[nodiscard]] bool verifyData(const std::uint8_t* bytes, std::size_t size, std::string_view base64Signature,
                                  std::string* failureReason = nullptr) const;

private:
    struct Key;
    std::unique_ptr<Key> key_;
    std::string error_;
};

}  // namespace nb
