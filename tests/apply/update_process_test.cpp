#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class UpdateTest : public ClientTest {};

TEST_F(UpdateTest, UpdaterLibrariesAreFetchedBesideTheirTargets) {
    json lib = publish("libcurl.dll", "curl bytes");
    lib["url"] = server_.url("/direct/libcurl.dll");
    server_.set("/direct/libcurl.dll", "curl bytes");
    std::string upper = lib["sha256"];
    for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    lib["sha256"] = upper;
    EXPECT_TRUE(client().processManifest(manifest("1.1.0", "", {lib})));
    EXPECT_EQ(test::readFile(installDir() / "libcurl.dll_temp"), "curl bytes");
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll"));
    EXPECT_FALSE(log_.contains("[INFO] === Phase 1: Updating VELK components (1 files) ==="));
    EXPECT_TRUE(log_.contains("[INFO] Executing post-update sequence..."));
    EXPECT_EQ(getInstalledVersion(), "1.1.0");
}

TEST_F(UpdateTest, PartialContentAnswerFailsTheUpdaterFileOnly) {
    json lib = publish("zlib1.dll", "z");
    lib["url"] = server_.url("/direct/zlib1.dll");
    server_.set("/direct/zlib1.dll", "z", 206);
    EXPECT_TRUE(client().processManifest(manifest("1.1.0", "5", {lib})));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to download zlib1.dll: HTTP 206"));
    EXPECT_FALSE(fs::exists(installDir() / "zlib1.dll_temp"));
    EXPECT_TRUE(log_.contains("[INFO] Update completed successfully!"));
}

TEST_F(UpdateTest, TempFileVerificationReportsWhatIsWrong) {
    ManifestFile file;
    file.name = "libsodium.dll";
    file.size = 4;
    file.sha256 = sha256Hex("good");
    const std::string path = (installDir() / "libsodium.dll_temp").string();
    EXPECT_FALSE(client().verifyTempFile(path, file));
    EXPECT_EQ(log_.lines().back(), "[ERROR] Temp file does not exist: " + path);
    test::writeFile(path, "bad!");
    EXPECT_FALSE(client().verifyTempFile(path, file));
    EXPECT_EQ(log_.lines().back(), "[ERROR] SHA256 mismatch for temp file: expected " + file.sha256 + ", actual " + sha256Hex("bad!"));
    test::writeFile(path, "longer");
    EXPECT_FALSE(client().verifyTempFile(path, file));
    EXPECT_EQ(log_.lines().back(), "[ERROR] File size mismatch for temp file: expected 4, actual 6");
}

TEST_F(UpdateTest, ManifestIntakeFromServerAndFile) {
    server_.set("/update/empty.json", "", 204);
    EXPECT_FALSE(client().checkForUpdates(server_.url("/update/empty.json")));
    EXPECT_TRUE(log_.contains("[INFO] Manifest downloaded successfully"));
    EXPECT_TRUE(log_.contains("[INFO] Manifest size: 0 bytes"));
    EXPECT_TRUE(log_.contains("[ERROR] Manifest verification failed: Failed to parse manifest JSON"));

    log_.clear();
    EXPECT_FALSE(client().checkForUpdates(server_.url("/update/absent.json")));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to download manifest from " + server_.url("/update/absent.json") + ": "));

    // The preview shows the first 200 bytes at most.
    server_.set("/update/big.json", std::string(5000, 'x'));
    client().checkForUpdates(server_.url("/update/big.json"));
    EXPECT_TRUE(log_.contains("[DEBUG] Manifest content preview: " + std::string(200, 'x') + "..."));

    const std::string missing = (root() / "nope.json").string();
    EXPECT_FALSE(client().checkForUpdatesFromFile(missing));
    EXPECT_EQ(log_.lines().back(), "[ERROR] Failed to open manifest file: " + missing);
}

}  // namespace
}  // namespace velk::updater
