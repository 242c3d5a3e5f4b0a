#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class ProcessingTest : public ClientTest {};

// The pass changes nothing on disk (c2.dll sees c.dll's copy). It compares digests exactly, the
// file updater ignoring case: u.dll's upper-case digest is a mismatch, yet nothing is downloaded.
TEST_F(ProcessingTest, ParallelPassDecidesInManifestOrder) {
    struct Row {
        std::string name, installed, status;  // "": not installed, current; "/": a folder
        std::string target = "";
        bool upperCase = false;
    };
    const std::vector<Row> rows = {
        {"a.dll", "content a", ""},              {"b.dll", "", "missing"},
        {"c.dll", "content X", "hash mismatch"}, {"d.dll", "short", "size mismatch"},
        {"e.dll", "content e", ""},              {"f.dll", "/", "error during check"},
        {"g.dll", "content g", ""},              {"c2.dll", "", "hash mismatch", "c.dll"},
        {"u.dll", "content u", "hash mismatch", "", true},
    };
    std::vector<json> files;
    std::vector<std::string> expected;
    for (const Row& row : rows) {
        json& file = files.emplace_back(publish(row.name, "content " + row.name.substr(0, 1)));
        if (!row.target.empty()) file["target_path"] = row.target;
        std::string digest = file["sha256"];
        if (row.upperCase) std::transform(digest.begin(), digest.end(), digest.begin(), ::toupper);
        file["sha256"] = digest;
        if (row.installed == "/") fs::create_directories(install_ / row.name);
        else if (!row.installed.empty()) test::writeFile(install_ / row.name, row.installed);
        expected.push_back("[DEBUG] File " + row.name +
                           (row.status.empty() ? " is already current - skipping download"
                                               : " needs updating (" + row.status + ")"));
    }
    client().processManifest(manifest("1.0.0", "100", files));
    std::vector<std::string> decisions;
    for (const auto& line : log_.lines()) {
        if (line.find("needs updating (") != std::string::npos || line.find("already current - skipping") != std::string::npos) {
            decisions.push_back(line);
        }
    }
    EXPECT_EQ(decisions, expected);
    EXPECT_TRUE(log_.contains("[INFO] Corrupted files: 5"));
    EXPECT_TRUE(log_.contains("[DEBUG] Manifest file: a.dll (9 bytes, SHA256: " +
                              sha256Hex("content a").substr(0, 16) + "...)"));
    EXPECT_EQ(test::readFile(install_ / "d.dll"), "content d");
    for (const auto& path : server_.requests()) EXPECT_EQ(path.find("u.dll"), std::string::npos) << path;
    EXPECT_EQ(test::readFile(install_ / "u.dll"), "content u");
}

// Not even a wrong file is repaired, unless the release is the installed one.
TEST_F(ProcessingTest, StagedRolloutHoldsVersionChangesOnly) {
    test::writeFile(install_ / "VELK.dll", "old library");
    auto release = [&](const std::string& version, const std::string& build) {
        json doc = json::parse(manifest(version, build, {publish("VELK.dll", "new library")}));
        doc["manifest"]["rollout_percentage"] = 0;
        return doc.dump();
    };
    EXPECT_TRUE(client().processManifest(release("2.0.0", "200")));
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "old library");
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
    EXPECT_TRUE(client().processManifest(release("1.0.0", "100")));
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new library");
}

// Every base answers 503: the installation keeps working, byte for byte, as the old version.
using OutageDuringUpdate = ProcessingTest;
TEST_F(OutageDuringUpdate, WorkingCopyKept) {
    const std::map<std::string, std::string> installed{{"VELK.dll", "library 1.0"}, {"VELK_Launcher.exe", "launch 1.0"}};
    for (const auto& [name, content] : installed) test::writeFile(install_ / name, content);
    const std::vector<json> files = {publish("VELK.dll", "library 2.0"), publish("VELK_Launcher.exe", "launcher 2.0")};
    for (const char* base : {"/cdn", "/mirror", "/origin"}) {
        for (const auto& [name, content] : installed) {
            server_.set(std::string(base) + "/files/" + name, "unavailable", 503);
            server_.set(std::string(base) + "/files/" + name + ".zip", "unavailable", 503);
        }
    }
    EXPECT_FALSE(client().processManifest(manifest("2.0.0", "200", files)));
    for (const auto& [name, content] : installed) EXPECT_EQ(test::readFile(install_ / name), content) << name;
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
    EXPECT_EQ(getInstalledBuildNumber(), "100");
    EXPECT_FALSE(server_.requests().empty());
}

}  // namespace
}  // namespace velk::updater
