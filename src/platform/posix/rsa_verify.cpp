#include "platform/rsa_verify.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

namespace velk::updater::platform {

RsaVerifyStatus verifyRsaPkcs1Sha256(const std::vector<std::uint8_t>& publicKeyDer,
                                     const std::vector<std::uint8_t>& digest,
                                     const std::vector<std::uint8_t>& signature) {
    // Two steps, as on Windows: the SubjectPublicKeyInfo structure, then the PKCS #1 RSA
    // key in its bit string. A well-formed structure holding anything else is a key that
    // cannot be imported, not one that cannot be parsed.
    const unsigned char* cursor = publicKeyDer.data();
    std::unique_ptr<X509_PUBKEY, decltype(&X509_PUBKEY_free)> info(
        d2i_X509_PUBKEY(nullptr, &cursor, static_cast<long>(publicKeyDer.size())), X509_PUBKEY_free);
    ERR_clear_error();
    if (!info || cursor != publicKeyDer.data() + publicKeyDer.size()) return RsaVerifyStatus::KeyNotParsed;
    const unsigned char* bits = nullptr;
    int bitsLength = 0;
    if (X509_PUBKEY_get0_param(nullptr, &bits, &bitsLength, nullptr, info.get()) != 1) {
        return RsaVerifyStatus::KeyNotImported;
    }
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(d2i_PublicKey(EVP_PKEY_RSA, nullptr, &bits, bitsLength),
                                                            EVP_PKEY_free);
    ERR_clear_error();
    if (!key) return RsaVerifyStatus::KeyNotImported;

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
