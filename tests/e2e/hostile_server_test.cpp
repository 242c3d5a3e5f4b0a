#include <sys/resource.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "e2e_fixture.hpp"
#include "support/digest.hpp"

namespace velk::test {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

// The built updater against a server that lies: bodies without end, zip bombs, huge
// manifests, entries aimed outside the installation. Manifests are written by hand and
// unsigned (the plain build checks no signature), as a compromised server would send them.
class HostileServerTest : public EndToEndTest {
  protected:
    std::string baseUrl() const { return "http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT); }

    static nlohmann::json entry(const std::string& name, const std::string& content,
                                const std::string& target, const std::string& url) {
        return {{"name", name},
                {"url", url},
                {"size", content.size()},
                {"sha256", sha256Hex(content)},
                {"target_path", target},
                {"action", "replace"},
                {"backup", false},
                {"critical", false},
                {"restart_required", false}};
    }
    static nlohmann::json entry(const std::string& name, const std::string& content) {
        return entry(name, content, name, "files/" + name);
    }

    void serveManifest(const std::vector<nlohmann::json>& files) {
        const nlohmann::json manifest = {
            {"manifest",
             {{"version", "2.0.0"},
              {"build_number", "200"},
              {"release_date", "2026-01-01T00:00:00Z"},
              {"channel", "stable"},
              {"files", files}}},
            {"signature",
             {{"algorithm", "Ed25519"}, {"public_key", "AAAA"}, {"signature", "AAAA"}}}};
        writeFile(site() / "manifest.json", manifest.dump(2));
    }
    void rule(const std::string& path, const std::string& action) {
        std::ofstream(rules(), std::ios::app) << path << ' ' << action << '\n';
    }

    // The updater runs under a file size limit, so a body written to disk past its bound
    // kills the run (SIGXFSZ, exit code -1) quickly instead of filling the disk.
    ProcessResult runLimited(const std::vector<std::string>& args = {}) {
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        rlimit limited = saved;
        limited.rlim_cur = 16 * kMiB;
        setrlimit(RLIMIT_FSIZE, &limited);
        const ProcessResult result = run(args);
        setrlimit(RLIMIT_FSIZE, &saved);
        return result;
    }

    bool loggedContaining(const std::string& text) const {
        const auto lines = logLines();
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

    // The largest regular file below `folder`: what a cut-off body left behind.
    static std::uintmax_t largestFile(const fs::path& folder) {
        std::uintmax_t largest = 0;
        std::error_code error;
        for (fs::recursive_directory_iterator it(folder, error), end; it != end;
             it.increment(error)) {
            if (it->is_regular_file(error)) largest = std::max(largest, it->file_size(error));
        }
        return largest;
    }

    // The run ended by itself, with no file in place and no version recorded.
    void expectNothingInstalled(const ProcessResult& result) {
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(result.out.find("Update process failed or no updates available\n"),
                  std::string::npos);
        EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
        EXPECT_FALSE(anyVersionRecorded());
    }
    bool anyVersionRecorded() const {
        return registryText().find("\"Version\"=") != std::string::npos;
    }
};

class EndlessData : public HostileServerTest {};
class ZipBomb : public HostileServerTest {};
class OversizedManifest : public HostileServerTest {};

// Every base answers the archive and the plain file with a body that never ends.
TEST_F(EndlessData, FileDownloadStopsPastTheEntrysSize) {
    serveManifest({entry("VELK.dll", "0123456789")});
    for (const char* base : {"/cdn/", "/mirror/", "/origin/"}) rule(base, "endless");
    startServer();
    const ProcessResult result = runLimited();
    expectNothingInstalled(result);
    EXPECT_TRUE(loggedStartingWith("[WARNING] Download attempt failed: " + baseUrl() +
                                   "/origin/files/VELK.dll => "));
    EXPECT_LT(largestFile(downloads()), 10 + 64 * 1024 + 512 * 1024)
        << "the zip allowance plus one receive block";
    EXPECT_LT(largestFile(installDir()), kMiB);
}

// The runtime libraries come from the entry's own URL after the ordinary files are in.
TEST_F(EndlessData, SelfUpdateFileStopsPastTheEntrysSize) {
    writeFile(site() / "files" / "VELK.dll", "library 2.0");
    serveManifest({entry("VELK.dll", "library 2.0"), entry("libcurl.dll", "curl 2.0", "libcurl.dll",
                                                           baseUrl() + "/cdn/files/libcurl.dll")});
    rule("/cdn/files/libcurl.dll", "endless");
    startServer();
    const ProcessResult result = runLimited();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "library 2.0") << readFile(logFile());
    EXPECT_TRUE(versionRecorded("2.0.0"));
    EXPECT_TRUE(logged("[INFO] Downloading self-update file: libcurl.dll"));
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll_temp"));
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll_temp.partial"));
    EXPECT_LT(largestFile(installDir()), kMiB);
}

// A 1 MB archive of 1 GiB of zeros, offered for an entry of 1 MiB: small enough to be
// downloaded, so only the bounded extraction stands between it and the disk.
TEST_F(ZipBomb, ExtractionStopsAtTheEntrysSize) {
    serveManifest({entry("VELK.dll", std::string(kMiB, 'v'))});
    rule("/cdn/files/VELK.dll.zip", "zipbomb:1073741824");
    for (const char* other : {"/cdn/files/VELK.dll", "/mirror/", "/origin/"}) rule(other, "404");
    startServer();
    const ProcessResult result = runLimited();
    expectNothingInstalled(result);
    EXPECT_TRUE(loggedStartingWith("[ERROR] Failed to update file VELK.dll: "));
    EXPECT_LT(largestFile(downloads()), 2 * kMiB);
    EXPECT_LT(largestFile(installDir()), kMiB);
}

// 200 MB of manifest, from the server (its length announced, or a chunked body without end)
// or from a local file.
TEST_F(OversizedManifest, IsRefusedWithoutBeingRead) {
    const fs::path local = dir_ / "huge.json";
    std::ofstream(local).close();
    fs::resize_file(local, 200 * kMiB);
    startServer();
    struct Row {
        std::string what;
        std::string rule;
        std::vector<std::string> args;
    };
    for (const Row& row : std::vector<Row>{{"announced", "bigbody:209715200", {}},
                                           {"endless", "endless", {}},
                                           {"local", "404", {"--manifest", local.string()}}}) {
        SCOPED_TRACE(row.what);
        writeFile(rules(), "/update/manifest.json " + row.rule + "\n");
        const ProcessResult result = runLimited(row.args);
        expectNothingInstalled(result);
        EXPECT_TRUE(loggedStartingWith("[ERROR] Failed to ")) << result.out;
        EXPECT_TRUE(loggedContaining("larger than")) << result.out;
        fs::remove(logFile());
    }
}

// Every file below the test's folder, with its content, except what the updater and the
// server may write: the installation with its backups, logs and downloads, the
// system root (registry, run lock) and the server's request log.
class Containment : public HostileServerTest {
  protected:
    std::map<std::string, std::string> outsideFiles() const {
        const std::vector<fs::path> owned = {installDir(), root(), dir_ / "requests.log"};
        std::map<std::string, std::string> files;
        for (fs::recursive_directory_iterator it(dir_.path()), end; it != end; ++it) {
            if (std::find(owned.begin(), owned.end(), it->path()) != owned.end()) {
                it.disable_recursion_pending();
                continue;
            }
            files[it->path().string()] = it->is_regular_file() ? readFile(it->path()) : "<folder>";
        }
        return files;
    }

    // Runs a manifest of one entry aimed at `target`: it must be refused before any file
    // is fetched, checked or written, and nothing outside the updater's folders changes.
    void expectRefused(const std::string& name, const std::string& content,
                       const std::string& target) {
        SCOPED_TRACE(target);
        serveManifest({entry(name, content, target, "files/" + name)});
        fs::remove(logFile());
        const auto before = outsideFiles();
        const ProcessResult result = runLimited();
        EXPECT_EQ(outsideFiles(), before);
        EXPECT_TRUE(!fs::exists(downloads()) || fs::is_empty(downloads()));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_FALSE(anyVersionRecorded());
        EXPECT_TRUE(loggedStartingWith(
            "[ERROR] Manifest verification failed: Invalid manifest structure: Target "))
            << readFile(logFile());
    }
};

class ArbitraryInstallation : public Containment {};
class ArbitraryDeletion : public Containment {};

TEST_F(ArbitraryInstallation, TargetsOutsideTheInstallationAreRefused) {
    // Two levels up is the shared temporary folder, outside this test's own folder.
    const fs::path escaped =
        dir_.path().parent_path() / (dir_.path().filename().string() + "-escaped.dll");
    writeFile(site() / "files" / "VELK.dll", "planted");
    startServer();
    for (const std::string& target :
         {"../../" + escaped.filename().string(), (dir_ / "elsewhere" / "VELK.dll").string(),
          std::string("drivers/../../elsewhere/VELK.dll")}) {
        expectRefused("VELK.dll", "planted", target);
        EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
    }
    EXPECT_FALSE(fs::exists(escaped));
    fs::remove(escaped);  // outside the test's folder: not removed with it
}

// A file outside the installation that the manifest lists with another size: the
// integrity pass would delete it as a wrong copy.
TEST_F(ArbitraryDeletion, WrongFilesOutsideTheInstallationAreLeftAlone) {
    const fs::path victim = dir_ / "victim.dll";
    writeFile(victim, "belongs to someone else");
    startServer();
    for (const std::string& target : {std::string("../victim.dll"), victim.string()}) {
        expectRefused("victim.dll", "a different and longer content", target);
        EXPECT_EQ(readFile(victim), "belongs to someone else");
    }
}

}  // namespace
}  // namespace velk::test
