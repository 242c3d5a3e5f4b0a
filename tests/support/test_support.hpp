#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velk::test {

namespace fs = std::filesystem;

// A fresh directory under the system's temporary directory, removed with its contents.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    fs::path operator/(const std::string& name) const { return path_ / name; }

private:
    fs::path path_;
};

// Sets an environment variable, or removes it when `value` holds nothing.
void setEnvironment(const std::string& name, const std::optional<std::string>& value);

// Sets an environment variable for the lifetime of the object and restores it after.
class ScopedEnv {
public:
    ScopedEnv(const std::string& name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// A fixture with a fresh temporary directory that is also the emulated system root.
class SystemRootTest : public ::testing::Test {
protected:
    SystemRootTest() : rootEnv_("VELK_SYSTEM_ROOT", root_.str()) {}
    const fs::path& root() const { return root_.path(); }

    TempDir root_;
    ScopedEnv rootEnv_;
};

// The immutable attribute stops writes and deletion even for root; false where it cannot be set.
bool setImmutable(const fs::path& path, bool immutable);

// Holds a path immutable for its lifetime; `active()` says whether that worked.
class ScopedImmutable {
public:
    explicit ScopedImmutable(fs::path path) : path_(std::move(path)), active_(setImmutable(path_, true)) {}
    ~ScopedImmutable() {
        if (active_) setImmutable(path_, false);
    }
    ScopedImmutable(const ScopedImmutable&) = delete;
    ScopedImmutable& operator=(const ScopedImmutable&) = delete;
    bool active() const { return active_; }

private:
    fs::path path_;
    bool active_;
};

std::string readFile(const fs::path& path);

// What a text stream writes for "\n" on this platform: "\r\n" on Windows.
extern const std::string kLineEnd;

// The lines of a text, each ended by kLineEnd; a last line without one counts too.
std::vector<std::string> splitLines(const std::string& text);

// Writes <root>/registry.reg: the export header followed by `body` ("[KEY]" sections).
void writeRegistry(const fs::path& root, const std::string& body);
inline constexpr const char* kProductKeyHeader = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\n";
void writeFile(const fs::path& path, const std::string& content);

}  // namespace velk::test
