#include "platform/rsa_verify.hpp"

#include <windows.h>
#include <bcrypt.h>
#include <wincrypt.h>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace

RsaVerifyStatus verifyRsaPkcs1Sha256(const std::vector<std::uint8_t>& publicKeyDer,
                                     const std::vector<std::uint8_t>& digest,
                                     const std::vector<std::uint8_t>& signature) {
    win32::LocalMemory<CERT_PUBLIC_KEY_INFO> keyInfo;
    DWORD keyInfoSize = 0;
    if (!CryptDecodeObjectEx(kEncoding, X509_PUBLIC_KEY_INFO, publicKeyDer.data(),
                             static_cast<DWORD>(publicKeyDer.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, keyInfo.put(),
                             &keyInfoSize)) {
        return RsaVerifyStatus::KeyNotParsed;
    }

    win32::CngAlgorithm provider;
    if (BCryptOpenAlgorithmProvider(provider.put(), BCRYPT_RSA_ALGORITHM, nullptr, 0) < 0) {
        return RsaVerifyStatus::ProviderUnavailable;
    }

    // The bit string holds the PKCS #1 key; the decoder turns it into CNG's public blob.
    win32::LocalMemory<BCRYPT_RSAKEY_BLOB> blob;
    DWORD blobSize = 0;
    win32::CngKey key;
    const bool converted = CryptDecodeObjectEx(kEncoding, CNG_RSA_PUBLIC_KEY_BLOB, keyInfo.get()->PublicKey.pbData,
                                               keyInfo.get()->PublicKey.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr,
                                               blob.put(), &blobSize) != FALSE;
    const bool imported = converted && BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_RSAPUBLIC_BLOB, key.put(),
                                                           reinterpret_cast<PUCHAR>(blob.get()), blobSize, 0) >= 0;
    if (!imported) return RsaVerifyStatus::KeyNotImported;

    BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
    const NTSTATUS status = BCryptVerifySignature(
        key.get(), &padding, const_cast<PUCHAR>(digest.data()), static_cast<ULONG>(digest.size()),
        const_cast<PUCHAR>(signature.data()), static_cast<ULONG>(signature.size()), BCRYPT_PAD_PKCS1);
    return status >= 0 ? RsaVerifyStatus::Valid : RsaVerifyStatus::Invalid;
}

}  // namespace velk::updater::platform
