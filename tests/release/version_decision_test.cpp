#include "release/version_decision.hpp"

#include <gtest/gtest.h>

namespace velk::updater {
namespace {

// Checked once more right before files change: the same order, the same downgrade policy.
TEST(VersionDecision, ValidateVersionAppliesTheDowngradePolicyToNumericOrder) {
    struct Row { const char *installed, *target; bool allowDowngrades, valid; std::string message; };
    const std::string fresh = "No installed version found - assuming fresh install or legacy version";
    for (const Row& row : {
             Row{"10.0.0", "", true, false, "Target version is empty"},
             Row{"", "0.1", true, true, fresh},
             Row{"10.0.0", "9.0.0", true, true, "Downgrade allowed: 10.0.0 -> 9.0.0"},
             Row{"10.0.0", "9.0.0", false, false, "Downgrade detected: installed version 10.0.0 is newer than target version 9.0.0"},
             Row{"10.0.0", "10.0.1", false, true, "Upgrade: 10.0.0 -> 10.0.1"},
             Row{"10.0.0", "10.0", false, true, "Target version matches installed version (10.0.0)"},
         }) {
        const ValidationResult result = validateVersion(row.installed, row.target, row.allowDowngrades);
        EXPECT_EQ(result.valid, row.valid) << row.installed << " -> " << row.target;
        EXPECT_EQ(result.message, row.message);
        EXPECT_TRUE(result.missingItems.empty());
    }
}

}  // namespace
}  // namespace velk::updater
