#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::test {

// The built updater against a fresh system root, the update server on the build's endpoint port.
class EndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(tmp());
        productKey();
    }

    fs::path root() const { return dir_ / "root"; }
    fs::path installDir() const { return dir_ / "install"; }
    // The shared temporary folder, which the updater must leave alone, and its own one.
    fs::path tmp() const { return dir_ / "tmp"; }
    fs::path downloads() const { return installDir() / ".velk_downloads"; }
    fs::path site() const { return dir_ / "site"; }
    fs::path logFile() const { return installDir() / "logs" / "updater.log"; }

    // The product's key with the installation folder and `values`, then any `extraKeys`.
    void productKey(const std::string& values = "", const std::string& extraKeys = "") {
        writeRegistry(root(), std::string(kProductKeyHeader) + "\"InstallPath\"=\"" +
                                  installDir().string() + "\"\n" + values + "\n" + extraKeys);
    }
    std::string registryText() const { return readFile(root() / "registry.reg"); }
    bool versionRecorded(const std::string& version) const {
        return registryText().find("\"Version\"=\"" + version + "\"") != std::string::npos;
    }
    void expectInstalled(const std::map<std::string, std::string>& files) const {
        for (const auto& [name, content] : files) EXPECT_EQ(readFile(installDir() / name), content) << name;
    }

    // Publishes the files (path -> content), signed with the default key unless `extra` names one.
    void publish(const std::string& version, const std::string& build,
                 const std::map<std::string, std::string>& files,
                 const std::vector<std::string>& extra = {}) {
        const fs::path release = dir_ / ("release-" + version + "-" + build);
        fs::remove_all(release);
        for (const auto& [name, content] : files) writeFile(release / name, content);
        std::vector<std::string> args{"--release", release.string(), "--out", site().string(),
                                      "--version", version,          "--build", build};
        args.insert(args.end(), extra.begin(), extra.end());
        runPublisher(args);
    }
    // Runs the publisher in the test's folder, where its default key is kept.
    void runPublisher(const std::vector<std::string>& args) {
        const ProcessResult result =
            runProcess(builtProgram("velk_publish"), args, ProcessOptions{{}, dir_.str()});
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }

    // Edits the published manifest as someone in control of the update site would.
    void editManifest(const std::function<void(nlohmann::json&)>& edit) {
        nlohmann::json document = nlohmann::json::parse(readFile(site() / "manifest.json"));
        edit(document);
        writeFile(site() / "manifest.json", document.dump(2));
    }

    void startServer(const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args{"--root", site().string(), "--port", std::to_string(VELK_LOOPBACK_PORT), "--log",
                                      (dir_ / "requests.log").string(), "--rules", rules().string()};
        args.insert(args.end(), extra.begin(), extra.end());
        server_ = std::make_unique<BackgroundProcess>(builtProgram("velk_update_server"), args);
        ASSERT_NE(server_->readLine().find("listening"), std::string::npos);
    }
    fs::path rules() const { return dir_ / "rules.txt"; }
    // The server answers `path` (or every path below it, when it ends in "/") with `action`.
    void rule(const std::string& path, const std::string& action) {
        std::ofstream(rules(), std::ios::app) << path << ' ' << action << '\n';
    }
    // The server's log: one "GET <path> <status>" line per request answered.
    std::string requests() const { return readFile(dir_ / "requests.log"); }
    static bool eventually(const std::function<bool()>& holds, int seconds = 10) {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        while (!holds()) {
            if (std::chrono::steady_clock::now() > giveUp) return false;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return true;
    }
    // The server writes the line once the answer is sent, maybe after the updater moved on.
    bool requested(const std::string& line) const {
        return eventually([&] { return requests().find(line) != std::string::npos; });
    }

    // The updater's surroundings: this test's system root and shared temporary folder.
    ProcessOptions sandbox() const {
        return {{{"VELK_SYSTEM_ROOT", root().string()}, {"TMPDIR", tmp().string()}}, ""};
    }
    ProcessResult run(const std::vector<std::string>& args) {
        return runProcess(builtProgram(program_), args, sandbox());
    }

    // The log as "[LEVEL] message" lines: "[date time] [LEVEL] [] message" without the time.
    std::string logText() const {
        static const std::regex stamp(R"((^|\n)\[[^\]\n]*\] (\[[A-Z]+\]) \[\])");
        return std::regex_replace(readFile(logFile()), stamp, "$1$2");
    }

    // Whether each line appears in `text`, in this order (other output may come between).
    static bool printedInOrder(const std::string& text, const std::vector<std::string>& lines) {
        std::size_t at = 0;
        for (const auto& line : lines) {
            at = text.find(line, at);
            if (at == std::string::npos) return false;
            at += line.size();
        }
        return true;
    }

    std::string program_ = "VELK_Updater";  // the build that run() starts
    TempDir dir_;
    std::unique_ptr<BackgroundProcess> server_;
};

inline const std::map<std::string, std::string> kRelease1 = {
    {"VELK_Service.exe", "service 1.0"}, {"VELK.dll", "library 1.0"}, {"VELK_Launcher.exe", "launcher 1.0"}};
inline const std::map<std::string, std::string> kRelease2 = {
    {"VELK_Service.exe", "service 2.0 with more bytes"}, {"VELK.dll", "library 2.0"},
    {"VELK_Launcher.exe", "launcher 1.0"}, {"drivers/VELK_Sys.sys", "driver 2.0"}};

}  // namespace velk::test
