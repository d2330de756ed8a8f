#include "nbbase/common/NBCryptor.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "nbbase/common/NBKeyLoader.h"

namespace {

using nb::Data;
using nb::NBCryptor;
using nb::NBKeyLoader;

std::string readSourceFile(const char* path) {
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

const std::string kPublicPem = readSourceFile("/support/feedback-public-key.pem");
const std::string kPrivatePem = readSourceFile("/tests/support/feedback-private-key.pem");

using Pkey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Pkey rsaKey(int bits) { return Pkey(EVP_RSA_gen(bits), EVP_PKEY_free); }

// A key file as OpenSSL's own PEM writers make it; `passphrase` encrypts it.
std::string pemOf(EVP_PKEY* key, bool isPrivate, bool pkcs1 = false, const char* passphrase = nullptr) {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    const EVP_CIPHER* cipher = passphrase ? EVP_aes_128_cbc() : nullptr;
    void* password = const_cast<char*>(passphrase);
    EXPECT_EQ(!isPrivate ? PEM_write_bio_PUBKEY(bio.get(), key)
              : pkcs1    ? PEM_write_bio_PrivateKey_traditional(bio.get(), key, cipher, nullptr, 0, nullptr, password)
                         : PEM_write_bio_PKCS8PrivateKey(bio.get(), key, cipher, nullptr, 0, nullptr, password),
              1);
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

Pkey developmentPrivateKey() {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(kPrivatePem.data(), -1), BIO_free);
    return Pkey(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
}

Data pattern(std::size_t length) {
    Data data(length);
    for (std::size_t i = 0; i < length; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + 3);
    return data;
}

class NBCryptorTest : public testing::Test {
protected:
    std::shared_ptr<const nb::NBPublicKey> publicKey_ = NBKeyLoader::loadX509PEMPublicKey(kPublicPem);
    std::shared_ptr<const nb::NBPrivateKey> privateKey_ = NBKeyLoader::loadPEMPrivateKey(kPrivatePem);
};

// OAEP is randomised: a second encryption differs, and decrypts as well.
TEST_F(NBCryptorTest, RoundTripsInBlocksOfTheKeySize) {
    ASSERT_TRUE(publicKey_ && privateKey_);
    ASSERT_EQ(publicKey_->blockSize(), 256u);
    for (const std::size_t length : {0, 1, 189, 190, 191, 380, 381, 5000}) {
        SCOPED_TRACE(length);
        const Data plain = pattern(length);
        const auto cipher = NBCryptor::encryptData(plain, *publicKey_);
        const auto again = NBCryptor::encryptData(plain, *publicKey_);
        ASSERT_TRUE(cipher && again);
        EXPECT_EQ(cipher->size(), 256 * std::max<std::size_t>(1, (length + 189) / 190));
        EXPECT_NE(*cipher, *again);
        EXPECT_EQ(NBCryptor::decryptData(*cipher, *privateKey_), plain);
        EXPECT_EQ(NBCryptor::decryptData(*again, *privateKey_), plain);
    }

    // A key of another size cuts its own chunks: 62 bytes for 1024 bits.
    const Pkey small = rsaKey(1024);
    const auto smallPrivate = NBKeyLoader::loadPEMPrivateKey(pemOf(small.get(), true));
    ASSERT_TRUE(smallPrivate);
    const auto cipher = NBCryptor::encryptData(pattern(63), *smallPrivate->publicKey());
    ASSERT_TRUE(cipher);
    EXPECT_EQ(cipher->size(), 2 * 128u);
    EXPECT_EQ(NBCryptor::decryptData(*cipher, *smallPrivate), pattern(63));
}

// The page's owner writes the other side from the header alone: OpenSSL set up independently, through
// its older control functions, reads each of our blocks, and we read the blocks it writes.
TEST_F(NBCryptorTest, BlocksAreOaepWithSha256AndMgf1Sha256) {
    const Pkey key = developmentPrivateKey();
    ASSERT_TRUE(key);
    using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;
    Context decrypting(EVP_PKEY_CTX_new(key.get(), nullptr), EVP_PKEY_CTX_free);
    Context encrypting(EVP_PKEY_CTX_new(key.get(), nullptr), EVP_PKEY_CTX_free);
    ASSERT_EQ(EVP_PKEY_decrypt_init(decrypting.get()), 1);
    ASSERT_EQ(EVP_PKEY_encrypt_init(encrypting.get()), 1);
    for (EVP_PKEY_CTX* context : {decrypting.get(), encrypting.get()}) {
        ASSERT_EQ(EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING), 1);
        ASSERT_EQ(EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256()), 1);
        ASSERT_EQ(EVP_PKEY_CTX_set_rsa_mgf1_md(context, EVP_sha256()), 1);
    }

    const Data plain = pattern(300);
    const auto ours = NBCryptor::encryptData(plain, *publicKey_);
    ASSERT_TRUE(ours);
    ASSERT_EQ(ours->size(), 512u);
    Data decrypted, theirs(512);
    for (std::size_t i = 0; i < 2; ++i) {
        std::uint8_t block[256];
        std::size_t length = sizeof block;
        ASSERT_EQ(EVP_PKEY_decrypt(decrypting.get(), block, &length, ours->data() + i * 256, 256), 1);
        decrypted.insert(decrypted.end(), block, block + length);
        length = 256;
        ASSERT_EQ(EVP_PKEY_encrypt(encrypting.get(), theirs.data() + i * 256, &length, plain.data() + i * 190,
                                   std::min<std::size_t>(190, plain.size() - i * 190)),
                  1);
    }
    EXPECT_EQ(decrypted, plain);
    EXPECT_EQ(NBCryptor::decryptData(theirs, *privateKey_), plain);
}

TEST_F(NBCryptorTest, DecryptionFailsWhole) {
    const auto cipher = NBCryptor::encryptData(pattern(300), *publicKey_);
    ASSERT_TRUE(cipher);
    const Pkey other = rsaKey(2048);
    const auto otherPrivate = NBKeyLoader::loadPEMPrivateKey(pemOf(other.get(), true));
    ASSERT_TRUE(otherPrivate);
    Data damaged = *cipher;
    damaged[300] ^= 1;

    const struct Case {
        const char* name;
        Data cipher;
        const nb::NBPrivateKey& key;
    } cases[] = {
        {"wrong key", *cipher, *otherPrivate},
        {"second block damaged", damaged, *privateKey_},
        {"not whole blocks", Data(cipher->begin(), cipher->end() - 1), *privateKey_},
        {"empty", Data(), *privateKey_},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string error;
        EXPECT_EQ(NBCryptor::decryptData(c.cipher, c.key, &error), std::nullopt);
        EXPECT_FALSE(error.empty());
    }
}

TEST(NBKeyLoader, AcceptsPkcs1PrivateKeysAndTextAroundTheBlock) {
    const auto publicKey = NBKeyLoader::loadX509PEMPublicKey("issued for development\n" + kPublicPem + "\ntrailer\n");
    ASSERT_TRUE(publicKey);
    EXPECT_EQ(publicKey->sizeInBits(), 2048);

    const std::string pkcs1 = pemOf(developmentPrivateKey().get(), true, true);
    ASSERT_NE(pkcs1.find("BEGIN RSA PRIVATE KEY"), std::string::npos);
    const auto privateKey = NBKeyLoader::loadPEMPrivateKey(pkcs1);
    ASSERT_TRUE(privateKey);
    const auto cipher = NBCryptor::encryptData(pattern(10), *publicKey);
    ASSERT_TRUE(cipher);
    EXPECT_EQ(NBCryptor::decryptData(*cipher, *privateKey), pattern(10));
}

TEST(NBKeyLoader, RefusesWhatItDoesNotRead) {
    const Pkey ec(EVP_EC_gen("P-256"), EVP_PKEY_free), tiny = rsaKey(512), rsa = rsaKey(1024);
    std::string pkcs1Public = kPublicPem;
    for (const char* marker : {"BEGIN ", "END "}) pkcs1Public.insert(pkcs1Public.find(marker) + 6, "RSA ");
    std::string garbled = kPublicPem;
    garbled.replace(40, 8, "!!!!!!!!");
    const std::string certificate = "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n";

    const struct Case {
        bool wantsPrivate;
        std::string pem, reason;
    } cases[] = {
        {false, "", "empty"},
        {false, "not a key at all", "no PEM block"},
        {false, garbled, "unreadable PUBLIC KEY block"},
        {false, kPrivatePem, "found \"PRIVATE KEY\""},
        {false, pkcs1Public, "found \"RSA PUBLIC KEY\""},
        {false, certificate + kPublicPem, "found \"CERTIFICATE\""},
        {false, pemOf(ec.get(), false), "not an RSA key (EC)"},
        {false, pemOf(tiny.get(), false), "512 bits is under the minimum of 1024"},
        {true, "", "empty"},
        {true, kPublicPem, "found \"PUBLIC KEY\""},
        {true, pemOf(ec.get(), true), "not an RSA key (EC)"},
        {true, pemOf(tiny.get(), true), "512 bits is under the minimum"},
        {true, pemOf(rsa.get(), true, true, "secret"), "encrypted private keys are not supported"},
        {true, pemOf(rsa.get(), true, false, "secret"), "found \"ENCRYPTED PRIVATE KEY\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pem);
        std::string error;
        const bool loaded = c.wantsPrivate ? NBKeyLoader::loadPEMPrivateKey(c.pem, &error) != nullptr
                                           : NBKeyLoader::loadX509PEMPublicKey(c.pem, &error) != nullptr;
        EXPECT_FALSE(loaded);
        EXPECT_NE(error.find(c.reason), std::string::npos) << error;
    }
}

}  // namespace
