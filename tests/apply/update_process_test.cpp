#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class UpdateTest : public ClientTest {};

// Libraries come after the version record, beside their targets; a failed one is not left half.
TEST_F(UpdateTest, OrdinaryFilesThenTheUpdaterLibrariesAndNeverTheUpdater) {
    std::vector<json> files = {publish("VELK_Updater.exe", "ui"), publish("Updater.exe", "up"),
                               publish("VELK.dll", "library"), publish("libcurl.dll", "curl bytes"),
                               publish("zlib1.dll", "z")};
    files[3]["url"] = server_.url("/direct/libcurl.dll");
    server_.set("/direct/libcurl.dll", "curl bytes");
    std::string upper = files[3]["sha256"];
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
    files[3]["sha256"] = upper;
    files[4]["url"] = server_.url("/direct/zlib1.dll");
    server_.set("/direct/zlib1.dll", "z", 206);
    EXPECT_TRUE(client().processManifest(manifest("1.1.0", "", files)));
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "library");
    EXPECT_EQ(test::readFile(install_ / "libcurl.dll_temp"), "curl bytes");
    for (const char* absent : {"libcurl.dll", "zlib1.dll_temp", "zlib1.dll", "Updater.exe", "VELK_Updater.exe"}) {
        EXPECT_FALSE(fs::exists(install_ / absent)) << absent;
    }
    const auto requests = server_.requests();
    EXPECT_NE(std::find(requests.begin(), requests.end(), "/direct/zlib1.dll"), requests.end());
    for (const auto& path : requests) EXPECT_EQ(path.find("Updater"), std::string::npos) << path;
    EXPECT_EQ(getInstalledVersion(), "1.1.0");
}

TEST_F(UpdateTest, TempFileIsAcceptedOnlyWithTheListedSizeAndDigest) {
    const ManifestFile file = entry("libsodium.dll", "good");
    const std::string path = (install_ / "libsodium.dll_temp").string();
    EXPECT_FALSE(client().verifyTempFile(path, file));
    for (const auto& [content, accepted] :
         std::vector<std::pair<std::string, bool>>{{"bad!", false}, {"longer", false}, {"good", true}}) {
        test::writeFile(path, content);
        EXPECT_EQ(client().verifyTempFile(path, file), accepted) << content;
    }
}

// Absent, empty or malformed, from the server or a file.
TEST_F(UpdateTest, ManifestThatCannotBeHadOrReadChangesNothing) {
    test::writeFile(install_ / "VELK.dll", "whatever");
    const std::string malformed = "{\"manifest\": {\"version\": 2}}";
    server_.set("/update/empty.json", "", 204);
    server_.set("/update/bad.json", malformed);
    test::writeFile(root() / "bad.json", malformed);
    for (const char* name : {"empty.json", "bad.json", "absent.json"}) {
        EXPECT_FALSE(client().checkForUpdates(server_.url("/update/") + name)) << name;
    }
    EXPECT_TRUE(log_.contains("[ERROR] Manifest verification failed: Failed to parse manifest JSON"));
    EXPECT_FALSE(client().checkForUpdatesFromFile((root() / "bad.json").string()));
    EXPECT_FALSE(client().checkForUpdatesFromFile((root() / "nope.json").string()));
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "whatever");
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
}

}  // namespace
}  // namespace velk::updater
