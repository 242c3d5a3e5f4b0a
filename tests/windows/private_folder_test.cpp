// The download folder on Windows: created hidden with an access list for Administrators and
// SYSTEM only, nothing inherited; an earlier run's folder gets that list again; a file in
// its place is refused.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <iostream>

#include "platform/elevation.hpp"
#include "platform/private_files.hpp"
#include "support/test_support.hpp"
#include "windows_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string accessList(const fs::path& folder) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(folder.wstring().c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &dacl, nullptr, &descriptor) != ERROR_SUCCESS) {
        return "unreadable";
    }
    LPSTR text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text,
                                                         nullptr);
    std::string result = text != nullptr ? text : "";
    LocalFree(text);
    LocalFree(descriptor);
    return result;
}

// Wine keeps no security descriptor on a Unix file system: it maps an access list to the
// file's mode and back, so there only "nobody else is let in" can be checked.
TEST(PrivateFolder, OnlyAdministratorsAndSystem) {
    const std::string expected = "D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";
    const test::TempDir dir;
    const fs::path folder = dir.path() / ".velk_downloads";
    std::string error;
    ASSERT_TRUE(platform::preparePrivateFolder(folder.string(), error)) << error;
    const std::string created = accessList(folder);
    std::cout << "access list: " << created << "\n";
    if (!test::runningUnderWine()) {
        EXPECT_EQ(created, expected);
    }
    for (const char* everyone : {";;;WD)", ";;;BU)", ";;;AU)"}) EXPECT_EQ(created.find(everyone), std::string::npos);
    EXPECT_NE(GetFileAttributesW(folder.wstring().c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
    ASSERT_TRUE(platform::preparePrivateFolder(folder.string(), error)) << error;
    if (!test::runningUnderWine()) {
        EXPECT_EQ(accessList(folder), expected);
    }

    test::writeFile(dir.path() / "file", "x");
    EXPECT_FALSE(platform::preparePrivateFolder((dir.path() / "file").string(), error));
    EXPECT_NE(error.find("is not a folder"), std::string::npos) << error;
}

}  // namespace
}  // namespace velk::updater
