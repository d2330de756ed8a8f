// The feedback page's sealed value: buildDataValue on the five pairs a signed-in user sends (join, query
// encoding, RSA-OAEP under the built-in 2048-bit key, base64), beside OpenSSL's own EVP_PKEY_encrypt of the
// same bytes with the same key and padding and nothing else. RSA encryption is the whole cost on both
// sides; the figure to read is the ratio.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/RecordingWorkspace.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/support/NBFeedbackSession.h"

namespace {

const nb::Value& pairs() {
    static const nb::Value value = nb::Value::dictionary({{"userid", "10086"},
                                                          {"version", "3.2.0"},
                                                          {"os", "Debian GNU/Linux 12 (bookworm)"},
                                                          {"net", "wifi"},
                                                          {"t", "1795000000123"}});
    return value;
}

void BM_BuildDataValue(benchmark::State& state) {
    char folder[] = "/tmp/nbbench-feedback-XXXXXX";
    if (::mkdtemp(folder) == nullptr) return state.SkipWithError("no temporary folder");
    nb::NBConfiguration configuration(
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), folder), folder);
    nb::NBNetworkCheck network([] { return nb::NBNetworkCheck::kWired; });
    nb::NBLog log;
    nb::NimboSdkManager bridge({}, {}, configuration, network, log);
    nb::RecordingWorkspace workspace;
    nb::NBFeedbackSession session(configuration, bridge, workspace, [] { return nb::NBDeviceInfo("", ""); },
                                  {}, nb::Clock::system(), log);
    for (auto _ : state) {
        std::string sealed = session.buildDataValue(pairs());
        if (sealed.empty()) return state.SkipWithError("nothing sealed");
        benchmark::DoNotOptimize(sealed);
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_BuildDataValue);

void BM_OpenSslEncryptSameBytes(benchmark::State& state) {
    // The text buildDataValue seals for these pairs: joined and query-encoded.
    const std::string text = "userid=10086&version=3.2.0&os=Debian%20GNU/Linux%2012%20(bookworm)&net=wifi&t=1795000000123";
    const std::string_view pem = nb::NBFeedbackSession::builtInPublicKeyPem();
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                        &BIO_free);
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr),
                                                                  &EVP_PKEY_free);
    if (!key) return state.SkipWithError("key not loaded");
    unsigned char out[512];
    for (auto _ : state) {
        const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                             &EVP_PKEY_CTX_free);
        std::size_t length = sizeof out;
        if (EVP_PKEY_encrypt_init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_OAEP_PADDING) <= 0 ||
            EVP_PKEY_CTX_set_rsa_oaep_md(ctx.get(), EVP_sha256()) <= 0 ||
            EVP_PKEY_CTX_set_rsa_mgf1_md(ctx.get(), EVP_sha256()) <= 0 ||
            EVP_PKEY_encrypt(ctx.get(), out, &length, reinterpret_cast<const unsigned char*>(text.data()),
                             text.size()) <= 0) {
            return state.SkipWithError("encryption failed");
        }
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_OpenSslEncryptSameBytes);

}  // namespace

BENCHMARK_MAIN();
