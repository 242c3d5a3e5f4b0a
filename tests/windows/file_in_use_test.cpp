// A file held open by another process without share-delete (a running program, a virus
// scanner reading what was just written): its replacement waits for it to be released
// within the window, and fails cleanly, leaving the old file, when it is not.
#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "apply/file_updater.hpp"
#include "platform/process.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// The holder process, started on `file` and stopped by its release marker.
class Holder {
public:
    Holder(const fs::path& file, const fs::path& folder) : held_(folder / "held"), release_(folder / "release") {
        fs::remove(held_);
        fs::remove(release_);
        const fs::path program = fs::path(platform::executablePath()).parent_path() / "velk_file_holder.exe";
        std::string command = "\"" + program.string() + "\" \"" + file.string() + "\" \"" + held_.string() + "\" \"" +
                              release_.string() + "\"";
        STARTUPINFOA startup{};
        startup.cb = sizeof(startup);
        started_ = CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process_);
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (started_ && !fs::exists(held_) && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    ~Holder() {
        release();
        if (started_) {
            CloseHandle(process_.hThread);
            CloseHandle(process_.hProcess);
        }
    }
    bool holding() const { return started_ && fs::exists(held_); }
    // Returns once the holder has closed the file and ended.
    void release() {
        if (!started_ || fs::exists(release_)) return;
        test::writeFile(release_, "");
        WaitForSingleObject(process_.hProcess, 30000);
    }

private:
    fs::path held_;
    fs::path release_;
    PROCESS_INFORMATION process_{};
    bool started_ = false;
};

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

    test::TempDir dir_;
    fs::path install_ = dir_ / "install";
    test::LogCapture log_;
};

TEST_F(FileInUse, ReplacedOnceReleasedAndRefusedWhileHeld) {
    test::writeFile(install_ / "VELK.dll", "old");
    {
        Holder holder(install_ / "VELK.dll", dir_.path());
        ASSERT_TRUE(holder.holding());
        std::thread releaser([&] {
            const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (log_.count("[WARNING] File in use, retrying in ") == 0 && std::chrono::steady_clock::now() < giveUp) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            holder.release();
        });
        const FileUpdateResult released = install("new", std::chrono::seconds(20));
        releaser.join();
        EXPECT_TRUE(released.success) << released.errorMessage;
        EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new");
    }
    Holder holder(install_ / "VELK.dll", dir_.path());
    ASSERT_TRUE(holder.holding());
    const FileUpdateResult held = install("newer", std::chrono::milliseconds(300));
    holder.release();
    EXPECT_FALSE(held.success);
    EXPECT_NE(held.errorMessage.find("in use"), std::string::npos) << held.errorMessage;
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new");
}

}  // namespace
}  // namespace velk::updater
