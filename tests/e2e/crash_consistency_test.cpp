#include <signal.h>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

const std::vector<std::string> kNames = {"VELK_Service.exe", "VELK.dll", "VELK_Launcher.exe",
                                         "drivers/VELK_Sys.sys", "VELK_Helper.dll"};

std::map<std::string, std::string> release(char fill) {
    std::map<std::string, std::string> files;
    for (const auto& name : kNames) files[name] = std::string(1 << 20, fill) + name;
    return files;
}

// Kills the updater stalled in a download (earlier files replaced) or between staging and renaming.
class CrashConsistencyTest : public EndToEndTest {
protected:
    // Runs the updater on the old release until `reached` holds, kills it: whether it was cut.
    bool killWhen(const std::function<bool()>& reached) {
        fs::remove_all(installDir());
        for (const auto& [name, content] : oldFiles_) writeFile(installDir() / name, content);
        productKey("\"Version\"=\"1.0.0\"\n\"BuildNumber\"=\"1\"\n");
        BackgroundProcess updater(builtProgram("VELK_Updater"), {"--quiet"}, sandbox());
        // The bound is against a hang only: a stalled download waits far longer.
        eventually([&] { return reached() || versionRecorded("2.0.0"); }, 20);
        return updater.stop(SIGKILL) == -1;
    }

    void expectNoTornFile(const std::string& point) {
        for (const auto& [name, oldContent] : oldFiles_) {
            const std::string content = readFile(installDir() / name);  // empty when missing
            EXPECT_TRUE(content == oldContent || content == newFiles_.at(name))
                << name << " is missing or torn when killed " << point << " ("
                << content.size() << " bytes)";
        }
    }

    void expectRerunCompletes() {
        ASSERT_EQ(run({"--quiet"}).exitCode, 0);
        expectInstalled(newFiles_);
        EXPECT_TRUE(versionRecorded("2.0.0"));
    }

    const std::map<std::string, std::string> oldFiles_ = release('o');
    const std::map<std::string, std::string> newFiles_ = release('n');
};

TEST_F(CrashConsistencyTest, KilledAtAnyPointEveryFileIsOldOrNewAndARerunCompletes) {
    publish("2.0.0", "2", newFiles_);
    startServer({"--stall-seconds", "60"});
    for (const auto& name : kNames) {
        writeFile(rules(), "/cdn/files/" + name + " stall\n");
        const fs::path download = downloads() / (fs::path(name).filename().string() + ".tmp.partial");
        EXPECT_TRUE(killWhen([&] { return fs::exists(download); })) << "stalled on " << name;
        expectNoTornFile("downloading " + name);
    }
    fs::remove(rules());
    for (const auto& name : kNames) {
        killWhen([&] { return fs::exists(installDir() / (name + ".staging")); });
        expectNoTornFile("staging " + name);
    }
    expectRerunCompletes();
}

// A patch and what it makes stay in the download folder until the rename.
TEST_F(CrashConsistencyTest, KilledWhileAPatchIsFetchedOrAppliedEveryFileIsOldOrNew) {
    publish("1.0.0", "1", oldFiles_);
    publish("2.0.0", "2", newFiles_, {"--delta-from", (dir_ / "release-1.0.0-1").string()});
    const std::string manifest = readFile(site() / "manifest.json");
    const auto at = manifest.find("files/VELK.dll.");
    ASSERT_NE(at, std::string::npos) << "no patch published for VELK.dll";
    startServer({"--stall-seconds", "60"});
    rule("/cdn/" + manifest.substr(at, manifest.find('"', at) - at), "stall");
    EXPECT_TRUE(killWhen([&] { return fs::exists(downloads() / "VELK.dll.patch.tmp.partial"); }));
    expectNoTornFile("fetching the patch");
    fs::remove(rules());
    killWhen([&] { return fs::exists(downloads() / "VELK.dll.tmp"); });
    expectNoTornFile("applying the patch");
    expectRerunCompletes();
}

// The partial download and its record are kept: the next run asks for the rest (a 206).
TEST_F(CrashConsistencyTest, DownloadCutByAKillContinuesInTheNextRun) {
    publish("2.0.0", "2", newFiles_);
    startServer({"--stall-seconds", "60"});
    rule("/cdn/files/VELK.dll", "stall");
    const fs::path partial = downloads() / "VELK.dll.tmp.partial";
    EXPECT_TRUE(killWhen([&] {
        std::error_code absent;
        return fs::exists(partial.string() + ".resume") && fs::file_size(partial, absent) >= 4096;
    }));
    fs::remove(rules());
    expectRerunCompletes();
    EXPECT_TRUE(requested("GET /cdn/files/VELK.dll 206\n"));
}

}  // namespace
}  // namespace velk::test
