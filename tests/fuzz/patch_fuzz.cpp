// libFuzzer target: any bytes applied as a patch to a small installed copy. Nothing larger
// than the entry's size is ever written, and what is reported as applied is what the file holds.
#include <iterator>

#include "delivery/patch.hpp"
#include "fuzz_support.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velk::updater;
    namespace fs = std::filesystem;
    constexpr std::uint64_t kFileSize = 16 * 1024;
    static const std::string base = [] {
        std::string bytes(8 * 1024, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 % 251);
        return bytes;
    }();
    const fs::path patch = velk::fuzz::workFolder() / "VELK.dll.patch";
    const fs::path output = velk::fuzz::workFolder() / "VELK.dll.tmp";
    fs::remove(output);
    velk::fuzz::writeInput(patch, data, size);
    const PatchOutcome outcome = applyPatch(base, patch.string(), output.string(), kFileSize);
    std::error_code absent;
    if (fs::file_size(output, absent) > kFileSize && !absent) __builtin_trap();
    if (outcome.applied) {
        std::ifstream in(output, std::ios::binary);
        const std::string written((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (!outcome.digest || platform::sha256Of(written.data(), written.size()) != outcome.digest) __builtin_trap();
    }
    return 0;
}
