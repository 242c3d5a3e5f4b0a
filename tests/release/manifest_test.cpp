#include "release/manifest.hpp"

#include <gtest/gtest.h>

#include <ctime>
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

// Values read its own way; shapes giving nothing; values read but refused, by the rule they break.
TEST(ParseManifest, ReadingsOfValuesAndShapes) {
    const json patch = validDocument()["manifest"]["files"][1]["patches"][0];
    const std::string b65(65, 'b');
    const struct { std::string pointer; json value; std::optional<json> reading; /* nothing: not a manifest */ std::string problem = ""; } rows[] = {
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
        {"/manifest/version", "", "", "Version is empty"},
        {"/manifest/files", json::array(), json::array(), "No files specified"},
        {"/signature/algorithm", "", "", "Signature algorithm is empty"},
        {"/signature/signature", "", "", "Signature is empty"},
        {"/signature/public_key", "", "", "Public key is empty"},
        {"/manifest/files/0/name", "", "", "File name is empty"},
        {"/manifest/files/1/url", "", "", "File URL is empty"},
        {"/manifest/files/1/sha256", "", "", "File SHA256 is empty"},
        {"/manifest/files/0/size", 0, 0, "File size is zero"},
        {"/manifest/files/1/name", "bin/x.dll", "bin/x.dll", fileNameProblem("bin/x.dll")},
        {"/manifest/files/1/target_path", "../x.dll", "../x.dll", targetPathProblem("../x.dll")},
        {"/manifest/files/1/url", "../x.dll", "../x.dll", urlPathProblem("../x.dll")},
        {"/manifest/files/1/patches/0/from_sha256", "aa", "aa", "Patch digest is not a SHA-256"},
        {"/manifest/files/1/patches/0/sha256", b65, b65, "Patch digest is not a SHA-256"},
        {"/manifest/files/1/patches/0/size", 0, 0, "Patch size is zero"},
        {"/manifest/files/1/patches/0/url", "", "", "Patch URL is empty"},
        {"/manifest/files/1/patches/0/url", "../p", "../p", urlPathProblem("../p")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pointer + " = " + row.value.dump());
        json document = validDocument();
        document[json::json_pointer(row.pointer)] = row.value;
        const auto manifest = parse(document);
        ASSERT_EQ(manifest.has_value(), row.reading.has_value());
        if (manifest) {
            EXPECT_EQ(json(*manifest)[inModel(row.pointer)], *row.reading);
            EXPECT_EQ(validateManifest(*manifest), row.problem);
            EXPECT_EQ(isManifestValid(*manifest), row.problem.empty());
        }
    }
}

// Each text, and whether the rule lets it through.
void expectAllowed(std::string (*problem)(const std::string&),
                   const std::vector<std::pair<std::string, bool>>& rows) {
    for (const auto& [text, allowed] : rows) EXPECT_EQ(problem(text).empty(), allowed) << text;
}

// Names reaching outside the folder or a device on some system, next to ordinary release names.
TEST(ArbitraryInstallation, FileNamesMustBePlain) {
    expectAllowed(fileNameProblem, {
        {"VELK.dll", true},        {"VELK_Sys_x64.sys", true}, {"libcurl.dll", true},  {".hidden", true},
        {"", false},               {".", false},               {"..", false},          {"../x", false},
        {"sub/x", false},          {"sub\\x", false},          {"C:x", false},         {"x:stream", false},
        {"a\nb", false},           {std::string("a\0b", 3), false}, {"x.", false},     {"x ", false},
        {"CON", false},            {"nul.dll", false},         {"Com1.txt", false},    {"lpt9", false},
        {"COM10", true},           {"CONSOLE.dll", true},      {"a|b", false},         {"a*b", false},
        // The name is also a URL's last segment: these would ask the server for its parent.
        {".%2E", false},           {"%2e%2e", false},          {"..#x", false},        {"100%.dll", true},
    });
}

TEST(ArbitraryInstallation, TargetPathsStayInsideTheInstallationFolder) {
    expectAllowed(targetPathProblem, {
        {"VELK.dll", true},         {"drivers/VELK_Sys.sys", true}, {"drivers\\VELK_Sys.sys", true},
        {"./VELK.dll", true},       {"", false},                    {"../../x", false},
        {"sub/../../x", false},     {"sub\\..\\x", false},          {"/etc/passwd", false},
        {"\\Windows\\x.dll", false}, {"C:\\Windows\\x.dll", false}, {"C:x.dll", false},
        {"\\\\server\\share\\x", false}, {"//server/share/x", false}, {"sub/", false},
        {"sub/.", false},           {"sub/CON/x", false},           {"VELK.dll:ads", false},
    });
}

TEST(ArbitraryInstallation, DownloadUrlsStayBelowTheirBase) {
    expectAllowed(urlPathProblem, {
        {"files/VELK.dll", true},   {"https://cdn.example/files/VELK.dll", true}, {"VELK.dll?v=..", true},
        {"../VELK.dll", false},     {"files/../../etc/x", false}, {"https://cdn.example/a/%2e%2E/x", false},
        {"files/.%2e/x", false},    {"files\\..\\x", false},      {"files/x\r\nHost: evil", false},
        // Not a leading http(s) scheme: the whole text is a path relative to the base.
        {"../https://h/x", false}, {"ftp://../x", false},
    });
}

}  // namespace
}  // namespace velk::updater
