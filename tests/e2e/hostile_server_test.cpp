#include <sys/resource.h>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

// A site that lies (the plain build checks no signature).
class HostileServerTest : public EndToEndTest {
  protected:
    // Under a file size limit, a body written past its bound kills the run before it fills the disk.
    ProcessResult runLimited(const std::vector<std::string>& args = {}) {
        rlimit saved{};
        getrlimit(RLIMIT_FSIZE, &saved);
        const rlimit limited{16 * kMiB, saved.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
        const ProcessResult result = run(args);
        setrlimit(RLIMIT_FSIZE, &saved);
        return result;
    }

    // The largest regular file below `folder`: what a cut-off body left behind.
    static std::uintmax_t largestFile(const fs::path& folder) {
        std::uintmax_t largest = 0;
        std::error_code error;
        for (fs::recursive_directory_iterator it(folder, error), end; it != end; it.increment(error)) {
            if (it->is_regular_file(error)) largest = std::max(largest, it->file_size(error));
        }
        return largest;
    }

    // The run ended by itself, with no file in place and no version recorded.
    void expectNothingInstalled(const ProcessResult& result) {
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_NE(result.out.find("Update process failed or no updates available\n"), std::string::npos);
        EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));
        EXPECT_EQ(registryText().find("\"Version\"="), std::string::npos);
    }
};

class EndlessData : public HostileServerTest {};
class ZipBomb : public HostileServerTest {};
class OversizedManifest : public HostileServerTest {};

// Every base answers the archive and the plain file with a body that never ends.
TEST_F(EndlessData, FileDownloadStopsPastTheEntrysSize) {
    publish("2.0.0", "200", {{"VELK.dll", "0123456789"}});
    for (const char* base : {"/cdn/", "/mirror/", "/origin/"}) rule(base, "endless");
    startServer();
    expectNothingInstalled(runLimited());
    EXPECT_LT(largestFile(downloads()), 10 + 64 * 1024 + 512 * 1024) << "the zip allowance plus one receive block";
    EXPECT_LT(largestFile(installDir()), kMiB);
}

// The runtime libraries come from the entry's own (absolute) URL after the ordinary files.
TEST_F(EndlessData, SelfUpdateFileStopsPastTheEntrysSize) {
    publish("2.0.0", "200", {{"VELK.dll", "library 2.0"}, {"libcurl.dll", "curl 2.0"}},
            {"--url-base", "http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT)});
    rule("/files/libcurl.dll", "endless");
    startServer();
    const ProcessResult result = runLimited();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "library 2.0") << readFile(logFile());
    EXPECT_TRUE(versionRecorded("2.0.0"));
    EXPECT_TRUE(requested("GET /files/libcurl.dll ")) << requests();
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll_temp"));
    EXPECT_LT(largestFile(installDir()), kMiB);
}

// 1 GiB of zeros in a 1 MB archive for an entry of 1 MiB: only the extraction's bound stops it.
TEST_F(ZipBomb, ExtractionStopsAtTheEntrysSize) {
    publish("2.0.0", "200", {{"VELK.dll", std::string(kMiB, 'v')}});
    rule("/cdn/files/VELK.dll.zip", "zipbomb:1073741824");
    for (const char* other : {"/cdn/files/VELK.dll", "/mirror/", "/origin/"}) rule(other, "404");
    startServer();
    expectNothingInstalled(runLimited());
    EXPECT_TRUE(requested("GET /cdn/files/VELK.dll.zip 200")) << requests();
    EXPECT_LT(largestFile(installDir()), kMiB);  // the download folder included
}

// 200 MB of manifest: its length announced, a chunked body without end, or a local file.
TEST_F(OversizedManifest, IsRefusedWithoutBeingRead) {
    const fs::path local = dir_ / "huge.json";
    writeFile(local, "");
    fs::resize_file(local, 200 * kMiB);
    startServer();
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows{
        {"bigbody:209715200", {}}, {"endless", {}}, {"404", {"--manifest", local.string()}}};
    for (const auto& [action, args] : rows) {
        SCOPED_TRACE(action);
        writeFile(rules(), "/update/manifest.json " + action + "\n");
        expectNothingInstalled(runLimited(args));
        EXPECT_NE(logText().find("larger than"), std::string::npos) << logText();
        fs::remove(logFile());
    }
}

// The entry aimed at each target: the manifest is refused before any file is fetched or checked.
class Containment : public HostileServerTest {
  protected:
    // All below the test's folder but the installation, the system root and the server's log.
    std::map<fs::path, std::string> outsideFiles() const {
        std::map<fs::path, std::string> files;
        for (fs::recursive_directory_iterator it(dir_.path()), end; it != end; ++it) {
            if (it->path() == installDir() || it->path() == root()) {
                it.disable_recursion_pending();
            } else if (it->path() != dir_ / "requests.log") {
                files[it->path()] = it->is_regular_file() ? readFile(it->path()) : "<folder>";
            }
        }
        return files;
    }
    void expectRefused(const std::string& name, const std::string& content, const std::vector<std::string>& targets) {
        publish("2.0.0", "200", {{name, content}});
        startServer();
        for (const std::string& target : targets) {
            SCOPED_TRACE(target);
            editManifest([&](nlohmann::json& d) { d["manifest"]["files"][0]["target_path"] = target; });
            const auto before = outsideFiles();
            expectNothingInstalled(runLimited());
            EXPECT_EQ(outsideFiles(), before);
            EXPECT_EQ(requests().find("/files/"), std::string::npos) << requests();
            EXPECT_TRUE(!fs::exists(downloads()) || fs::is_empty(downloads()));
        }
    }
};
class ArbitraryInstallation : public Containment {};
class ArbitraryDeletion : public Containment {};

TEST_F(ArbitraryInstallation, TargetsOutsideTheInstallationAreRefused) {
    // Two levels up is the shared temporary folder, outside this test's own folder.
    const fs::path escaped = dir_.path().parent_path() / (dir_.path().filename().string() + "-escaped.dll");
    expectRefused("VELK.dll", "planted",
                  {"../../" + escaped.filename().string(), (dir_ / "elsewhere" / "VELK.dll").string(),
                   "drivers/../../elsewhere/VELK.dll"});
    EXPECT_FALSE(fs::exists(escaped));
    fs::remove(escaped);  // outside the test's folder: not removed with it
}

// Listed with another size, the file outside would be deleted as a wrong copy.
TEST_F(ArbitraryDeletion, WrongFilesOutsideTheInstallationAreLeftAlone) {
    const fs::path victim = dir_ / "victim.dll";
    writeFile(victim, "belongs to someone else");
    expectRefused("victim.dll", "a different and longer content", {"../victim.dll", victim.string()});
}

}  // namespace
}  // namespace velk::test
