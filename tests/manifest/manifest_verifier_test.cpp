#include "manifest/manifest_verifier.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sodium.h>

#include <nlohmann/json.hpp>

#include "crypto/crypto_utils.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

std::string base64(const std::string& bytes) {
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                      sodium_base64_VARIANT_ORIGINAL);
    text.resize(text.size() - 1);
    return text;
}

json document(const std::string& version, const std::string& build = "1234") {
    return json{{"manifest",
                 {{"version", version},
                  {"build_number", build},
                  {"git_commit", "abc123"},
                  {"files",
                   {{{"name", "VELK.dll"}, {"url", "files/VELK.dll"}, {"size", 42}, {"sha256", "d00d"}, {"target_path", "VELK.dll"}},
                    {{"name", "VELK_Launcher.exe"}, {"url", "files/L.exe"}, {"size", 7}, {"sha256", "beef"}, {"target_path", "VELK_Launcher.exe"}}}}}},
                {"signature", {{"algorithm", "Ed25519"}, {"public_key", "a2V5"}, {"signature", "c2ln"}}}};
}

// The signed text as a publisher builds it, written out independently of the verifier.
std::string signedText(const json& doc) {
    const json& m = doc["manifest"];
    std::string text = m["version"].get<std::string>() + m["build_number"].get<std::string>() +
                       m["git_commit"].get<std::string>();
    for (const auto& f : m["files"]) {
        text += f["name"].get<std::string>() + f["sha256"].get<std::string>() + std::to_string(f["size"].get<int>());
    }
    return text;
}

class VerifierTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(CryptoUtils::initialize()); }
    void TearDown() override { CryptoUtils::cleanup(); }

    ManifestVerifier make(ManifestVerifierConfig config) { return ManifestVerifier(config, log_.logger()); }
    static ManifestVerifierConfig installed(const std::string& version, const std::string& build, bool allowDowngrades) {
        ManifestVerifierConfig config;
        config.currentVersion = version;
        config.currentBuildNumber = build;
        config.allowDowngrades = allowDowngrades;
        return config;
    }

    test::LogCapture log_;
};

TEST_F(VerifierTest, Ed25519SignatureGuardsEveryHashAndTheFileOrder) {
    unsigned char publicKey[crypto_sign_PUBLICKEYBYTES], secretKey[crypto_sign_SECRETKEYBYTES];
    crypto_sign_keypair(publicKey, secretKey);
    json doc = document("2.1.0");
    const std::string message = signedText(doc);
    unsigned char signature[crypto_sign_BYTES];
    crypto_sign_detached(signature, nullptr, reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                         secretKey);
    doc["signature"]["signature"] = base64(std::string(reinterpret_cast<char*>(signature), sizeof signature));

    ManifestVerifierConfig config = installed("2.0.0", "1", true);
    config.requireSignature = true;
    config.publicKey = base64(std::string(reinterpret_cast<char*>(publicKey), sizeof publicKey));
    ManifestVerifier verifier = make(config);
    EXPECT_EQ(signedManifestText(*parseManifest(doc.dump())), message);
    EXPECT_TRUE(verifier.parseAndVerify(doc.dump()).valid);
    EXPECT_TRUE(log_.contains("[INFO] Signature verified successfully using Ed25519"));

    json tampered = doc;
    tampered["manifest"]["files"][1]["sha256"] = "beee";
    const VerificationResult changed = verifier.parseAndVerify(tampered.dump());
    EXPECT_FALSE(changed.valid);
    EXPECT_EQ(changed.errorMessage, "Signature verification failed");
    EXPECT_FALSE(changed.manifest);

    json reordered = doc;
    std::swap(reordered["manifest"]["files"][0], reordered["manifest"]["files"][1]);
    EXPECT_FALSE(verifier.parseAndVerify(reordered.dump()).valid);
    EXPECT_TRUE(log_.contains("[ERROR] Signature verification failed: Signature verification failed"));
    // The accepted manifest stays current after later rejections.
    EXPECT_EQ(verifier.getCurrentManifest()->files[0].name, "VELK.dll");
}

TEST_F(VerifierTest, SignatureSettingsProblemsAreRejections) {
    ManifestVerifierConfig config = installed("2.0.0", "1", true);
    config.requireSignature = true;
    ManifestVerifier verifier = make(config);
    EXPECT_EQ(verifier.parseAndVerify(document("2.1.0").dump()).errorMessage, "Signature verification failed");
    EXPECT_EQ(log_.lines().at(1), "[ERROR] Ed25519 public key not configured");

    json other = document("2.1.0");
    other["signature"]["algorithm"] = "ed25519";
    log_.clear();
    verifier.parseAndVerify(other.dump());
    EXPECT_EQ(log_.lines().at(1), "[ERROR] Unsupported signature algorithm: ed25519");

    CryptoUtils::cleanup();
    log_.clear();
    verifier.parseAndVerify(document("2.1.0").dump());
    EXPECT_EQ(log_.lines().at(1), "[ERROR] CryptoUtils not initialized");
}

TEST_F(VerifierTest, AcceptedManifestLogsInOrder) {
    ManifestVerifier verifier = make(installed("2.0.0", "1200", true));
    const VerificationResult result = verifier.parseAndVerify(document("2.1.0").dump());
    ASSERT_TRUE(result.valid);
    EXPECT_TRUE(result.structureValid && result.signatureValid);
    EXPECT_EQ(result.manifestVersion, "2.1.0");
    EXPECT_TRUE(verifier.analyzeVersionComparison());
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                                "[INFO] Manifest parsed successfully, version: 2.1.0",
                                "[WARNING] Signature verification is disabled",
                                "[INFO] Manifest verification completed successfully",
                                "[INFO] === Version Comparison Analysis ===",
                                "[INFO] Installed VELK version: 2.0.0 build 1200",
                                "[INFO] Manifest version: 2.1.0 build 1234",
                                "[INFO] Updater version: 1.0.0",
                                "[INFO] Allow downgrades: YES",
                                "[INFO] Version comparison: 2.1.0 vs 2.0.0 = NEWER",
                                "[INFO] [OK] UPDATE AVAILABLE: Manifest version is newer than installed version",
                                "[INFO] Update type: VERSION UPDATE (2.0.0 -> 2.1.0)",
                            }));
}

TEST_F(VerifierTest, StructureAndMinimumVersionRejections) {
    ManifestVerifier verifier = make(installed("1.0.0", "1", true));
    EXPECT_EQ(verifier.parseAndVerify("{").errorMessage, "Failed to parse manifest JSON");
    json unsigned_ = document("2.1.0");
    unsigned_.erase("signature");
    EXPECT_EQ(verifier.parseAndVerify(unsigned_.dump()).errorMessage,
              "Invalid manifest structure: Signature algorithm is empty");
    json minimum = document("2.1.0");
    minimum["manifest"]["minimum_version"] = "1.2.0";
    EXPECT_EQ(verifier.parseAndVerify(minimum.dump()).errorMessage, "Version compatibility check failed");
    EXPECT_TRUE(log_.contains("[ERROR] Current version 1.0.0 below minimum required 1.2.0"));
    EXPECT_FALSE(verifier.getCurrentManifest());
    EXPECT_FALSE(verifier.analyzeVersionComparison());
}

// The downgrade and minimum-version gates order versions as the analysis does, by numeric
// components: a text order would take 10.0.0 for older than 9.0.0.
TEST_F(VerifierTest, VersionGatesCompareNumericComponents) {
    struct Row {
        std::string installed, manifest, minimum;
        bool accepted;
        std::string logged;
    };
    for (const Row& row : std::vector<Row>{
             {"9.0.0", "10.0.0", "", true, ""},
             {"10.0.0", "9.0.0", "", false, "[WARNING] Downgrade detected: 9.0.0 < 10.0.0"},
             {"1.2.10", "1.2.9", "", false, "[WARNING] Downgrade detected: 1.2.9 < 1.2.10"},
             {"10.0.0", "10.0.1", "9.0.0", true, ""},
             {"1.2.9", "1.3.0", "1.2.10", false, "[ERROR] Current version 1.2.9 below minimum required 1.2.10"},
         }) {
        log_.clear();
        ManifestVerifier verifier = make(installed(row.installed, "1", false));
        json manifest = document(row.manifest);
        manifest["manifest"]["minimum_version"] = row.minimum;
        EXPECT_EQ(verifier.parseAndVerify(manifest.dump()).valid, row.accepted) << row.installed << " -> " << row.manifest;
        EXPECT_TRUE(row.logged.empty() || log_.contains(row.logged)) << row.logged;
    }

    ManifestVerifier allowing = make(installed("10.0.0", "1", true));
    ASSERT_TRUE(allowing.parseAndVerify(document("9.0.0").dump()).valid);
    log_.clear();
    EXPECT_TRUE(allowing.analyzeVersionComparison());
    EXPECT_TRUE(log_.contains("[INFO] Version comparison: 9.0.0 vs 10.0.0 = OLDER"));
}

// A release signing key as its owner holds it.
class SigningKey {
public:
    virtual ~SigningKey() = default;
    virtual std::string algorithm() const = 0;
    virtual std::string publicKey() const = 0;  // base64, as pinned and as named in a manifest
    virtual std::string sign(const std::string& message) const = 0;  // base64
};

class Ed25519Key : public SigningKey {
public:
    Ed25519Key() { crypto_sign_keypair(public_, secret_); }
    std::string algorithm() const override { return "Ed25519"; }
    std::string publicKey() const override { return base64(std::string(reinterpret_cast<const char*>(public_), 32)); }
    std::string sign(const std::string& message) const override {
        unsigned char signature[crypto_sign_BYTES];
        crypto_sign_detached(signature, nullptr, reinterpret_cast<const unsigned char*>(message.data()),
                             message.size(), secret_);
        return base64(std::string(reinterpret_cast<char*>(signature), sizeof signature));
    }

private:
    unsigned char public_[crypto_sign_PUBLICKEYBYTES];
    unsigned char secret_[crypto_sign_SECRETKEYBYTES];
};

class RsaKey : public SigningKey {
public:
    RsaKey() : key_(EVP_RSA_gen(2048), EVP_PKEY_free) {}
    std::string algorithm() const override { return "RSA-SHA256"; }
    std::string publicKey() const override {
        unsigned char* der = nullptr;
        const int length = i2d_PUBKEY(key_.get(), &der);
        const std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
        OPENSSL_free(der);
        return base64(bytes);
    }
    std::string sign(const std::string& message) const override {
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
        std::size_t length = 0;
        EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key_.get());
        EVP_DigestSign(ctx.get(), nullptr, &length, bytes, message.size());
        std::string signature(length, '\0');
        EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length, bytes, message.size());
        return base64(signature);
    }

private:
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
};

// A vendor with pinned Ed25519 and RSA keys, and an attacker with keys of its own.
class ReleaseTrust : public VerifierTest {
protected:
    static void SetUpTestSuite() {
        ASSERT_GE(sodium_init(), 0);
        vendor_ = std::make_unique<Ed25519Key>();
        vendorRsa_ = std::make_unique<RsaKey>();
        attacker_ = std::make_unique<Ed25519Key>();
        attackerRsa_ = std::make_unique<RsaKey>();
    }
    static void TearDownTestSuite() {
        vendor_.reset();
        vendorRsa_.reset();
        attacker_.reset();
        attackerRsa_.reset();
    }

    // Version 2.1.0 signed by `signer`, naming `named` as its key.
    static json signedBy(const SigningKey& signer, const SigningKey& named, const std::string& version = "2.1.0") {
        json doc = document(version);
        doc["signature"] = {{"algorithm", signer.algorithm()},
                            {"public_key", named.publicKey()},
                            {"signature", signer.sign(signedText(doc))}};
        return doc;
    }

    struct Case {
        std::string what;
        json document;
        std::string pinnedEd25519;
        std::string pinnedRsa;
        bool accepted;
        std::string logLine;
    };
    void expectVerdicts(const std::vector<Case>& cases) {
        for (const Case& c : cases) {
            ManifestVerifierConfig config = installed("2.0.0", "1", true);
            config.publicKey = c.pinnedEd25519;
            config.rsaPublicKey = c.pinnedRsa;
            log_.clear();
            const VerificationResult result = make(config).parseAndVerify(c.document.dump());
            EXPECT_EQ(result.valid, c.accepted) << c.what;
            EXPECT_TRUE(log_.contains(c.logLine)) << c.what << ": " << ::testing::PrintToString(log_.lines());
        }
    }

    static inline std::unique_ptr<Ed25519Key> vendor_;
    static inline std::unique_ptr<RsaKey> vendorRsa_;
    static inline std::unique_ptr<Ed25519Key> attacker_;
    static inline std::unique_ptr<RsaKey> attackerRsa_;
};
using KeySubstitution = ReleaseTrust;
using UnsignedManifest = ReleaseTrust;
using Rollback = ReleaseTrust;

TEST_F(KeySubstitution, ManifestOwnRsaKeyIsRefused) {
    const std::string ed = vendor_->publicKey(), rsa = vendorRsa_->publicKey();
    expectVerdicts({
        {"attacker's RSA key", signedBy(*attackerRsa_, *attackerRsa_), ed, rsa, false,
         "[ERROR] RSA public key in manifest is not the pinned release key"},
        {"no RSA key pinned", signedBy(*attackerRsa_, *attackerRsa_), ed, "", false,
         "[ERROR] RSA public key not configured"},
        {"vendor's key named, attacker's signature", signedBy(*attackerRsa_, *vendorRsa_), ed, rsa, false,
         "[ERROR] Signature verification failed: RSA signature verification failed"},
        {"vendor's RSA signature", signedBy(*vendorRsa_, *vendorRsa_), ed, rsa, true,
         "[INFO] Signature verified successfully using RSA-SHA256"},
    });
}

TEST_F(KeySubstitution, ManifestSignedWithAnotherEd25519KeyIsRefused) {
    const std::string ed = vendor_->publicKey();
    expectVerdicts({
        {"attacker's key named", signedBy(*attacker_, *attacker_), ed, "", false,
         "[ERROR] Signature verification failed: Signature verification failed"},
        {"vendor's key named", signedBy(*attacker_, *vendor_), ed, "", false,
         "[ERROR] Signature verification failed: Signature verification failed"},
        {"vendor's signature", signedBy(*vendor_, *vendor_), ed, "", true,
         "[INFO] Signature verified successfully using Ed25519"},
    });
}

TEST_F(UnsignedManifest, IsRefusedByAPinnedBuild) {
    // The placeholder signature record of document() signs nothing; requireSignature stays
    // off, as pinning a key alone must turn checking on.
    expectVerdicts({
        {"Ed25519 key pinned", document("2.1.0"), vendor_->publicKey(), "", false,
         "[ERROR] Signature verification failed: Invalid signature size"},
        {"only an RSA key pinned", document("2.1.0"), "", vendorRsa_->publicKey(), false,
         "[ERROR] Ed25519 public key not configured"},
        {"nothing pinned", document("2.1.0"), "", "", true, "[WARNING] Signature verification is disabled"},
    });
}

TEST_F(Rollback, OlderSignedManifestIsRefusedUnlessForced) {
    struct RollbackCase {
        std::string installedVersion, manifestVersion;
        bool allowRollback;
        bool accepted;
    };
    for (const RollbackCase& c : std::vector<RollbackCase>{
             {"10.0.0", "9.0.0", false, false},
             {"10.0.0", "9.0.0", true, true},
             {"9.0.0", "10.0.0", false, true},
             {"2.1.0", "2.1.0", false, true},
         }) {
        ManifestVerifierConfig config = installed(c.installedVersion, "1", true);
        config.publicKey = vendor_->publicKey();
        config.allowRollback = c.allowRollback;
        const VerificationResult result =
            make(config).parseAndVerify(signedBy(*vendor_, *vendor_, c.manifestVersion).dump());
        EXPECT_EQ(result.valid, c.accepted) << c.installedVersion << " <- " << c.manifestVersion;
        EXPECT_EQ(result.errorMessage, c.accepted ? "" : "Rollback refused");
    }
    EXPECT_TRUE(
        log_.contains("[WARNING] Rollback refused: release 9.0.0 is older than installed 10.0.0 (--force installs it)"));
}

TEST_F(VerifierTest, SameVersionLetsTheBuildDecide) {
    struct Case {
        std::string installedVersion, installedBuild, manifestVersion, manifestBuild;
        bool allowDowngrades;
        bool expected;
        std::string verdict;
    };
    for (const Case& c : std::vector<Case>{
             {"2.0.0", "5", "2.0.0-beta", "6", false, true, "[OK] PATCH UPDATE AVAILABLE: Same version, newer build number"},
             {"1.2.0", "100", "1.2", "0100", true, false, "[OK] NO UPDATE NEEDED: Already at the exact same version and build"},
             {"1.0.0", "5", "1.0.0", "", true, true, "[OK] BUILD DOWNGRADE ALLOWED: allow_downgrades is enabled"},
             {"1.0.0", "5", "1.0.0", "", false, false, "[BLOCKED] BUILD DOWNGRADE BLOCKED: allow_downgrades is disabled"},
             {"1.0.0", "0", "1.0.0", "nightly", false, false, "[OK] NO UPDATE NEEDED: Already at the exact same version and build"},
             {"1.0.0", "1", "1.0.12345678901", "1", false, false, "[OK] NO UPDATE NEEDED: Already at the exact same version and build"},
         }) {
        ManifestVerifier verifier = make(installed(c.installedVersion, c.installedBuild, c.allowDowngrades));
        ASSERT_TRUE(verifier.parseAndVerify(document(c.manifestVersion, c.manifestBuild).dump()).valid) << c.manifestVersion;
        log_.clear();
        EXPECT_EQ(verifier.analyzeVersionComparison(), c.expected) << c.manifestVersion << " " << c.manifestBuild;
        EXPECT_TRUE(log_.contains("[INFO] Version comparison: " + c.manifestVersion + " vs " + c.installedVersion + " = SAME"));
        EXPECT_TRUE(log_.contains("[INFO] " + c.verdict)) << c.manifestVersion << " " << c.manifestBuild;
    }
}

TEST(BuildNumbers, NumericComparisonWithLimits) {
    EXPECT_EQ(compareBuildNumbers("0100", "100"), 0);
    EXPECT_EQ(compareBuildNumbers("9223372036854775807", "1"), 1);
    EXPECT_EQ(compareBuildNumbers("99999999999999999999", "0"), 0);
    EXPECT_EQ(compareBuildNumbers("-2", ""), -1);
}

}  // namespace
}  // namespace velk::updater
