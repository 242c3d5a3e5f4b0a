#include <signal.h>

#include <chrono>
#include <thread>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

// Large enough that killing the updater lands in downloads, copies and renames alike.
std::map<std::string, std::string> release(char fill, std::size_t size) {
    std::map<std::string, std::string> files;
    for (const char* name : {"VELK_Service.exe", "VELK.dll", "VELK_Launcher.exe", "drivers/VELK_Sys.sys", "VELK_Helper.dll"}) {
        files[name] = std::string(size, fill) + name;
    }
    return files;
}

class CrashConsistencyTest : public EndToEndTest {
protected:
    void installOld(const std::map<std::string, std::string>& old) {
        fs::remove_all(installDir());
        for (const auto& [name, content] : old) writeFile(installDir() / name, content);
        productKey("\"InstallPath\"=\"" + installDir().string() + "\"\n\"Version\"=\"1.0.0\"\n\"BuildNumber\"=\"1\"\n");
    }
};

TEST_F(CrashConsistencyTest, KilledAtAnyPointEveryFileIsOldNewOrAbsentAndARerunCompletes) {
    const auto oldFiles = release('o', 3 << 20);
    const auto newFiles = release('n', 3 << 20);
    publish("2.0.0", "2", newFiles);
    startServer();

    installOld(oldFiles);
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(run({"--quiet"}).exitCode, 0);
    const auto fullRun = std::chrono::steady_clock::now() - started;

    constexpr int kKillPoints = 40;
    int interrupted = 0;
    for (int point = 0; point < kKillPoints; ++point) {
        installOld(oldFiles);
        BackgroundProcess updater(builtProgram("VELK_Updater"), {"--quiet"},
                                  ProcessOptions{{{"VELK_SYSTEM_ROOT", root().string()}, {"TMPDIR", tmp().string()}}, "", ""});
        std::this_thread::sleep_for(fullRun * point / kKillPoints);
        if (updater.stop(SIGKILL) == -1) ++interrupted;
        for (const auto& [name, oldContent] : oldFiles) {
            const fs::path target = installDir() / name;
            if (!fs::exists(target)) continue;  // deleted by the check pass, not yet replaced
            const std::string content = readFile(target);
            EXPECT_TRUE(content == oldContent || content == newFiles.at(name))
                << name << " is torn at kill point " << point << " (" << content.size() << " bytes)";
        }
    }
    EXPECT_GT(interrupted, kKillPoints / 2) << "most kills should land while the update runs";
    std::cout << "kill points: " << kKillPoints << ", interrupted runs: " << interrupted << "\n";

    // After the last kill, a normal run completes the update.
    ASSERT_EQ(run({"--quiet"}).exitCode, 0);
    for (const auto& [name, content] : newFiles) EXPECT_EQ(readFile(installDir() / name), content) << name;
    EXPECT_NE(registryText().find("\"Version\"=\"2.0.0\""), std::string::npos);
}

}  // namespace
}  // namespace velk::test
