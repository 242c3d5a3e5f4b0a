#include <nlohmann/json.hpp>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

using nlohmann::json;

// VELK_Updater_pinned_test trusts the vendor keys in keys/ only; the attacker controls the
// update site and can publish whatever manifest it likes.
class PinnedUpdaterTest : public EndToEndTest {
protected:
    static std::string key(const std::string& name) { return (fs::path(VELK_TEST_KEYS_DIR) / name).string(); }

    ProcessResult runPinned(const std::vector<std::string>& args) { return run(args, {}, "VELK_Updater_pinned_test"); }
    // The vendor signs the published manifest again, with a new expiry and any other changes.
    void resign(std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), {"--resign", site().string(), "--sign-ed25519", key("vendor_ed25519.seed")});
        const ProcessResult resigned = runProcess(builtProgram("velk_publish"), extra);
        ASSERT_EQ(resigned.exitCode, 0) << resigned.err;
    }

    void freshInstallation(const std::string& registryValues = "") {
        fs::remove_all(installDir());
        productKey("\"InstallPath\"=\"" + installDir().string() + "\"\n" + registryValues);
    }
};
using KeySubstitution = PinnedUpdaterTest;
using Rollback = PinnedUpdaterTest;
using FreezeAttack = PinnedUpdaterTest;
using StagedRollout = PinnedUpdaterTest;
using DeltaUpdate = PinnedUpdaterTest;

TEST_F(KeySubstitution, PinnedUpdaterInstallsOnlyReleasesSignedByThePinnedKeys) {
    struct Case {
        std::string what;
        std::vector<std::string> signing;  // publisher arguments; none: a key of the attacker's
        std::function<void(json&)> edit;   // the attacker's change to the signed manifest, if any
        bool installed;
    };
    const std::vector<Case> cases{
        {"vendor's Ed25519 key", {"--sign-ed25519", key("vendor_ed25519.seed")}, nullptr, true},
        {"vendor's RSA key", {"--sign-rsa", key("vendor_rsa.pem")}, nullptr, true},
        {"unsigned", {}, [](json& d) { d["signature"]["signature"] = "c2ln"; }, false},
        {"attacker's Ed25519 key", {}, nullptr, false},
        {"attacker's RSA key named in the manifest", {"--sign-rsa", key("attacker_rsa.pem")}, nullptr, false},
        {"vendor-signed, a file swapped", {"--sign-ed25519", key("vendor_ed25519.seed")},
         [](json& d) { d["manifest"]["files"][0]["sha256"] = std::string(64, 'e'); }, false},
    };
    startServer();
    for (const Case& c : cases) {
        freshInstallation();
        publish("1.0.0", "100", kRelease1, c.signing);
        if (c.edit) editManifest(c.edit);
        const ProcessResult result = runPinned({});
        EXPECT_EQ(result.exitCode, 0) << c.what << ": " << result.err;
        EXPECT_EQ(fs::exists(installDir() / "VELK.dll"), c.installed) << c.what;
        EXPECT_EQ(versionRecorded("1.0.0"), c.installed) << c.what;
    }
}

TEST_F(Rollback, PinnedUpdaterRefusesAnOlderSignedReleaseUnlessForced) {
    freshInstallation("\"Version\"=\"10.0.0\"\n\"BuildNumber\"=\"5\"\n");
    publish("9.0.0", "4", kRelease1, {"--sign-ed25519", key("vendor_ed25519.seed")});
    startServer();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    EXPECT_TRUE(versionRecorded("10.0.0"));

    ASSERT_EQ(runPinned({"--force"}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), kRelease1.at("VELK.dll"));
    EXPECT_TRUE(versionRecorded("9.0.0"));
}

// A mirror replaying a signed manifest after its expiry installs nothing; the vendor re-signs
// the same release and it installs again.
TEST_F(FreezeAttack, ExpiredManifestInstallsNothingUntilTheVendorSignsItAgain) {
    freshInstallation();
    publish("1.0.0", "100", kRelease1, {"--sign-ed25519", key("vendor_ed25519.seed"), "--expires-in", "-1"});
    startServer();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    EXPECT_EQ(runPinned({"--check-only"}).exitCode, 1);

    resign();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    expectInstalled(kRelease1);
}

// A release held at 0% changes nothing on any installation, whose cohort stays what it drew;
// raising the share lets it through.
TEST_F(StagedRollout, HaltedReleaseWaitsAndTheCohortIsKept) {
    freshInstallation("\"Version\"=\"0.9.0\"\n");
    publish("1.0.0", "100", kRelease1, {"--sign-ed25519", key("vendor_ed25519.seed"), "--rollout", "0"});
    startServer();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    const auto cohortLine = [this] {
        const std::string text = registryText();
        const auto at = text.find("\"RolloutCohort\"=dword:");
        return at == std::string::npos ? std::string() : text.substr(at, text.find('\n', at) - at);
    };
    const std::string cohort = cohortLine();
    EXPECT_FALSE(cohort.empty()) << registryText();
    EXPECT_EQ(runPinned({"--check-only"}).exitCode, 0);
    EXPECT_EQ(cohortLine(), cohort);

    resign({"--rollout", "100"});
    ASSERT_EQ(runPinned({}).exitCode, 0);
    expectInstalled(kRelease1);
    EXPECT_EQ(cohortLine(), cohort);
}

// A release published with patches from the one installed: with every whole file answering
// 404, only the signed patch can bring the new version. A patch entry changed on the site
// breaks the signature.
TEST_F(DeltaUpdate, DeltaIsUsedAndItsPatchEntryIsSigned) {
    std::string library;
    for (int i = 0; i < 5000; ++i) library += "function " + std::to_string(i) + ";\n";
    const std::vector<std::string> vendor{"--sign-ed25519", key("vendor_ed25519.seed")};
    publish("1.0.0", "100", {{"VELK.dll", library + "1.0"}}, vendor);
    startServer();
    freshInstallation();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    publish("2.0.0", "200", {{"VELK.dll", library + "2.0"}},
            {"--sign-ed25519", key("vendor_ed25519.seed"), "--delta-from", (dir_ / "release-1.0.0-100").string()});
    const json published = json::parse(readFile(site() / "manifest.json"));
    ASSERT_EQ(published["manifest"]["files"][0]["patches"].size(), 1u) << published.dump(2);
    writeFile(rules(), "/cdn/files/VELK.dll 404\n/mirror/files/VELK.dll 404\n/origin/files/VELK.dll 404\n"
                       "/cdn/files/VELK.dll.zip 404\n/mirror/files/VELK.dll.zip 404\n/origin/files/VELK.dll.zip 404\n");

    editManifest([](json& d) { d["manifest"]["files"][0]["patches"][0]["size"] = 12345; });
    EXPECT_EQ(runPinned({}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), library + "1.0");

    writeFile(site() / "manifest.json", published.dump(2));
    EXPECT_EQ(runPinned({}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), library + "2.0");
    EXPECT_TRUE(versionRecorded("2.0.0"));
}

}  // namespace
}  // namespace velk::test
