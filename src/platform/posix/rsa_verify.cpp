#include "platform/rsa_verify.hpp"

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace velk::updater::platform {

RsaVerifyStatus verifyRsaPkcs1Sha256(const std::vector<std::uint8_t>& publicKeyDer,
                                     const std::vector<std::uint8_t>& digest,
                                     const std::vector<std::uint8_t>& signature) {
    const unsigned char* cursor = publicKeyDer.data();
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        d2i_PUBKEY(nullptr, &cursor, static_cast<long>(publicKeyDer.size())), EVP_PKEY_free);
    // Trailing bytes after the structure mean it was not a SubjectPublicKeyInfo either.
    if (!key || cursor != publicKeyDer.data() + publicKeyDer.size()) return RsaVerifyStatus::KeyNotParsed;
    if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_RSA) return RsaVerifyStatus::KeyNotImported;

    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                        EVP_PKEY_CTX_free);
    if (!context || EVP_PKEY_verify_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1) {
        return RsaVerifyStatus::ProviderUnavailable;
    }
    const int verified = EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size());
    return verified == 1 ? RsaVerifyStatus::Valid : RsaVerifyStatus::Invalid;
}

}  // namespace velk::updater::platform
