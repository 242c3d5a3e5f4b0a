// libFuzzer target: a registry whose product record anyone with local rights may have
// edited. The cohort a run uses is always one of the real cohorts, and once kept it is the
// one the record holds.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "app/settings.hpp"
#include "crypto/crypto_utils.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"

namespace {

std::filesystem::path registryFile() {
    static const std::filesystem::path file = [] {
        char name[] = "/tmp/velk_cohort_fuzz_XXXXXX";
        const std::filesystem::path root = mkdtemp(name);
        setenv("VELK_SYSTEM_ROOT", root.c_str(), 1);
        return root / "registry.reg";
    }();
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    registryFile();
    return velk::updater::CryptoUtils::initialize() ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velk::updater;
    std::ofstream(registryFile(), std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                            static_cast<std::streamsize>(size));
    const std::uint32_t cohort = rolloutCohort();
    if (cohort >= kRolloutCohorts) __builtin_trap();
    const auto kept = getRolloutCohort();
    if (kept && *kept != cohort) __builtin_trap();
    return 0;
}
