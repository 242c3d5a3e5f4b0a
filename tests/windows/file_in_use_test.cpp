// A file held without share-write and share-delete (a running program, a virus scanner): its
// replacement waits for its release within the window, else fails leaving the old file.
#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "apply/file_updater.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

class FileInUse : public ::testing::Test {
protected:
    FileUpdateResult install(const std::string& content, std::chrono::milliseconds window) {
        FileUpdaterConfig config;
        config.layout = InstallationLayout(install_.string());
        config.inUseWindow = window;
        HttpClient http{HttpConfig{}};
        FileUpdater updater(config, http, log_.logger());
        EXPECT_TRUE(updater.initialize());
        const fs::path download = install_ / ".velk_downloads" / "VELK.dll.tmp";
        test::writeFile(download, content);
        return updater.installFile(test::entry("VELK.dll", content), download.string(), {});
    }
    // Sharing is checked per handle, so one of this process stands in for another process's.
    HANDLE hold() const {
        return CreateFileW((install_ / "VELK.dll").wstring().c_str(), GENERIC_READ, FILE_SHARE_READ,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    test::TempDir dir_;
    fs::path install_ = dir_ / "install";
    test::LogCapture log_;
};

TEST_F(FileInUse, ReplacedOnceReleasedAndRefusedWhileHeld) {
    test::writeFile(install_ / "VELK.dll", "old");
    HANDLE held = hold();
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    std::thread releaser([&] {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (log_.count("[WARNING] File in use, retrying in ") == 0 &&
               std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        CloseHandle(held);
    });
    const FileUpdateResult released = install("new", std::chrono::seconds(20));
    releaser.join();
    EXPECT_TRUE(released.success) << released.errorMessage;
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new");

    held = hold();
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    const FileUpdateResult refused = install("newer", std::chrono::milliseconds(300));
    CloseHandle(held);
    EXPECT_FALSE(refused.success);
    EXPECT_NE(refused.errorMessage.find("in use"), std::string::npos) << refused.errorMessage;
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new");
}

}  // namespace
}  // namespace velk::updater
