#include "delivery/patch.hpp"

#include <zstd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/private_files.hpp"
#include "release/manifest.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

using Decoder = std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)>;

PatchOutcome failed(std::string error) {
    PatchOutcome outcome;
    outcome.error = std::move(error);
    return outcome;
}

// The patch was fetched within its listed size and checked by its digest: it fits in memory.
bool readWhole(const std::string& path, std::vector<char>& bytes) {
    std::error_code error;
    const std::uint64_t size = fs::file_size(path, error);
    if (error) return false;
    std::ifstream in(path, std::ios::binary);
    bytes.resize(size);
    return static_cast<bool>(in.read(bytes.data(), static_cast<std::streamsize>(size)));
}

// Why the patch is refused before anything is decoded: it must be one whole frame that
// states the size it makes, no larger than `fileSize`.
std::string frameProblem(const std::vector<char>& patch, std::uint64_t fileSize) {
    const std::size_t frameSize = ZSTD_findFrameCompressedSize(patch.data(), patch.size());
    if (ZSTD_isError(frameSize)) return "Patch is cut short or damaged";
    if (frameSize != patch.size()) return "Data after the patch's frame";
    const unsigned long long declared = ZSTD_getFrameContentSize(patch.data(), patch.size());
    if (declared == ZSTD_CONTENTSIZE_ERROR || declared == ZSTD_CONTENTSIZE_UNKNOWN) {
        return "Patch does not state the size of its result";
    }
    if (declared > fileSize) return "Patch result larger than the expected " + std::to_string(fileSize) + " bytes";
    return "";
}

// Streams the frame through the decoder into `out`, which never takes more than `fileSize`
// bytes whatever the frame claimed; an empty text when it decoded whole.
std::string decode(ZSTD_DCtx* decoder, const std::vector<char>& patch, platform::OutputFile& out,
                   platform::Sha256& digest, std::uint64_t fileSize) {
    std::vector<char> block(ZSTD_DStreamOutSize());
    ZSTD_inBuffer input{patch.data(), patch.size(), 0};
    std::uint64_t written = 0;
    std::size_t pending = 1;  // the decoder's hint: 0 once the frame is complete
    while (pending != 0) {
        ZSTD_outBuffer output{block.data(), block.size(), 0};
        pending = ZSTD_decompressStream(decoder, &output, &input);
        if (ZSTD_isError(pending)) return std::string("Patch cannot be decoded: ") + ZSTD_getErrorName(pending);
        if (output.pos == 0 && input.pos == input.size && pending != 0) return "Patch is cut short or damaged";
        written += output.pos;
        if (written > fileSize) return "Patch result larger than the expected " + std::to_string(fileSize) + " bytes";
        if (!out.write(block.data(), output.pos)) return "Cannot write the patched file";
        digest.update(block.data(), output.pos);
    }
    return "";
}

}  // namespace

PatchOutcome applyPatch(const std::vector<char>& base, const std::string& patchPath, const std::string& outputPath,
                        std::uint64_t fileSize) {
    const std::uint32_t windowLog = patchWindowLog(base.size(), fileSize);
    if (windowLog > kMaxPatchWindowLog) return failed("Installed copy and file too large for a patch");
    std::vector<char> patch;
    if (!readWhole(patchPath, patch)) return failed("Cannot read the patch");
    if (const std::string problem = frameProblem(patch, fileSize); !problem.empty()) return failed(problem);

    // No more history than the base and the file need, so a frame cannot demand a large window.
    Decoder decoder(ZSTD_createDCtx(), ZSTD_freeDCtx);
    if (!decoder || ZSTD_isError(ZSTD_DCtx_setParameter(decoder.get(), ZSTD_d_windowLogMax, static_cast<int>(windowLog))) ||
        ZSTD_isError(ZSTD_DCtx_refPrefix(decoder.get(), base.data(), base.size()))) {
        return failed("Cannot start the patch decoder");
    }
    platform::OutputFile out;
    std::string error;
    if (!out.open(outputPath, platform::OutputFile::Mode::CreateNew, error)) return failed(error);
    platform::Sha256 digest;
    std::string problem = decode(decoder.get(), patch, out, digest, fileSize);
    if (!out.close() && problem.empty()) problem = "Cannot write the patched file";
    if (!problem.empty()) return failed(problem);
    PatchOutcome outcome;
    outcome.applied = true;
    outcome.digest = digest.finish();
    return outcome;
}

}  // namespace velk::updater
