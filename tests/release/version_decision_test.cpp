#include "release/version_decision.hpp"

#include <gtest/gtest.h>

#include "release/version_order.hpp"

namespace velk::updater {
namespace {

// One order for every version gate: numeric components, at least three, unreadable ones 0.
TEST(VersionOrder, ComponentsCompareAsNumbers) {
    struct Row {
        const char* a;
        const char* b;
        int order;
    };
    for (const Row& row : {
             Row{"10.0.0", "9.0.0", 1},
             Row{"1.2.10", "1.2.9", 1},
             Row{"2.0.0", "10.0.0", -1},
             Row{"1.10.0", "1.9.0", 1},
             Row{"1.2.3.4", "1.2.3", 1},
             Row{"1.0", "1.0.0", 0},
             Row{"1.2.", "1.2.0", 0},
             Row{"2.0.0-beta", "2.0.0", 0},
             Row{" 3.-1", "3.0", -1},
             Row{"0.0.1", "0.0.0", 1},
             Row{"99999999999.0", "0.0", 0},
             Row{"", "0", 0},
             Row{"1.0.0", "1.0.0", 0},
         }) {
        EXPECT_EQ(compareVersionComponents(row.a, row.b), row.order) << row.a << " vs " << row.b;
    }
}

TEST(VersionDecision, ValidateVersionAppliesTheDowngradePolicyToNumericOrder) {
    EXPECT_EQ(validateVersion("10.0.0", "", true).message, "Target version is empty");
    EXPECT_FALSE(validateVersion("", "", true).valid);

    for (bool allow : {true, false}) {
        const ValidationResult fresh = validateVersion("", "0.1", allow);
        EXPECT_TRUE(fresh.valid);
        EXPECT_EQ(fresh.message, "No installed version found - assuming fresh install or legacy version");
    }

    const ValidationResult allowed = validateVersion("10.0.0", "9.0.0", true);
    EXPECT_TRUE(allowed.valid);
    EXPECT_EQ(allowed.message, "Downgrade allowed: 10.0.0 -> 9.0.0");
    const ValidationResult refused = validateVersion("10.0.0", "9.0.0", false);
    EXPECT_FALSE(refused.valid);
    EXPECT_EQ(refused.message,
              "Downgrade detected: installed version 10.0.0 is newer than target version 9.0.0");
    EXPECT_TRUE(refused.missingItems.empty());

    EXPECT_EQ(validateVersion("10.0.0", "10.0.1", false).message, "Upgrade: 10.0.0 -> 10.0.1");
    EXPECT_EQ(validateVersion("10.0.0", "10.0", false).message, "Target version matches installed version (10.0.0)");
}

}  // namespace
}  // namespace velk::updater
