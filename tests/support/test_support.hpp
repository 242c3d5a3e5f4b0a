#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

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

std::string readFile(const fs::path& path);
void writeFile(const fs::path& path, const std::string& content);

}  // namespace velk::test
