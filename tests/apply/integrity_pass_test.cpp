#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class ProcessingTest : public ClientTest {};

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

// The pass compares digests exactly, the file updater without regard to case: the copy kept
// in place is found current there and nothing is downloaded.
TEST_F(ProcessingTest, UpperCaseDigestCountsAsAMismatchHere) {
    test::writeFile(installDir() / "VELK.dll", "lib");
    json file = publish("VELK.dll", "lib");
    std::string upper = file["sha256"];
    for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    file["sha256"] = upper;
    EXPECT_TRUE(client().processManifest(manifest("1.0.0", "100", {file})));
    EXPECT_TRUE(log_.contains("[INFO] Outdated file will be replaced: " + (installDir() / "VELK.dll").string()));
    EXPECT_TRUE(log_.contains("[INFO] File VELK.dll is already up to date - skipping download"));
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "lib");
}

// A release outside this installation's share changes nothing, not even a wrong file; a
// larger share takes it, and a repair of the installed version is never held back.
TEST_F(ProcessingTest, StagedRolloutHoldsVersionChangesOnly) {
    test::writeFile(installDir() / "VELK.dll", "old library");
    cohort_ = 5000;  // the middle of the fleet
    auto release = [&](const std::string& version, const std::string& build, int share) {
        json doc = json::parse(manifest(version, build, {publish("VELK.dll", "new library")}));
        doc["manifest"]["rollout_percentage"] = share;
        return doc.dump();
    };
    EXPECT_TRUE(client().processManifest(release("2.0.0", "200", 25)));
    EXPECT_TRUE(log_.contains(
        "[INFO] Release 2.0.0 is rolled out to 25% of installations; this installation is not included yet"));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "old library");
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_EQ(getInstalledVersion(), "1.0.0");

    EXPECT_TRUE(client().processManifest(release("1.0.0", "100", 0)));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "new library");

    test::writeFile(installDir() / "VELK.dll", "old library");
    EXPECT_TRUE(client().processManifest(release("2.0.0", "200", 51)));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "new library");
    EXPECT_EQ(getInstalledVersion(), "2.0.0");
}

TEST_F(ProcessingTest, RejectedManifestTouchesNoFile) {
    test::writeFile(installDir() / "VELK.dll", "whatever");
    EXPECT_FALSE(client().processManifest("{\"manifest\": {\"version\": 2}}"));
    EXPECT_TRUE(log_.contains("[ERROR] Manifest verification failed: Failed to parse manifest JSON"));
    EXPECT_TRUE(log_.contains("[DEBUG] Manifest JSON content: {\"manifest\": {\"version\": 2}}"));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "whatever");
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

// The pass changes nothing on disk: a second entry for the same file sees the same copy.
TEST_F(ProcessingTest, SecondEntryForTheSameFileSeesTheSameCopy) {
    test::writeFile(installDir() / "VELK.dll", "xyz");
    json second = publish("VELK_copy.dll", "lib");
    second["target_path"] = "VELK.dll";
    client().processManifest(manifest("1.0.0", "100", {publish("VELK.dll", "lib"), second}));
    EXPECT_TRUE(log_.contains("[DEBUG] File VELK.dll needs updating (hash mismatch)"));
    EXPECT_TRUE(log_.contains("[DEBUG] File VELK_copy.dll needs updating (hash mismatch)"));
}

// A CDN outage during an update: every base answers 503. The outdated installation keeps
// working, byte for byte, and still says it is the old version.
using OutageDuringUpdate = ProcessingTest;
TEST_F(OutageDuringUpdate, WorkingCopyKept) {
    const std::map<std::string, std::string> installed{{"VELK.dll", "library 1.0"}, {"VELK_Launcher.exe", "launch 1.0"}};
    for (const auto& [name, content] : installed) test::writeFile(installDir() / name, content);
    const std::vector<json> files = {publish("VELK.dll", "library 2.0"), publish("VELK_Launcher.exe", "launcher 2.0")};
    for (const char* base : {"/cdn", "/mirror", "/origin"}) {
        for (const auto& [name, content] : installed) {
            server_.set(std::string(base) + "/files/" + name, "unavailable", 503);
            server_.set(std::string(base) + "/files/" + name + ".zip", "unavailable", 503);
        }
    }
    EXPECT_FALSE(client().processManifest(manifest("2.0.0", "200", files)));
    for (const auto& [name, content] : installed) EXPECT_EQ(test::readFile(installDir() / name), content) << name;
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
    EXPECT_EQ(getInstalledBuildNumber(), "100");
    EXPECT_TRUE(log_.contains("[INFO] Outdated file will be replaced: " + (installDir() / "VELK.dll").string()));
}

}  // namespace
}  // namespace velk::updater
