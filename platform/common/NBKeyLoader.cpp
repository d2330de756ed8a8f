#include "nbbase/common/NBKeyLoader.h"

#include <climits>
#include <initializer_list>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "OpenSslError.h"

namespace nb {

namespace {

using KeyPointer = std::shared_ptr<evp_pkey_st>;

struct BioFree {
    void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};

// The label of the text's first PEM block ("PUBLIC KEY" of "-----BEGIN PUBLIC KEY-----"), nullopt when
// there is none. OpenSSL's reader would pass over blocks of other labels to find one it wants; checking
// the first block ourselves keeps a certificate or private key from hiding a second, unexpected block.
std::optional<std::string_view> firstLabel(std::string_view pem) {
    constexpr std::string_view begin = "-----BEGIN ";
    constexpr std::string_view dashes = "-----";
    const auto start = pem.find(begin);
    if (start == std::string_view::npos) return std::nullopt;
    const auto labelStart = start + begin.size();
    const auto labelEnd = pem.find(dashes, labelStart);
    if (labelEnd == std::string_view::npos) return std::nullopt;
    const auto label = pem.substr(labelStart, labelEnd - labelStart);
    if (label.find('\n') != std::string_view::npos) return std::nullopt;
    return label;
}

bool fail(std::string* error, std::string reason) {
    if (error != nullptr) *error = std::move(reason);
    return false;
}

// Whether the text can be handed to OpenSSL at all: present, not too long for its int lengths, and
// starting with a block of one of the labels the caller reads.
bool checkText(std::string_view pem, std::initializer_list<std::string_view> labels, std::string* error) {
    ERR_clear_error();
    if (pem.empty()) return fail(error, "empty key text");
    if (pem.size() > static_cast<std::size_t>(INT_MAX)) return fail(error, "key text too long");
    const auto label = firstLabel(pem);
    if (!label) return fail(error, "no PEM block in the key text");
    for (const auto expected : labels) {
        if (*label == expected) return true;
    }
    std::string wanted;
    for (const auto expected : labels) wanted += fmt::format("{}\"{}\"", wanted.empty() ? "" : " or ", expected);
    return fail(error, fmt::format("expected a PEM {} block, found \"{}\"", wanted, *label));
}

std::unique_ptr<BIO, BioFree> openText(std::string_view pem) {
    return std::unique_ptr<BIO, BioFree>(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
}

KeyPointer adopt(EVP_PKEY* key) { return KeyPointer(key, [](EVP_PKEY* k) { EVP_PKEY_free(k); }); }

// The key must be one that NBCryptor can use for OAEP.
bool checkKey(const KeyPointer& key, std::string* error) {
    if (!EVP_PKEY_is_a(key.get(), "RSA")) {
        const char* type = EVP_PKEY_get0_type_name(key.get());
        return fail(error, fmt::format("not an RSA key ({})", type != nullptr ? type : "unknown type"));
    }
    const int bits = EVP_PKEY_get_bits(key.get());
    if (bits < NBKeyLoader::kMinimumBits) {
        return fail(error, fmt::format("RSA key of {} bits is under the minimum of {}", bits, NBKeyLoader::kMinimumBits));
    }
    return true;
}

// Called by OpenSSL for an encrypted key: there is no passphrase to give, and a terminal must never be
// asked for one.
int refusePassphrase(char*, int, int, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

}  // namespace

std::shared_ptr<const NBPublicKey> NBKeyLoader::loadX509PEMPublicKey(std::string_view pem, std::string* error) {
    if (!checkText(pem, {"PUBLIC KEY"}, error)) return nullptr;
    const auto bio = openText(pem);
    if (!bio) {
        fail(error, "cannot read the key text: " + openssl::lastErrorReason());
        return nullptr;
    }
    const auto key = adopt(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
    if (!key) {
        fail(error, "unreadable PUBLIC KEY block: " + openssl::lastErrorReason());
        return nullptr;
    }
    ERR_clear_error();
    if (!checkKey(key, error)) return nullptr;
    return std::shared_ptr<const NBPublicKey>(new NBPublicKey(key));
}

std::shared_ptr<const NBPrivateKey> NBKeyLoader::loadPEMPrivateKey(std::string_view pem, std::string* error) {
    if (!checkText(pem, {"PRIVATE KEY", "RSA PRIVATE KEY"}, error)) return nullptr;
    const auto bio = openText(pem);
    if (!bio) {
        fail(error, "cannot read the key text: " + openssl::lastErrorReason());
        return nullptr;
    }
    bool askedForPassphrase = false;
    const auto key = adopt(PEM_read_bio_PrivateKey(bio.get(), nullptr, refusePassphrase, &askedForPassphrase));
    if (!key) {
        const auto reason = openssl::lastErrorReason();
        fail(error, askedForPassphrase ? "encrypted private keys are not supported"
                                       : "unreadable private key block: " + reason);
        return nullptr;
    }
    ERR_clear_error();
    if (!checkKey(key, error)) return nullptr;
    return std::shared_ptr<const NBPrivateKey>(new NBPrivateKey(key));
}

}  // namespace nb
