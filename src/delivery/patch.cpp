#include "delivery/patch.hpp"

#include <zstd.h>

#include <fstream>
#include <memory>
#include <vector>

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

// Streams the frame through the decoder into `out`; an empty text when the whole frame, and
// nothing after it, was decoded within `fileSize` bytes.
std::string decode(ZSTD_DCtx* decoder, std::ifstream& patch, platform::OutputFile& out, platform::Sha256& digest,
                   std::uint64_t fileSize) {
    std::vector<char> inBlock(ZSTD_DStreamInSize());
    std::vector<char> outBlock(ZSTD_DStreamOutSize());
    std::uint64_t written = 0;
    std::size_t pending = 1;  // the decoder's hint: 0 once a frame is complete
    while (patch.read(inBlock.data(), static_cast<std::streamsize>(inBlock.size())) || patch.gcount() > 0) {
        if (pending == 0) return "Data after the patch's frame";
        ZSTD_inBuffer input{inBlock.data(), static_cast<std::size_t>(patch.gcount()), 0};
        while (input.pos < input.size) {
            ZSTD_outBuffer output{outBlock.data(), outBlock.size(), 0};
            pending = ZSTD_decompressStream(decoder, &output, &input);
            if (ZSTD_isError(pending)) return std::string("Patch cannot be decoded: ") + ZSTD_getErrorName(pending);
            written += output.pos;
            if (written > fileSize) return "Patch result larger than the expected " + std::to_string(fileSize) + " bytes";
            if (!out.write(outBlock.data(), output.pos)) return "Cannot write the patched file";
            digest.update(outBlock.data(), output.pos);
            if (pending == 0 && input.pos < input.size) return "Data after the patch's frame";
        }
    }
    return pending == 0 ? "" : "Patch is cut short";
}

}  // namespace

PatchOutcome applyPatch(const std::vector<char>& base, const std::string& patchPath, const std::string& outputPath,
                        std::uint64_t fileSize) {
    const std::uint32_t windowLog = patchWindowLog(base.size(), fileSize);
    if (windowLog > kMaxPatchWindowLog) return failed("Installed copy and file too large for a patch");
    std::ifstream patch(patchPath, std::ios::binary);
    if (!patch) return failed("Cannot read the patch");

    Decoder decoder(ZSTD_createDCtx(), ZSTD_freeDCtx);
    if (!decoder || ZSTD_isError(ZSTD_DCtx_setParameter(decoder.get(), ZSTD_d_windowLogMax, static_cast<int>(windowLog))) ||
        ZSTD_isError(ZSTD_DCtx_refPrefix(decoder.get(), base.data(), base.size()))) {
        return failed("Cannot start the patch decoder");
    }
    platform::OutputFile out;
    std::string openError;
    if (!out.open(outputPath, platform::OutputFile::Mode::CreateNew, openError)) return failed(openError);
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
