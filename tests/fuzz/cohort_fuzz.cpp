// libFuzzer target: a product record anyone with local rights may have edited. The cohort a
// run uses is always a real one, and once kept it is the one the record holds.
#include "app/settings.hpp"
#include "crypto/crypto_utils.hpp"
#include "fuzz_support.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("VELK_SYSTEM_ROOT", velk::fuzz::workFolder().c_str(), 1);
    return velk::updater::CryptoUtils::initialize() ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velk::updater;
    velk::fuzz::writeInput(velk::fuzz::workFolder() / "registry.reg", data, size);
    const std::uint32_t cohort = rolloutCohort();
    if (cohort >= kRolloutCohorts) __builtin_trap();
    const auto kept = getRolloutCohort();
    if (kept && *kept != cohort) __builtin_trap();
    return 0;
}
