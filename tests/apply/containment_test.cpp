// A hostile manifest or a link planted on disk cannot make the updater write or delete
// anything outside the installation, backup and temporary folders.
#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class ContainmentTest : public ClientTest {
protected:
    fs::path outside() const { return root() / "outside"; }
    void SetUp() override {
        ClientTest::SetUp();
        fs::create_directories(outside());
        test::writeFile(outside() / "victim", "precious");
    }
    // An entry whose size is wrong for the victim, so a check would delete it.
    json entryAt(const std::string& targetPath) {
        json entry = publish("VELK.dll", "new library");
        entry["target_path"] = targetPath;
        return entry;
    }
};

TEST_F(ContainmentTest, ArbitraryDeletionThroughALinkedFolderIsRefused) {
    fs::create_directory_symlink(outside(), installDir() / "linked");
    EXPECT_FALSE(client().processManifest(manifest("2.0.0", "1", {entryAt("linked/victim")})));
    // Neither the integrity pass nor the installation went through the link.
    EXPECT_EQ(test::readFile(outside() / "victim"), "precious");
    EXPECT_FALSE(fs::exists(outside() / "victim.staging"));
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
}

TEST_F(ContainmentTest, ArbitraryInstallationThroughALinkPlantedInTheTemporaryFolderIsRefused) {
    // A dangling link where the download would go: following it would create the file.
    fs::create_symlink(outside() / "planted", tmp_.path() / "VELK.dll.tmp");
    json entry = publish("VELK.dll", "new library");
    EXPECT_TRUE(client().processManifest(manifest("2.0.0", "1", {entry})));
    EXPECT_FALSE(fs::exists(outside() / "planted"));
    EXPECT_EQ(test::readFile(installDir() / "VELK.dll"), "new library");
}

}  // namespace
}  // namespace velk::updater
