#include "platform/sha256.hpp"

#include <openssl/evp.h>

namespace velk::updater::platform {

struct Sha256::Impl {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(),
                                                                    EVP_MD_CTX_free};
    bool ok = false;
};

Sha256::Sha256() : impl_(std::make_unique<Impl>()) {
    impl_->ok =
        impl_->context && EVP_DigestInit_ex(impl_->context.get(), EVP_sha256(), nullptr) == 1;
}

Sha256::~Sha256() = default;

bool Sha256::ready() const { return impl_->ok; }

bool Sha256::update(const void* data, std::size_t size) {
    if (!impl_->ok) return false;
    impl_->ok = EVP_DigestUpdate(impl_->context.get(), data, size) == 1;
    return impl_->ok;
}

std::optional<Sha256Digest> Sha256::finish() {
    if (!impl_->ok) return std::nullopt;
    impl_->ok = false;  // a finished context takes no more bytes
    Sha256Digest digest{};
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(impl_->context.get(), digest.data(), &length) != 1 ||
        length != digest.size()) {
        return std::nullopt;
    }
    return digest;
}

std::optional<Sha256Digest> sha256Of(const void* data, std::size_t size) {
    Sha256Digest digest{};
    unsigned int length = 0;
    if (EVP_Digest(data, size, digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
        length != digest.size()) {
        return std::nullopt;
    }
    return digest;
}

}  // namespace velk::updater::platform
