// Facilities that Wine does not carry out as Windows does. Under Wine each test skips
// with the reason, so it is never counted as a pass; on Windows it checks the real thing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/console.hpp"
#include "platform/log_outputs.hpp"
#include "platform/zip_extract.hpp"
#include "support/test_support.hpp"
#include "windows/windows_support.hpp"

namespace velk::updater::platform {
namespace {

TEST(WineLimitsTest, ZipExtractionThroughShellFolders) {
    if (test::runningUnderWine()) {
        GTEST_SKIP() << "Wine has no zip folders: Shell.Application's NameSpace on a .zip returns S_FALSE";
    }
    const test::TempDir dir;
    test::writeFile(dir / "in" / "VELK.dll", "library bytes");
    // tar.exe ships with Windows 10 and later and writes zip archives with -a.
    ASSERT_EQ(test::captureCommand("tar -a -cf \"" + (dir / "VELK.zip").string() + "\" -C \"" +
                                   (dir / "in").string() + "\" VELK.dll")
                  .exitCode,
              0);
    const std::string out = (dir / "VELK.dll.tmp").string();
    ASSERT_EQ(extractZipEntry((dir / "VELK.zip").string(), "VELK.dll", out, 13), ZipEntryStatus::Extracted);
    EXPECT_EQ(test::readFile(out), "library bytes");
    EXPECT_EQ(extractZipEntry((dir / "VELK.zip").string(), "VELK.dll", out, 12), ZipEntryStatus::TooLarge);
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(WineLimitsTest, EventLogReceivesTheReport) {
    if (test::runningUnderWine()) {
        GTEST_SKIP() << "Wine's event log functions are stubs: a reported event cannot be read back";
    }
    const std::string text = "VELK event log check " + std::to_string(GetTickCount64());
    reportEvent("VELK_Updater", EventType::Information, text);

    HANDLE log = OpenEventLogA(nullptr, "Application");
    ASSERT_NE(log, nullptr);
    std::vector<char> buffer(64 * 1024);
    DWORD read = 0;
    DWORD needed = 0;
    bool found = false;
    while (!found && ReadEventLogA(log, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_BACKWARDS_READ, 0, buffer.data(),
                                   static_cast<DWORD>(buffer.size()), &read, &needed)) {
        for (DWORD offset = 0; offset < read && !found;) {
            const auto* record = reinterpret_cast<const EVENTLOGRECORD*>(buffer.data() + offset);
            const char* strings = buffer.data() + offset + record->StringOffset;
            found = record->NumStrings > 0 && text == strings;
            offset += record->Length;
        }
    }
    CloseEventLog(log);
    EXPECT_TRUE(found);
}

TEST(WineLimitsTest, ConsoleRunsWithUtf8CodePages) {
    if (test::runningUnderWine()) {
        GTEST_SKIP() << "Wine without a terminal keeps its own console code pages: nothing to observe";
    }
    setupConsole();
    EXPECT_EQ(GetConsoleOutputCP(), 65001u);
    EXPECT_EQ(GetConsoleCP(), 65001u);
}

}  // namespace
}  // namespace velk::updater::platform
