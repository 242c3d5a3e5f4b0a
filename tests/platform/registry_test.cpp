#include "platform/registry.hpp"

#include <gtest/gtest.h>

#include "platform/posix/registry_file.hpp"
#include "platform/services.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

using namespace std::string_literals;
using test::readFile;
using test::writeRegistry;

constexpr const char* kKey = "SOFTWARE\\Quenmark\\VELK";
const std::string kExportStart = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string kKeyLine = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\r\n";

class RegistryTest : public test::SystemRootTest {};
using ServicesTest = RegistryTest;

// What RegGetValueA(RRF_RT_REG_SZ) gives in two steps, or the failing status.
std::string readString(const std::string& key, const std::string& name, long* status = nullptr) {
    std::uint32_t size = 0;
    long rc = getStringValue(key, name, nullptr, &size);
    std::string buffer(size, '?');
    if (rc == kErrorSuccess) rc = getStringValue(key, name, buffer.data(), &size);
    if (status != nullptr) *status = rc;
    return rc == kErrorSuccess ? buffer.substr(0, size) : std::string();
}

// The data of a service's value as the registry file holds it, with its terminator; "<absent>" without it.
std::string serviceData(const std::string& service, const std::string& name) {
    const auto registry = RegistryFile::load();
    const auto* key = registry->findKey(machineKeyPath("SYSTEM\\CurrentControlSet\\Services\\" + service));
    const auto* value = key == nullptr ? nullptr : key->findValue(name);
    return value == nullptr ? "<absent>" : value->data;
}

// An export's line, its name in another case, what the program sees, the line written ("": same).
struct ValueRow { std::string line, name; std::uint32_t type; std::string data, written; };

TEST(RegistryExport, EveryValueTypeIsReadAndWrittenBackInTheExportForm) {
    const ValueRow rows[] = {
        {R"(@="default")", "", kRegSz, "default\0"s, ""},
        {R"("Path"="C:\\Games\\\"VELK\"")", "path", kRegSz, "C:\\Games\\\"VELK\"\0"s, ""},
        {R"("Count"=dword:0000001e)", "COUNT", kRegDword, "\x1e\0\0\0"s, ""},
        {R"("All"=dword:ffffffff)", "all", kRegDword, "\xff\xff\xff\xff"s, ""},
        {R"("High"=dword:80000001)", "high", kRegDword, "\x01\0\0\x80"s, ""},
        {"\"Blob\"=hex:de,ad,\\\r\n  be,ef", "blob", kRegBinary, "\xde\xad\xbe\xef",
         "\"Blob\"=hex:de,ad,be,ef"},
        {R"("Big"=hex(b):01,00,00,00,00,00,00,00)", "big", 11u, "\x01\0\0\0\0\0\0\0"s, ""},
        {R"("Odd"=hex(a):01,02,03)", "odd", 10u, "\x01\x02\x03", ""},
        {R"("Multi"=hex(7):61,00,00,00,62,00,00,00,00,00)", "multi", kRegMultiSz, "a\0b\0\0"s, ""},
        {R"("Nuls"=hex(1):31,00,2e,00,30,00,00,00,00,00)", "nuls", kRegSz, "1.0\0\0"s, ""},
        // UTF-16 in the file, UTF-8 in the program: up to four bytes, a surrogate pair in the file.
        {"\"InstallPath\"=hex(2):43,00,3a,00,5c,00,53,00,70,00,69,00,65,00,6c,00,65,00,5c,00,dc,00,62,00,65,"
         "00,72,00,77,00,61,00,63,00,68,00,75,00,6e,00,67,00,00,00",
         "installpath", kRegExpandSz, "C:\\Spiele\\Überwachung\0"s, ""},
        {"\"Texts\"=hex(7):35,00,20,00,ac,20,00,00,1a,04,30,04,44,04,35,04,00,00,3c,d8,ae,df,00,00,00,00",
         "texts", kRegMultiSz, "5 €\0Кафе\0\U0001F3AE\0\0"s, ""},
    };
    for (const ValueRow& row : rows) {
        const std::string written = row.written.empty() ? row.line : row.written;
        const std::string file = kExportStart + "; a comment\r\n" + kKeyLine + row.line + "\r\n";
        const auto parsed = RegistryFile::parse(file);
        ASSERT_TRUE(parsed.has_value()) << row.line;
        const auto* key = parsed->findKey("hkey_local_machine\\software\\QUENMARK\\velk");
        ASSERT_NE(key, nullptr) << row.line;
        const auto* value = key->findValue(row.name);
        ASSERT_NE(value, nullptr) << row.line;
        EXPECT_EQ(value->type, row.type) << row.line;
        EXPECT_EQ(value->data, row.data) << row.line;
        EXPECT_EQ(parsed->serialize(), kExportStart + kKeyLine + written + "\r\n");
    }
}

TEST(RegistryExport, MalformedFilesAreRejected) {
    const std::string start = "Windows Registry Editor Version 5.00\n";
    const std::string key = start + "[HKEY_LOCAL_MACHINE\\A]\n";
    for (const std::string& text : {
             "REGEDIT4\n"s,
             start + "\"Orphan\"=\"x\"\n",
             key + "\"V\"=\"open\n",
             key + "\"V\"=\"closed\"trailing\n",
             key + "\"V\"=hex:1g\n",
             key + "\"V\"=dword:xyz\n",
             key + "\"V\"=dword:123456789\n",
             key + "\"V\"=dword:\n",
             key + "\"V\"=hex(123456789):00\n",  // a type wider than 32 bits
             // A key line names a key: not empty, closed, and not an import's "[-KEY]" deletion.
             start + "[]\n",
             start + "[\n",
             start + "[HKEY_LOCAL_MACHINE\\A\n",
             start + "[HKEY_LOCAL_MACHINE\\A]trailing\n",
             start + "[-HKEY_LOCAL_MACHINE\\A]\n",
         }) {
        EXPECT_FALSE(RegistryFile::parse(text).has_value()) << text;
    }
}

TEST_F(RegistryTest, ValuesAreReadAndWrittenAsTheWindowsCallsDo) {
    writeRegistry(root(), std::string(test::kProductKeyHeader) + "\"Version\"=\"1.2.3\"\n" +
                              "\"Number\"=dword:00000001\n\"Keep\"=hex(a):01,02\n");
    char small[3];
    std::uint32_t size = sizeof small;
    EXPECT_EQ(getStringValue(kKey, "Version", small, &size), kErrorMoreData);
    EXPECT_EQ(size, 6u);

    long status = 0;
    EXPECT_EQ(readString(kKey, "VERSION", &status), std::string("1.2.3\0", 6));  // terminator included
    EXPECT_EQ(readString(kKey, "Number", &status), "");
    EXPECT_EQ(status, kErrorUnsupportedType);
    readString(kKey, "Missing", &status);
    EXPECT_EQ(status, kErrorFileNotFound);
    readString("SOFTWARE\\Other", "Version", &status);
    EXPECT_EQ(status, kErrorFileNotFound);

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
    EXPECT_EQ(values->findValue("Keep")->data, "\x01\x02");
    std::uint32_t type = 0, number = 0, bytes = 4;
    EXPECT_EQ(key.queryValue("New", &type, &number, &bytes), kErrorSuccess);
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
    EXPECT_NE(createService("VELKSvc", "VELK", "x"), 0);
    EXPECT_EQ(readFile(root() / "registry.reg"), garbage);
}

TEST_F(ServicesTest, ServiceIsCreatedOnceAsAKeyBelowTheServicesKeyAndDescribed) {
    EXPECT_TRUE(queryServicePresence("VELKSvc").managerOpened);  // no file: an empty registry
    EXPECT_FALSE(queryServicePresence("VELKSvc").serviceOpened);
    EXPECT_EQ(setServiceDescription("VELKSvc", "text"), kServiceDoesNotExist);
    EXPECT_EQ(createService("VELKSvc", "VELK Anti-Cheat Service", "C:\\Apps\\VELK_Service.exe"), 0);
    for (const char* name : {"VELKSvc", "velksvc"}) EXPECT_TRUE(queryServicePresence(name).serviceOpened) << name;
    for (const char* name : {"VELK_Sys", ""}) EXPECT_FALSE(queryServicePresence(name).serviceOpened) << name;
    EXPECT_EQ(serviceData("VELKSvc", "ImagePath"), "C:\\Apps\\VELK_Service.exe\0"s);
    EXPECT_EQ(serviceData("VELKSvc", "DisplayName"), "VELK Anti-Cheat Service\0"s);
    EXPECT_EQ(serviceData("VELKSvc", "Start"), "\x03\0\0\0"s);
    EXPECT_EQ(serviceData("VELKSvc", "ObjectName"), "LocalSystem\0"s);
    EXPECT_EQ(createService("VELKSvc", "Other", "C:\\x.exe"), kServiceExists);
    EXPECT_EQ(serviceData("VELKSvc", "ImagePath"), "C:\\Apps\\VELK_Service.exe\0"s);
    EXPECT_EQ(setServiceDescription("VELKSvc", "described"), 0);
    EXPECT_EQ(serviceData("VELKSvc", "Description"), "described\0"s);
}

TEST_F(ServicesTest, DriverPackageIsAddedOnceAndFound) {
    const std::string inf = (root() / "install" / "VELK_Sys.inf").string();
    EXPECT_EQ(findDriverPackage("VELK"), 1);
    EXPECT_EQ(addDriverPackage(inf), kFileNotFound);
    test::writeFile(inf, "[Version]\n");
    EXPECT_EQ(addDriverPackage(inf), 0);
    EXPECT_TRUE(queryServicePresence("VELK_Sys").serviceOpened);
    EXPECT_EQ(serviceData("VELK_Sys", "Type"), "\x01\0\0\0"s);
    EXPECT_EQ(serviceData("VELK_Sys", "ObjectName"), "\0"s);
    EXPECT_EQ(findDriverPackage("velk"), 0);
    EXPECT_EQ(addDriverPackage(inf), kDriverPackageExists);
    EXPECT_EQ(findDriverPackage("other"), 1);
}

}  // namespace
}  // namespace velk::updater::platform
