#include "delivery/patch.hpp"

#include <zstd.h>

#include <future>
#include <memory>
#include <variant>

#include "platform/memory_block.hpp"
#include "platform/private_files.hpp"
#include "release/manifest.hpp"

namespace velk::updater {
namespace {

using Decoder = std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)>;

PatchOutcome failed(std::string error) {
    PatchOutcome outcome;
    outcome.error = std::move(error);
    return outcome;
}

// The size the patch makes, or why it is refused before anything is decoded: it must be one
// whole frame that states that size, no larger than `fileSize`.
std::variant<std::uint64_t, std::string> declaredSize(std::span<const char> patch, std::uint64_t fileSize) {
    const std::size_t frameSize = ZSTD_findFrameCompressedSize(patch.data(), patch.size());
    if (ZSTD_isError(frameSize)) return "Patch is cut short or damaged";
    if (frameSize != patch.size()) return "Data after the patch's frame";
    const unsigned long long declared = ZSTD_getFrameContentSize(patch.data(), patch.size());
    if (declared == ZSTD_CONTENTSIZE_ERROR || declared == ZSTD_CONTENTSIZE_UNKNOWN) {
        return "Patch does not state the size of its result";
    }
    if (declared > fileSize) return "Patch result larger than the expected " + std::to_string(fileSize) + " bytes";
    return static_cast<std::uint64_t>(declared);
}

// Decodes the frame in one pass straight into `result`, which is exactly the size the frame
// stated: the decoder keeps no window of its own, and a frame that would make more stops at
// the end of the block. An empty text when it decoded whole.
std::string decode(ZSTD_DCtx* decoder, std::span<const char> patch, platform::MemoryBlock& result) {
    const std::size_t made = ZSTD_decompressDCtx(decoder, result.data(), result.size(), patch.data(), patch.size());
    if (ZSTD_isError(made)) return std::string("Patch cannot be decoded: ") + ZSTD_getErrorName(made);
    if (made != result.size()) return "Patch result shorter than it stated";
    return "";
}

std::string writeResult(const std::string& outputPath, const platform::MemoryBlock& result) {
    platform::OutputFile out;
    std::string error;
    if (!out.open(outputPath, platform::OutputFile::Mode::CreateNew, error)) return error;
    const bool written = out.write(result.data(), result.size());
    if (!out.close() || !written) return "Cannot write the patched file";
    return "";
}

}  // namespace

PatchOutcome applyPatch(std::span<const char> base, const std::string& patchPath, const std::string& outputPath,
                        std::uint64_t fileSize) {
    if (patchWindowLog(base.size(), fileSize) > kMaxPatchWindowLog) return failed("Installed copy and file too large for a patch");
    // The patch was fetched within its listed size and checked by its digest: a view is enough.
    platform::MappedFile view;
    std::string error;
    if (!view.open(patchPath, error)) return failed("Cannot read the patch: " + error);
    const std::span<const char> patch(view.data(), view.size());
    const auto size = declaredSize(patch, fileSize);
    if (const auto* problem = std::get_if<std::string>(&size)) return failed(*problem);

    // Memory stays bounded by the base and the stated size, both within the cap checked above.
    Decoder decoder(ZSTD_createDCtx(), ZSTD_freeDCtx);
    if (!decoder || ZSTD_isError(ZSTD_DCtx_refPrefix(decoder.get(), base.data(), base.size()))) {
        return failed("Cannot start the patch decoder");
    }
    platform::MemoryBlock result;
    if (!result.allocate(std::get<std::uint64_t>(size))) return failed("No memory for the patched file");
    if (std::string problem = decode(decoder.get(), patch, result); !problem.empty()) return failed(problem);
    // Hashed on the other core while it is written.
    auto digest = std::async(std::launch::async, [&result] { return platform::sha256Of(result.data(), result.size()); });
    const std::string problem = writeResult(outputPath, result);
    PatchOutcome outcome;
    outcome.digest = digest.get();
    if (!problem.empty()) return failed(problem);
    outcome.applied = true;
    return outcome;
}

}  // namespace velk::updater
