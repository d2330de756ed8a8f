#include "nbbase/updater/SUSignatureVerifier.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "nbbase/common/NBBase64.h"
#include "platform/common/OpenSslError.h"

namespace nb {

namespace {

constexpr std::size_t kPublicKeyBytes = 32;
constexpr std::size_t kSignatureBytes = 64;

void setReason(std::string* failureReason, std::string text) {
    if (failureReason != nullptr) *failureReason = std::move(text);
}

// A read-only private mapping of a whole file, unmapped and closed on destruction.
class MappedFile {
public:
    MappedFile(const std::filesystem::path& path, std::string* failureReason) {
        fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info {};
        if (fd_ < 0 || ::fstat(fd_, &info) != 0) {
            setReason(failureReason, fmt::format("cannot read {}: {}", path.string(), std::strerror(errno)));
            return;
        }
        if (!S_ISREG(info.st_mode)) {
            setReason(failureReason, fmt::format("{} is not a regular file", path.string()));
            return;
        }
        size_ = static_cast<std::size_t>(info.st_size);
        if (size_ == 0) {
            ok_ = true;  // nothing to map; an empty message is still a message
            return;
        }
        void* address = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_, 0);
        if (address == MAP_FAILED) {
            setReason(failureReason, fmt::format("cannot map {}: {}", path.string(), std::strerror(errno)));
            return;
        }
        // One sequential pass: let the kernel read ahead and drop pages behind.
        (void)::madvise(address, size_, MADV_SEQUENTIAL);
        bytes_ = static_cast<const std::uint8_t*>(address);
        ok_ = true;
    }
    ~MappedFile() {
        if (bytes_ != nullptr) ::munmap(const_cast<std::uint8_t*>(bytes_), size_);
        if (fd_ >= 0) ::close(fd_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    [[nodiscard]] bool ok() const noexcept { return ok_; }
    [[nodiscard]] const std::uint8_t* bytes() const noexcept { return bytes_; }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

private:
    int fd_ = -1;
    const std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
    bool ok_ = false;
};

}  // namespace

struct SUSignatureVerifier::Key {
    explicit Key(EVP_PKEY* key) : key(key) {}
    ~Key() { EVP_PKEY_free(key); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    EVP_PKEY* const key;
};

SUSignatureVerifier::SUSignatureVerifier(std::string_view base64PublicKey) {
    const auto raw = NBBase64::dataFromBase64String(base64PublicKey);
    if (!raw || raw->size() != kPublicKeyBytes) {
        error_ = fmt::format("the public key is not {} bytes of base64", kPublicKeyBytes);
        return;
    }
    EVP_PKEY* key = EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, raw->data(), raw->size());
    if (key == nullptr) {
        error_ = "the public key was refused: " + openssl::lastErrorReason();
        return;
    }
    key_ = std::make_unique<Key>(key);
}

SUSignatureVerifier::~SUSignatureVerifier() = default;

bool SUSignatureVerifier::verifyData(const std::uint8_t* bytes, std::size_t size, std::string_view base64Signature,
                                     std::string* failureReason) const {
    if (!key_) {
        setReason(failureReason, error_);
        return false;
    }
    const auto signature = NBBase64::dataFromBase64String(base64Signature);
    if (!signature || signature->size() != kSignatureBytes) {
        setReason(failureReason, fmt::format("the signature is not {} bytes of base64", kSignatureBytes));
        return false;
    }
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    static const std::uint8_t kNothing = 0;
    int result = -1;
    if (context != nullptr &&
        EVP_DigestVerifyInit_ex(context, nullptr, nullptr, nullptr, nullptr, key_->key, nullptr) == 1) {
        result = EVP_DigestVerify(context, signature->data(), signature->size(), size == 0 ? &kNothing : bytes, size);
    }
    EVP_MD_CTX_free(context);
    const bool ok = result == 1;
    // Either way OpenSSL may have queued errors; take them off so the thread's next call starts clean.
    const std::string detail = openssl::lastErrorReason();
    if (result == 0) setReason(failureReason, "the signature does not match");
    else if (!ok) setReason(failureReason, "the signature could not be checked: " + detail);
    return ok;
}

bool SUSignatureVerifier::verifyFile(const std::filesystem::path& path, std::string_view base64Signature,
                                     std::string* failureReason) const {
    if (!key_) {
        setReason(failureReason, error_);
        return false;
    }
    const MappedFile file(path, failureReason);
    return file.ok() && verifyData(file.bytes(), file.size(), base64Signature, failureReason);
}

}  // namespace nb
