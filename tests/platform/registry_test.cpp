#include "platform/registry.hpp"

#include <gtest/gtest.h>

#include <string>

#include "platform/posix/registry_file.hpp"
#include "platform/services.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

using test::readFile;
using test::writeRegistry;

constexpr const char* kKey = "SOFTWARE\\Quenmark\\VELK";

class RegistryTest : public test::SystemRootTest {};

// What RegGetValueA(RRF_RT_REG_SZ) gives in two steps, or the failing status.
std::string readString(const std::string& key, const std::string& name, long* status = nullptr) {
    std::uint32_t size = 0;
    long rc = getStringValue(key, name, nullptr, &size);
    std::string buffer(size, '?');
    if (rc == kErrorSuccess) rc = getStringValue(key, name, buffer.data(), &size);
    if (status != nullptr) *status = rc;
    return rc == kErrorSuccess ? buffer.substr(0, size) : std::string();
}

TEST_F(RegistryTest, ExportFormatRoundTripsEveryValueType) {
    const std::string text =
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "; a comment\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\r\n"
        "@=\"default\"\r\n"
        "\"Path\"=\"C:\\\\Games\\\\\\\"VELK\\\"\"\r\n"
        "\"Count\"=dword:0000001e\r\n"
        "\"Blob\"=hex:de,ad,\\\r\n  be,ef\r\n"
        "\"Big\"=hex(b):01,00,00,00,00,00,00,00\r\n"
        "\"Odd\"=hex(a):01,02,03\r\n"
        "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"
        "\"Nuls\"=hex(1):31,00,2e,00,30,00,00,00,00,00\r\n";
    const auto parsed = RegistryFile::parse(text);
    ASSERT_TRUE(parsed.has_value());
    const auto* key = parsed->findKey("hkey_local_machine\\software\\QUENMARK\\velk");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->findValue("")->data, std::string("default\0", 8));
    EXPECT_EQ(key->findValue("path")->data, std::string("C:\\Games\\\"VELK\"\0", 16));
    EXPECT_EQ(key->findValue("Count")->data, std::string("\x1e\0\0\0", 4));
    EXPECT_EQ(key->findValue("Blob")->data, "\xde\xad\xbe\xef");
    EXPECT_EQ(key->findValue("Odd")->type, 10u);
    EXPECT_EQ(key->findValue("Multi")->data, std::string("a\0b\0\0", 5));
    EXPECT_EQ(key->findValue("Nuls")->data, std::string("1.0\0\0", 5));

    const auto again = RegistryFile::parse(parsed->serialize());
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(again->serialize(), parsed->serialize());
    for (const auto& name : {"", "Path", "Count", "Blob", "Big", "Odd", "Multi", "Nuls"}) {
        const auto* before = key->findValue(name);
        const auto* after = again->findKey(key->path)->findValue(name);
        ASSERT_NE(after, nullptr) << name;
        EXPECT_EQ(after->type, before->type) << name;
        EXPECT_EQ(after->data, before->data) << name;
    }
}

TEST_F(RegistryTest, MalformedFilesAreRejected) {
    for (const std::string& body : {
             std::string("REGEDIT4\n"),
             std::string("Windows Registry Editor Version 5.00\n\"Orphan\"=\"x\"\n"),
             std::string("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\A]\n\"V\"=dword:xyz\n"),
             std::string("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\A]\n\"V\"=\"open\n"),
             std::string("Windows Registry Editor Version 5.00\n[-HKEY_LOCAL_MACHINE\\A]\n"),
             std::string("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\A]\n\"V\"=hex:1g\n"),
         }) {
        EXPECT_FALSE(RegistryFile::parse(body).has_value()) << body;
    }
}

TEST_F(RegistryTest, TypedStringReadsBehaveLikeTheWindowsCall) {
    writeRegistry(root(), std::string(test::kProductKeyHeader) +
                              "\"Version\"=\"1.2.3\"\n\"Number\"=dword:00000001\n");
    std::uint32_t size = 0;
    ASSERT_EQ(getStringValue(kKey, "Version", nullptr, &size), kErrorSuccess);
    EXPECT_EQ(size, 6u);  // terminator included
    char small[3];
    size = sizeof small;
    EXPECT_EQ(getStringValue(kKey, "Version", small, &size), kErrorMoreData);
    EXPECT_EQ(size, 6u);

    long status = 0;
    EXPECT_EQ(readString(kKey, "VERSION", &status), std::string("1.2.3\0", 6));
    EXPECT_EQ(readString(kKey, "Number", &status), "");
    EXPECT_EQ(status, kErrorUnsupportedType);
    readString(kKey, "Missing", &status);
    EXPECT_EQ(status, kErrorFileNotFound);
    readString("SOFTWARE\\Other", "Version", &status);
    EXPECT_EQ(status, kErrorFileNotFound);
}

TEST_F(RegistryTest, WritesNeedAnExistingKeyAndTheRightAccessAndKeepTheRest) {
    writeRegistry(root(), std::string(test::kProductKeyHeader) +
                              "\"Keep\"=hex(a):01,02\n\"Version\"=\"1.0\"\n");
    RegistryKey missing;
    EXPECT_EQ(missing.open("SOFTWARE\\Quenmark\\Absent", RegistryAccess::SetValue), kErrorFileNotFound);

    RegistryKey readOnly;
    ASSERT_EQ(readOnly.open(kKey, RegistryAccess::Read), kErrorSuccess);
    EXPECT_EQ(readOnly.setValue("Version", kRegSz, "2.0", 4), kErrorAccessDenied);

    RegistryKey key;
    ASSERT_EQ(key.open(kKey, RegistryAccess::SetValue), kErrorSuccess);
    ASSERT_EQ(key.setValue("Version", kRegSz, "2.0", 4), kErrorSuccess);
    ASSERT_EQ(key.setValue("New", kRegDword, "\x05\0\0\0", 4), kErrorSuccess);

    EXPECT_EQ(readString(kKey, "Version"), std::string("2.0\0", 4));
    const auto reloaded = RegistryFile::load();
    ASSERT_TRUE(reloaded.has_value());
    const auto* values = reloaded->findKey(machineKeyPath(kKey));
    EXPECT_EQ(values->findValue("Keep")->type, 10u);
    EXPECT_EQ(values->findValue("Keep")->data, "\x01\x02");
    std::uint32_t type = 0, number = 0, size = 4;
    EXPECT_EQ(key.queryValue("New", &type, &number, &size), kErrorSuccess);
    EXPECT_EQ(type, kRegDword);
    EXPECT_EQ(number, 5u);
    // Only the registry file itself is left: the sibling was renamed over it.
    EXPECT_EQ(std::distance(test::fs::directory_iterator(root()), test::fs::directory_iterator()), 1);
}

TEST_F(RegistryTest, UnparseableFileFailsEveryCallAndIsNeverRewritten) {
    const std::string garbage = "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\SOFTWARE\n";
    test::writeFile(root() / "registry.reg", garbage);
    RegistryKey key;
    EXPECT_NE(key.open(kKey, RegistryAccess::SetValue), kErrorSuccess);
    EXPECT_NE(key.setValue("Version", kRegSz, "2.0", 4), kErrorSuccess);
    long status = 0;
    readString(kKey, "Version", &status);
    EXPECT_NE(status, kErrorSuccess);
    EXPECT_FALSE(queryServicePresence("VELKSvc").managerOpened);
    EXPECT_EQ(readFile(root() / "registry.reg"), garbage);
}

TEST_F(RegistryTest, ServicesAreKeysBelowTheServicesKey) {
    EXPECT_TRUE(queryServicePresence("VELKSvc").managerOpened);  // no file: an empty registry
    EXPECT_FALSE(queryServicePresence("VELKSvc").serviceOpened);
    writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\VELKSvc]\n"
                          "\"Start\"=dword:00000003\n");
    EXPECT_TRUE(queryServicePresence("VELKSvc").serviceOpened);
    EXPECT_TRUE(queryServicePresence("velksvc").serviceOpened);
    EXPECT_FALSE(queryServicePresence("VELK_Sys").serviceOpened);
    EXPECT_FALSE(queryServicePresence("").serviceOpened);
}

}  // namespace
}  // namespace velk::updater::platform
