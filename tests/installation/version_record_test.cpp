#include "installation/version_record.hpp"

#include <gtest/gtest.h>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

using test::kProductKeyHeader;
using test::readFile;
using test::writeRegistry;

class VersionRecordTest : public test::SystemRootTest {
protected:
    void registry(const std::string& values) { writeRegistry(root(), kProductKeyHeader + values); }
    std::string registryText() const { return readFile(root() / "registry.reg"); }
};

// Both are read as text without trailing NULs; "VELKInstalled" stands in for a "Version"
// that cannot be read as text.
TEST_F(VersionRecordTest, VersionAndBuildAreReadAsTextWithTheSecondCopyAsFallback) {
    const struct { std::string values, version, build; } rows[] = {
        {"", "", ""},
        {"\"Version\"=\"2.0.0\"\n\"VELKInstalled\"=\"1.0.3\"\n\"BuildNumber\"=\"7\"", "2.0.0", "7"},
        {"\"Version\"=dword:00000001\n\"VELKInstalled\"=\"1.0.3\"\n\"BuildNumber\"=dword:00000007", "1.0.3", ""},
        {"\"VELKInstalled\"=\"1.0.3\"", "1.0.3", ""},
        {"\"Version\"=dword:00000001", "", ""},
        // "1.0.5" and "42", each followed by two NULs, in the export's UTF-16 form.
        {"\"Version\"=hex(1):31,00,2e,00,30,00,2e,00,35,00,00,00,00,00\n\"BuildNumber\"=hex(1):34,00,32,00,00,00,00,00", "1.0.5", "42"},
    };
    for (const auto& row : rows) {
        registry(row.values + "\n");
        EXPECT_EQ(getInstalledVersion(), row.version) << row.values;
        EXPECT_EQ(getInstalledBuildNumber(), row.build) << row.values;
    }
}

TEST_F(VersionRecordTest, WriteWithoutTheKeyFailsAndCreatesNothing) {
    EXPECT_FALSE(setInstalledVersion("1.1.0", "7"));
    EXPECT_FALSE(test::fs::exists(root() / "registry.reg"));

    writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark]\n");
    const std::string before = registryText();
    EXPECT_FALSE(setInstalledVersion("1.1.0", "7"));
    EXPECT_EQ(registryText(), before);
}

TEST_F(VersionRecordTest, WriteSetsBothVersionCopiesAndLeavesAnOmittedBuildAlone) {
    registry("\"BuildNumber\"=\"100\"\n");
    EXPECT_TRUE(setInstalledVersion("1.1.0", ""));
    EXPECT_EQ(getInstalledVersion() + " build " + getInstalledBuildNumber(), "1.1.0 build 100");
    EXPECT_NE(registryText().find("\"VELKInstalled\"=\"1.1.0\""), std::string::npos);
    EXPECT_TRUE(setInstalledVersion("", "101"));
    EXPECT_EQ(getInstalledVersion() + " build " + getInstalledBuildNumber(), "1.1.0 build 101");
}

TEST_F(VersionRecordTest, CorruptRegistryIsNeverOverwritten) {
    const std::string corrupt = "Windows Registry Editor Version 5.00\n" + std::string(kProductKeyHeader) +
                                "\"Version\"=\"1.0.0\n";
    test::writeFile(root() / "registry.reg", corrupt);
    EXPECT_EQ(getInstalledVersion(), "");
    EXPECT_FALSE(setInstalledVersion("2.0.0", "2"));
    EXPECT_EQ(registryText(), corrupt);
    // Unreadable is told apart from absent, which is an ordinary fresh installation.
    const auto error = productRecordError();
    ASSERT_TRUE(error);
    EXPECT_NE(error->find("registry.reg cannot be read or parsed (error 1009)"), std::string::npos) << *error;
    test::writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n");
    EXPECT_FALSE(productRecordError());
    std::filesystem::remove(root() / "registry.reg");
    EXPECT_FALSE(productRecordError());
}

}  // namespace
}  // namespace velk::updater
