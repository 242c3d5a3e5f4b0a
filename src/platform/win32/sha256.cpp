#include "platform/sha256.hpp"

// <windows.h> first: <bcrypt.h> needs its types.
#include <windows.h>

#include <bcrypt.h>

#include <algorithm>
#include <limits>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {

struct Sha256::Impl {
    Impl() {
        // The object buffer is left to CNG (null, 0), which Windows 7 and later allow.
        ok = BCryptOpenAlgorithmProvider(algorithm.put(), BCRYPT_SHA256_ALGORITHM, nullptr, 0) >= 0 &&
             BCryptCreateHash(algorithm.get(), hash.put(), nullptr, 0, nullptr, 0, 0) >= 0;
    }
    win32::CngAlgorithm algorithm;
    win32::CngHash hash;
    bool ok = false;
};

Sha256::Sha256() : impl_(std::make_unique<Impl>()) {}

Sha256::~Sha256() = default;

bool Sha256::ready() const { return impl_->ok; }

bool Sha256::update(const void* data, std::size_t size) {
    // CNG takes at most a ULONG of bytes per call.
    const auto* bytes = static_cast<const UCHAR*>(data);
    while (impl_->ok && size > 0) {
        const ULONG piece =
            static_cast<ULONG>(std::min<std::size_t>(size, std::numeric_limits<ULONG>::max()));
        impl_->ok = BCryptHashData(impl_->hash.get(), const_cast<PUCHAR>(bytes), piece, 0) >= 0;
        bytes += piece;
        size -= piece;
    }
    return impl_->ok;
}

std::optional<Sha256Digest> Sha256::finish() {
    if (!impl_->ok) return std::nullopt;
    impl_->ok = false;  // a finished hash takes no more bytes
    Sha256Digest digest{};
    if (BCryptFinishHash(impl_->hash.get(), digest.data(), static_cast<ULONG>(digest.size()), 0) <
        0) {
        return std::nullopt;
    }
    return digest;
}

std::optional<Sha256Digest> sha256Of(const void* data, std::size_t size) {
    Sha256 hash;
    if (!hash.update(data, size)) return std::nullopt;
    return hash.finish();
}

}  // namespace velk::updater::platform
