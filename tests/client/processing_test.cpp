#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class ProcessingTest : public ClientTest {};

TEST_F(ProcessingTest, SameVersionWithEveryFileCurrentChangesNothing) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    const std::vector<json> files = {publish("VELK.dll", "lib")};
    const std::string before = registryText();
    EXPECT_TRUE(client().processManifest(manifest("1.0.0", "100", files)));
    EXPECT_EQ(log_.from("[INFO] === FILE STATUS SUMMARY ==="),
              (std::vector<std::string>{"[INFO] === FILE STATUS SUMMARY ===", "[INFO] Files already current: 1",
                                        "[INFO] Files needing update: 0", "[INFO] Missing files: 0",
                                        "[INFO] Corrupted files: 0",
                                        "[INFO] No update required - already at latest version (1.0.0) with all files current"}));
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_EQ(registryText(), before);
}

TEST_F(ProcessingTest, NewerVersionWithCurrentFilesOnlyRecordsTheVersion) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    EXPECT_TRUE(client().processManifest(manifest("1.1.0", "7", {publish("VELK.dll", "lib")})));
    EXPECT_EQ(log_.from("[INFO] Update available - proceeding with update from current version to 1.1.0"),
              (std::vector<std::string>{"[INFO] Update available - proceeding with update from current version to 1.1.0",
                                        "[INFO] No files need updating - all files are already current",
                                        "[INFO] Updating version information in registry (metadata-only update)",
                                        "[INFO] Registry updated with new version: 1.1.0 (build 7)"}));
    EXPECT_EQ(getInstalledVersion(), "1.1.0");
    EXPECT_EQ(getInstalledBuildNumber(), "7");
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(ProcessingTest, OnlyUpdaterExecutablesAreSkippedAndTheVersionRecorded) {
    const std::vector<json> files = {publish("VELK_Updater.exe", "ui"), publish("Updater.exe", "up")};
    EXPECT_TRUE(client().processManifest(manifest("2.0.0", "", files)));
    EXPECT_TRUE(log_.contains("[INFO] Skipping self-update file (intentional): VELK_Updater.exe"));
    EXPECT_TRUE(log_.contains("[INFO] Skipping self-update file (intentional): Updater.exe"));
    EXPECT_TRUE(log_.contains("[INFO] Files already current: 0"));
    EXPECT_TRUE(log_.contains("[INFO] Registry updated with new version: 2.0.0 (build )"));
    EXPECT_EQ(getInstalledVersion(), "2.0.0");
    EXPECT_FALSE(fs::exists(installDir() / "Updater.exe"));
}

TEST_F(ProcessingTest, NewerVersionWithAMissingFileDownloadsOnlyThatFile) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    const std::vector<json> files = {publish("VELK.dll", "lib"), publish("VELK_Launcher.exe", "launcher 1.1")};
    EXPECT_TRUE(client().processManifest(manifest("1.1.0", "101", files)));
    const auto from = log_.from("[INFO] === UPDATE REQUIRED ===");
    EXPECT_EQ(std::vector<std::string>(from.begin(), from.begin() + std::min<std::size_t>(5, from.size())),
              std::vector<std::string>(
                  {"[INFO] === UPDATE REQUIRED ===", "[INFO] Version update available AND file repair needed",
                   "[INFO] Will download 1 files (1 already current, skipped)",
                   "[INFO] Update available - proceeding with update from current version to 1.1.0",
                   "[INFO] === Starting update process for version: 1.1.0 ==="}))
        << "first lines";
    EXPECT_TRUE(log_.contains("[INFO] Processing 1 files that need updating"));
    EXPECT_EQ(test::readFile(installDir() / "VELK_Launcher.exe"), "launcher 1.1");
    EXPECT_EQ(getInstalledVersion(), "1.1.0");
    for (const auto& request : server_.requests()) EXPECT_NE(request.find("VELK_Launcher.exe"), std::string::npos);
}

TEST_F(ProcessingTest, SameVersionRepairsACorruptFile) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    test::writeFile(installDir() / "VELK_Service.exe", "tampered");
    const std::vector<json> files = {publish("VELK.dll", "lib"), publish("VELK_Service.exe", "service!")};
    EXPECT_TRUE(client().processManifest(manifest("1.0.0", "100", files)));
    EXPECT_TRUE(log_.contains("[INFO] File repair needed despite same version"));
    EXPECT_TRUE(log_.contains("[INFO] Successfully deleted hash-mismatched file: VELK_Service.exe"));
    EXPECT_TRUE(log_.contains("[DEBUG] File VELK_Service.exe needs updating (hash mismatch)"));
    EXPECT_EQ(test::readFile(installDir() / "VELK_Service.exe"), "service!");
}

TEST_F(ProcessingTest, UpperCaseDigestCountsAsAMismatchHere) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    json file = publish("VELK.dll", "lib");
    std::string upper = file["sha256"];
    for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    file["sha256"] = upper;
    EXPECT_TRUE(client().processManifest(manifest("1.0.0", "100", {file})));
    EXPECT_TRUE(log_.contains("[INFO] Successfully deleted hash-mismatched file: VELK.dll"));
    EXPECT_FALSE(server_.requests().empty());  // downloaded again, then accepted by the file updater
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "lib");
}

TEST_F(ProcessingTest, RejectedManifestTouchesNoFile) {
    test::writeFile(installDir() / "VELK.dll", "whatever");
    EXPECT_FALSE(client().processManifest("{\"manifest\": {\"version\": 2}}"));
    EXPECT_EQ(log_.lines()[log_.lines().size() - 2], "[ERROR] Manifest verification failed: Failed to parse manifest JSON");
    EXPECT_EQ(log_.lines().back(), "[DEBUG] Manifest JSON content: {\"manifest\": {\"version\": 2}}");
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "whatever");
}

// A missing or damaged file used to let an older release through as a "repair" when the
// version texts compared by their bytes ("10.0.0" before "9.0.0"). With downgrades
// disabled, an older release is refused before any file is looked at.
class Downgrade : public ClientTest {};

TEST_F(Downgrade, OlderReleaseIsRefusedAndTouchesNothing) {
    for (const auto& [installed, offered] : std::vector<std::pair<std::string, std::string>>{
             {"10.0.0", "9.0.0"}, {"1.2.10", "1.2.9"}, {"2.1.0", "2.0.9"}}) {
        SCOPED_TRACE(installed + " -> " + offered);
        client_.reset();
        registry("\"Version\"=\"" + installed + "\"\n\"BuildNumber\"=\"1\"\n");
        allowDowngrades_ = false;
        test::writeFile(installDir() / "VELK.dll", "wrong size!");
        const std::string before = registryText();
        const std::vector<json> files = {publish("VELK.dll", "lib"), publish("VELK_Launcher.exe", "launcher")};
        EXPECT_FALSE(client().processManifest(manifest(offered, "1", files)));
        EXPECT_TRUE(log_.contains("[WARNING] Downgrade detected: " + offered + " < " + installed));
        EXPECT_TRUE(log_.contains("[ERROR] Manifest verification failed: Version compatibility check failed"));
        EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "wrong size!");
        EXPECT_FALSE(fs::exists(installDir() / "VELK_Launcher.exe"));
        EXPECT_EQ(registryText(), before);
        EXPECT_TRUE(server_.requests().empty());
    }
}

TEST_F(Downgrade, NewerReleaseWithMoreDigitsIsAnUpgrade) {
    registry("\"Version\"=\"9.0.0\"\n\"BuildNumber\"=\"1\"\n");
    allowDowngrades_ = false;
    EXPECT_TRUE(client().processManifest(manifest("10.0.0", "1", {publish("VELK.dll", "lib 10")})));
    EXPECT_TRUE(log_.contains("[INFO] [OK] UPDATE AVAILABLE: Manifest version is newer than installed version"));
    EXPECT_TRUE(log_.contains("[INFO] Version validation successful: Upgrade: 9.0.0 -> 10.0.0"));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "lib 10");
    EXPECT_EQ(getInstalledVersion(), "10.0.0");
}

TEST_F(ProcessingTest, DirectoryInPlaceOfAFileIsAnErrorDuringCheck) {
    fs::create_directories(installDir() / "VELK.dll");
    client().processManifest(manifest("1.0.0", "100", {publish("VELK.dll", "lib")}));
    EXPECT_TRUE(log_.contains("[DEBUG] File VELK.dll needs updating (error during check)"));
    EXPECT_TRUE(log_.contains("[INFO] Corrupted files: 1"));
}

// Files are hashed on several threads; what the pass reports still follows the manifest.
TEST_F(ProcessingTest, ParallelPassReportsInManifestOrder) {
    struct Row {
        const char* name;
        const char* installed;  // nullptr: not installed
        const char* status;     // nullptr: current
    };
    const std::vector<Row> rows = {
        {"a.dll", "content a", nullptr},       {"b.dll", nullptr, "missing"},
        {"c.dll", "content X", "hash mismatch"}, {"d.dll", "short", "size mismatch"},
        {"e.dll", "content e", nullptr},       {"f.dll", "content F", "hash mismatch"},
        {"g.dll", "content g", nullptr},       {"h.dll", nullptr, "missing"},
    };
    std::vector<json> files;
    std::vector<std::string> expected;
    for (const Row& row : rows) {
        const std::string name = row.name;
        files.push_back(publish(name, "content " + name.substr(0, 1)));
        if (row.installed != nullptr) test::writeFile(installDir() / name, row.installed);
        expected.push_back(row.status == nullptr ? "[DEBUG] File " + name + " is already current - skipping download"
                                                 : "[DEBUG] File " + name + " needs updating (" + row.status + ")");
    }
    client().processManifest(manifest("1.0.0", "100", files));
    std::vector<std::string> decisions;
    for (const auto& line : log_.lines()) {
        if (line.find("needs updating (") != std::string::npos || line.find("already current - skipping") != std::string::npos) {
            decisions.push_back(line);
        }
    }
    EXPECT_EQ(decisions, expected);
    EXPECT_TRUE(log_.contains("[INFO] Corrupted files: 3"));
}

// A second entry for the same file sees what the first one left: a wrong copy deleted by
// the first is missing for the second, not hashed before the deletion.
TEST_F(ProcessingTest, SecondEntryForTheSameFileSeesTheFirstOnesDeletion) {
    test::writeFile(installDir() / "VELK.dll", "xyz");
    json second = publish("VELK_copy.dll", "lib");
    second["target_path"] = "VELK.dll";
    client().processManifest(manifest("1.0.0", "100", {publish("VELK.dll", "lib"), second}));
    EXPECT_TRUE(log_.contains("[DEBUG] File VELK.dll needs updating (hash mismatch)"));
    EXPECT_TRUE(log_.contains("[INFO] File missing: VELK_copy.dll"));
}

}  // namespace
}  // namespace velk::updater
