#include <nlohmann/json.hpp>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

using nlohmann::json;

std::string key(const std::string& name) { return std::string(VELK_TEST_KEYS_DIR) + "/" + name; }

// The pinned build trusts the vendor keys in keys/ only; the attacker controls the update site.
class PinnedUpdaterTest : public EndToEndTest {
protected:
    void SetUp() override {
        EndToEndTest::SetUp();
        program_ = "VELK_Updater_pinned_test";
        fs::copy_file(key("vendor_ed25519.seed"), dir_ / "velk_release_ed25519.key");
    }
};
using KeySubstitution = PinnedUpdaterTest;
using Rollback = PinnedUpdaterTest;
using FreezeAttack = PinnedUpdaterTest;
using StagedRollout = PinnedUpdaterTest;
using DeltaUpdate = PinnedUpdaterTest;

TEST_F(KeySubstitution, PinnedUpdaterInstallsOnlyReleasesSignedByThePinnedKeys) {
    // How the publisher signs (default: the vendor's Ed25519 key), the attacker's edit, installed.
    using Case =
        std::tuple<std::string, std::vector<std::string>, std::function<void(json&)>, bool>;
    startServer();
    for (const auto& [what, signing, edit, installed] : std::vector<Case>{
             {"vendor's Ed25519 key", {}, nullptr, true},
             {"vendor's RSA key", {"--sign-rsa", key("vendor_rsa.pem")}, nullptr, true},
             {"unsigned", {}, [](json& d) { d["signature"]["signature"] = "c2ln"; }, false},
             {"attacker's Ed25519 key", {"--sign-ed25519", key("attacker_ed25519.seed")}, nullptr,
              false},
             {"attacker's RSA key named in the manifest", {"--sign-rsa", key("attacker_rsa.pem")},
              nullptr, false},
             {"vendor-signed, a file swapped", {},
              [](json& d) { d["manifest"]["files"][0]["sha256"] = std::string(64, 'e'); }, false},
         }) {
        SCOPED_TRACE(what);
        fs::remove_all(installDir());
        productKey();
        publish("1.0.0", "100", kRelease1, signing);
        if (edit) editManifest(edit);
        const ProcessResult result = run({});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(fs::exists(installDir() / "VELK.dll"), installed);
        EXPECT_EQ(versionRecorded("1.0.0"), installed);
    }
}

// "10.0.0" is newer than "9.0.0"; the refusal comes before the check pass would repair the file.
TEST_F(Rollback, PinnedUpdaterRefusesAnOlderSignedReleaseUnlessForced) {
    productKey("\"Version\"=\"10.0.0\"\n\"BuildNumber\"=\"5\"\n");
    writeFile(installDir() / "VELK.dll", "damaged");
    publish("9.0.0", "4", kRelease1);
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "damaged");
    EXPECT_TRUE(versionRecorded("10.0.0"));

    ASSERT_EQ(run({"--force"}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), kRelease1.at("VELK.dll"));
    EXPECT_TRUE(versionRecorded("9.0.0"));
}

TEST_F(FreezeAttack, ExpiredManifestInstallsNothingUntilTheVendorSignsItAgain) {
    publish("1.0.0", "100", kRelease1, {"--expires-in", "-1"});
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    EXPECT_EQ(run({"--check-only"}).exitCode, 1);

    runPublisher({"--resign", site().string()});
    ASSERT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease1);
}

// Held at 0%, then raised to 100% by the vendor; the installation's cohort never changes.
TEST_F(StagedRollout, HaltedReleaseWaitsAndTheCohortIsKept) {
    productKey("\"Version\"=\"0.9.0\"\n");
    publish("1.0.0", "100", kRelease1, {"--rollout", "0"});
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    const auto cohortLine = [this] {
        const std::string text = registryText();
        const auto at = text.find("\"RolloutCohort\"=dword:");
        return at == std::string::npos ? std::string() : text.substr(at, text.find('\n', at) - at);
    };
    const std::string cohort = cohortLine();
    EXPECT_FALSE(cohort.empty()) << registryText();
    EXPECT_EQ(run({"--check-only"}).exitCode, 0);
    EXPECT_EQ(cohortLine(), cohort);

    runPublisher({"--resign", site().string(), "--rollout", "100"});
    ASSERT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease1);
    EXPECT_EQ(cohortLine(), cohort);
}

// Every whole file answers 404: only the patch can bring 2.0.0, and only as signed.
TEST_F(DeltaUpdate, DeltaIsUsedAndItsPatchEntryIsSigned) {
    std::string library;
    for (int i = 0; i < 5000; ++i) library += "function " + std::to_string(i) + ";\n";
    publish("1.0.0", "100", {{"VELK.dll", library + "1.0"}});
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    publish("2.0.0", "200", {{"VELK.dll", library + "2.0"}},
            {"--delta-from", (dir_ / "release-1.0.0-100").string()});
    const json published = json::parse(readFile(site() / "manifest.json"));
    ASSERT_EQ(published["manifest"]["files"][0]["patches"].size(), 1u) << published.dump(2);
    writeFile(rules(), "/cdn/files/VELK.dll 404\n/mirror/files/VELK.dll 404\n"
                       "/origin/files/VELK.dll 404\n");

    editManifest([](json& d) { d["manifest"]["files"][0]["patches"][0]["size"] = 12345; });
    EXPECT_EQ(run({}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), library + "1.0");

    writeFile(site() / "manifest.json", published.dump(2));
    EXPECT_EQ(run({}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), library + "2.0");
    EXPECT_TRUE(versionRecorded("2.0.0"));
}

}  // namespace
}  // namespace velk::test
