#pragma once

#include <zstd.h>

#include <memory>
#include <string>

#include "release/manifest.hpp"

namespace velk::test {

// A zstd frame rebuilding `target` from the prefix `base` as the publisher makes them (the
// window the updater allows, the result's size stated unless `statesSize` is false).
inline std::string zstdPatch(const std::string& base, const std::string& target, bool statesSize = true) {
    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> encoder(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_windowLog,
                           static_cast<int>(updater::patchWindowLog(base.size(), target.size())));
    ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_contentSizeFlag, statesSize ? 1 : 0);
    ZSTD_CCtx_refPrefix(encoder.get(), base.data(), base.size());
    std::string patch(ZSTD_compressBound(target.size()), '\0');
    patch.resize(ZSTD_compress2(encoder.get(), patch.data(), patch.size(), target.data(), target.size()));
    return patch;
}

}  // namespace velk::test
