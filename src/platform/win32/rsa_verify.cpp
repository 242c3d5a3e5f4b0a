#include "platform/rsa_verify.hpp"

#include <windows.h>
#include <bcrypt.h>
#include <wincrypt.h>

namespace velk::updater::platform {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace

RsaVerifyStatus verifyRsaPkcs1Sha256(const std::vector<std::uint8_t>& publicKeyDer,
                                     const std::vector<std::uint8_t>& digest,
                                     const std::vector<std::uint8_t>& signature) {
    CERT_PUBLIC_KEY_INFO* keyInfo = nullptr;
    DWORD keyInfoSize = 0;
    if (!CryptDecodeObjectEx(kEncoding, X509_PUBLIC_KEY_INFO, publicKeyDer.data(),
                             static_cast<DWORD>(publicKeyDer.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, &keyInfo,
                             &keyInfoSize)) {
        return RsaVerifyStatus::KeyNotParsed;
    }

    BCRYPT_ALG_HANDLE provider = nullptr;
    if (BCryptOpenAlgorithmProvider(&provider, BCRYPT_RSA_ALGORITHM, nullptr, 0) < 0) {
        LocalFree(keyInfo);
        return RsaVerifyStatus::ProviderUnavailable;
    }

    // The bit string holds the PKCS #1 key; the decoder turns it into CNG's public blob.
    BCRYPT_RSAKEY_BLOB* blob = nullptr;
    DWORD blobSize = 0;
    BCRYPT_KEY_HANDLE key = nullptr;
    const bool converted = CryptDecodeObjectEx(kEncoding, CNG_RSA_PUBLIC_KEY_BLOB, keyInfo->PublicKey.pbData,
                                               keyInfo->PublicKey.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &blob,
                                               &blobSize) != FALSE;
    const bool imported = converted && BCryptImportKeyPair(provider, nullptr, BCRYPT_RSAPUBLIC_BLOB, &key,
                                                           reinterpret_cast<PUCHAR>(blob), blobSize, 0) >= 0;
    if (blob != nullptr) LocalFree(blob);
    if (!imported) {
        BCryptCloseAlgorithmProvider(provider, 0);
        LocalFree(keyInfo);
        return RsaVerifyStatus::KeyNotImported;
    }

    BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
    const NTSTATUS status = BCryptVerifySignature(
        key, &padding, const_cast<PUCHAR>(digest.data()), static_cast<ULONG>(digest.size()),
        const_cast<PUCHAR>(signature.data()), static_cast<ULONG>(signature.size()), BCRYPT_PAD_PKCS1);
    BCryptDestroyKey(key);
    BCryptCloseAlgorithmProvider(provider, 0);
    LocalFree(keyInfo);
    return status >= 0 ? RsaVerifyStatus::Valid : RsaVerifyStatus::Invalid;
}

}  // namespace velk::updater::platform
