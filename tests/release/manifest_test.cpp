#include "release/manifest.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>

#include "release/path_rules.hpp"

// Times written back as the text a document gives them in (UTC).
template <>
struct nlohmann::adl_serializer<std::chrono::system_clock::time_point> {
    static void to_json(nlohmann::json& text, std::chrono::system_clock::time_point when) {
        const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
        char buffer[32];
        std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&seconds));
        text = buffer;
    }
    static void from_json(const nlohmann::json& text, std::chrono::system_clock::time_point& when) { when = velk::updater::parseIsoTime(text); }
};

namespace velk::updater {
namespace {

using nlohmann::json;

// Every field the reader knows, none at its default.
json validDocument() {
    json doc = json::parse(R"({"manifest": {
        "version": "2.1.0", "build_number": "1234", "git_commit": "abc123", "release_date": "2025-03-14T09:26:53Z",
        "channel": "beta", "minimum_version": "1.5.0", "rollback_version": "2.0.0", "description": "Spring release",
        "changelog_url": "https://velk.example/changes", "urgency": "critical", "expires": "2200-01-01T00:00:00Z",
        "rollout_percentage": 25, "files": [
          {"name": "VELK.dll", "url": "files/VELK.dll", "size": 42, "sha256": "d00d", "target_path": "VELK.dll"},
          {"name": "VELK_Service.exe", "url": "files/VELK_Service.exe", "size": 7, "sha256": "beef", "target_path": "bin/S.exe",
           "action": "delete", "backup": true, "critical": true, "restart_required": true,
           "patches": [{"url": "files/VELK_Service.exe.p1", "size": 3}]}],
        "metadata": {"total_download_size": 49, "estimated_install_time": 12, "restart_required": true,
                     "compatibility_tested": ["Windows 11"], "known_issues": ["none"], "support_url": "https://velk.example/help"}},
      "signature": {"algorithm": "Ed25519", "public_key": "a2V5", "signature": "c2ln", "timestamp": "2025-03-14T10:00:00Z", "signer": "ci"}
    })");
    doc["manifest"]["files"][1]["patches"][0]["from_sha256"] = std::string(64, 'a');
    doc["manifest"]["files"][1]["patches"][0]["sha256"] = std::string(64, 'b');
    return doc;
}

std::optional<Manifest> parse(const json& document) { return parseManifest(document.dump()); }

}  // namespace

// The model written back as JSON under the document's names, to compare with what it said.
NLOHMANN_JSON_SERIALIZE_ENUM(FileAction, {{FileAction::Replace, "replace"}, {FileAction::Merge, "merge"},
                                          {FileAction::Delete, "delete"}, {FileAction::Add, "add"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ManifestPatch, from_sha256, url, size, sha256)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ManifestFile, name, url, size, sha256, target_path, action, backup, critical, restart_required,
                                   patches)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ManifestMetadata, total_download_size, estimated_install_time, restart_required,
                                   compatibility_tested, known_issues, support_url)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ManifestSignature, algorithm, public_key, signature, timestamp, signer)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Manifest, version, release_date, build_number, git_commit, channel, minimum_version,
                                   rollback_version, description, changelog_url, urgency, expires, rollout_percentage, files,
                                   metadata, signature, signatures)

namespace {

// Where the model keeps the value at a pointer of the document.
json::json_pointer inModel(const std::string& pointer) {
    return json::json_pointer(pointer.starts_with("/manifest") ? pointer.substr(9) : pointer);
}

// The pointers of a document's values; a list of texts is one value.
void values(const json& value, const std::string& at, std::vector<std::string>& pointers) {
    if (value.is_object()) {
        for (const auto& [key, member] : value.items()) values(member, at + "/" + key, pointers);
    } else if (value.is_array() && !value.empty() && value[0].is_object()) {
        for (std::size_t i = 0; i < value.size(); ++i) values(value[i], at + "/" + std::to_string(i), pointers);
    } else {
        pointers.push_back(at);
    }
}

// Each value is kept as given; absent, the default stays; of another type, the manifest is refused.
TEST(ParseManifest, EveryFieldIsKeptDefaultedWhenAbsentAndRefusedWhenMistyped) {
    const json full = validDocument();
    const auto manifest = parse(full);
    ASSERT_TRUE(manifest);
    EXPECT_EQ(validateManifest(*manifest), "");
    Manifest defaults;
    defaults.files.resize(2);
    defaults.files[1].patches.resize(1);
    const json model = *manifest, fallback = defaults;
    std::vector<std::string> pointers;
    values(full, "", pointers);
    ASSERT_EQ(pointers.size(), 41u);  // every value of the document
    for (const std::string& pointer : pointers) {
        SCOPED_TRACE(pointer);
        const json::json_pointer at(pointer);
        EXPECT_EQ(model[inModel(pointer)], full[at]);
        EXPECT_NE(fallback[inModel(pointer)], full[at]);
        json absent = full, mistyped = full;
        absent[at.parent_pointer()].erase(at.back());
        const auto withoutIt = parse(absent);
        ASSERT_TRUE(withoutIt);
        EXPECT_EQ(json(*withoutIt)[inModel(pointer)], fallback[inModel(pointer)]);
        mistyped[at] = json::object();
        EXPECT_FALSE(parse(mistyped));
    }
}

// Values the reader takes its own way, and documents of another shape, which give nothing.
TEST(ParseManifest, ReadingsOfValuesAndShapes) {
    const json patch = validDocument()["manifest"]["files"][1]["patches"][0];
    const struct { std::string pointer; json value; std::optional<json> reading; /* nothing: not a manifest */ } rows[] = {
        // Numbers are signed 32-bit readings; a negative size is widened with its sign.
        {"/manifest/files/1/size", 1.9, 1},
        {"/manifest/files/1/size", true, 1},
        {"/manifest/files/1/size", 2147483647, 2147483647},
        {"/manifest/files/1/size", -1, std::numeric_limits<std::uint64_t>::max()},
        // Sizes the format cannot carry are refused rather than wrapped.
        {"/manifest/files/1/size", 3000000000u, std::nullopt},
        {"/manifest/files/1/size", 2147483648.5, std::nullopt},
        {"/manifest/metadata/total_download_size", 4294967297u, 1},  // low 32 bits
        {"/manifest/metadata/estimated_install_time", 12.7, 12},
        {"/manifest/rollout_percentage", 101, std::nullopt},
        {"/manifest/rollout_percentage", -1, std::nullopt},
        {"/manifest/rollout_percentage", 2.5, std::nullopt},
        // Action texts are case-sensitive; an unknown one means replace.
        {"/manifest/files/1/action", "merge", "merge"},
        {"/manifest/files/1/action", "add", "add"},
        {"/manifest/files/1/action", "Delete", "replace"},
        // Times are UTC; one the clock cannot hold, or an impossible date, is the epoch.
        {"/manifest/release_date", "2024-02-29T23:59:59Z", "2024-02-29T23:59:59Z"},
        {"/manifest/release_date", "-30225-01-01T00:00:00Z", "1970-01-01T00:00:00Z"},
        {"/manifest/release_date", "9999-12-31T23:59:59Z", "1970-01-01T00:00:00Z"},
        {"/manifest/release_date", "2023-02-30T00:00:00Z", "1970-01-01T00:00:00Z"},
        {"", json::array(), std::nullopt},
        {"", {{"signature", json::object()}}, std::nullopt},
        {"/manifest", "2.1.0", std::nullopt},
        {"/manifest/files", json::object(), std::nullopt},
        {"/manifest/files/0", "VELK.dll", std::nullopt},
        {"/manifest/files/1/patches", json::object(), std::nullopt},
        {"/manifest/files/1/patches", json(std::vector<json>(kMaxPatchesPerFile + 1, patch)), std::nullopt},
        {"/manifest/files/1/patches/0", "patch", std::nullopt},
        {"/manifest/metadata", json::array(), std::nullopt},
        {"/signature", "signed", std::nullopt},
        {"/signatures", json::object(), std::nullopt},
        {"/signatures", json::array({"signed"}), std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pointer + " = " + row.value.dump());
        json document = validDocument();
        document[json::json_pointer(row.pointer)] = row.value;
        const auto manifest = parse(document);
        ASSERT_EQ(manifest.has_value(), row.reading.has_value());
        if (manifest) {
            EXPECT_EQ(json(*manifest)[inModel(row.pointer)], *row.reading);
        }
    }
}

TEST(ValidateManifest, FirstBrokenRuleInOrder) {
    const struct { const char* what; std::function<void(Manifest&)> edit; std::string problem; } rows[] = {
        {"nothing", [](Manifest& m) { m = Manifest{}; }, "Version is empty"},
        {"no files", [](Manifest& m) { m.files.clear(); }, "No files specified"},
        {"no algorithm", [](Manifest& m) { m.signature = {}; }, "Signature algorithm is empty"},
        {"no signature", [](Manifest& m) { m.signature.signature.clear(); m.signature.public_key.clear(); }, "Signature is empty"},
        {"no key", [](Manifest& m) { m.signature.public_key.clear(); }, "Public key is empty"},
        {"no name", [](Manifest& m) { m.files[0].name.clear(); m.files[0].url.clear(); }, "File name is empty"},
        {"no URL", [](Manifest& m) { m.files[1].url.clear(); m.files[1].sha256.clear(); }, "File URL is empty"},
        {"no digest", [](Manifest& m) { m.files[1].sha256.clear(); m.files[1].size = 0; }, "File SHA256 is empty"},
        {"empty file", [](Manifest& m) { m.files[0].size = 0; }, "File size is zero"},
        {"name with a folder", [](Manifest& m) { m.files[1].name = "bin/x.dll"; }, fileNameProblem("bin/x.dll")},
        {"target outside", [](Manifest& m) { m.files[1].target_path = "../x.dll"; }, targetPathProblem("../x.dll")},
        {"URL above its base", [](Manifest& m) { m.files[1].url = "../x.dll"; }, urlPathProblem("../x.dll")},
        {"patch base digest", [](Manifest& m) { m.files[1].patches[0].from_sha256 = "aa"; }, "Patch digest is not a SHA-256"},
        {"patch digest", [](Manifest& m) { m.files[1].patches[0].sha256 += "b"; }, "Patch digest is not a SHA-256"},
        {"empty patch", [](Manifest& m) { m.files[1].patches[0].size = 0; }, "Patch size is zero"},
        {"no patch URL", [](Manifest& m) { m.files[1].patches[0].url.clear(); }, "Patch URL is empty"},
        {"patch above its base", [](Manifest& m) { m.files[1].patches[0].url = "../p"; }, urlPathProblem("../p")},
    };
    const Manifest valid = *parse(validDocument());
    EXPECT_TRUE(isManifestValid(valid));
    for (const auto& row : rows) {
        Manifest broken = valid;
        row.edit(broken);
        EXPECT_EQ(validateManifest(broken), row.problem) << row.what;
        EXPECT_FALSE(isManifestValid(broken)) << row.what;
    }
}

}  // namespace
}  // namespace velk::updater
