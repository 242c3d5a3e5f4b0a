// The facilities of the Windows backend, checked against what the system itself shows.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "installation/installation.hpp"
#include "installation/version_record.hpp"
#include "platform/containment.hpp"
#include "platform/elevation.hpp"
#include "platform/instance_lock.hpp"
#include "platform/known_folders.hpp"
#include "platform/paths.hpp"
#include "platform/private_files.hpp"
#include "platform/process.hpp"
#include "platform/registry.hpp"
#include "platform/services.hpp"
#include "platform/zip_extract.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

// Wine exports wine_get_version from its ntdll; Windows does not.
bool runningUnderWine() {
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

struct CommandOutput {
    int exitCode = -1;
    std::string text;  // standard output
};

// Runs a command line through the command processor and collects its standard output.
CommandOutput captureCommand(const std::string& commandLine) {
    CommandOutput output;
    // The outer quotes are removed by cmd /c, so quoted paths inside survive.
    FILE* pipe = _popen(("\"" + commandLine + "\"").c_str(), "r");
    if (pipe == nullptr) return output;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0;) output.text.append(buffer, n);
    output.exitCode = _pclose(pipe);
    return output;
}

std::string systemFolder() {
    char system[MAX_PATH] = {};
    GetSystemDirectoryA(system, MAX_PATH);
    return system;
}

// reg.exe by its full path, so that the query does not depend on the command search path.
std::string regQuery(const std::string& key) { return "\"" + systemFolder() + "\\reg.exe\" query \"" + key + "\""; }

// The folder holding the cross-built programs: this test program lives two levels below it.
std::string buildFolder() {
    std::string path = executablePath();
    for (int level = 0; level < 3; ++level) path = path.substr(0, path.find_last_of('\\'));
    return path;
}

// Its parent, a sibling with the same prefix and another drive are outside the folder.
TEST(ArbitraryInstallation, FoldersCompareInAnyCaseAndParentsDoNotEscape) {
    const test::TempDir dir;
    const fs::path folder = dir.path() / "VELK";
    fs::create_directories(folder);
    std::string upper = (folder / "sub" / "VELK.dll").string();
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const struct {
        fs::path path;
        bool inside;
    } rows[] = {
        {upper, true},         {folder / "VELK.dll", true},
        {folder, false},       {folder / ".." / "VELK.dll", false},
        {dir.path() / "VELKother" / "VELK.dll", false},
        {"C:\\Windows\\System32\\drivers\\x.sys", false},
    };
    for (const auto& row : rows) EXPECT_EQ(isInsideFolder(folder, row.path), row.inside) << row.path;
}

TEST(ConcurrentRuns, SecondLockOfOneInstallationIsBusyUntilTheFirstIsReleased) {
    const std::string install = "C:\\VelkLockTest\\Install";
    {
        const InstanceLock first(install);
        ASSERT_EQ(first.status(), LockStatus::Acquired);
        for (const std::string& same : {install, install + "\\", std::string("c:\\velklocktest\\INSTALL"),
                                        std::string("C:/VelkLockTest/Other/../Install")}) {
            EXPECT_EQ(InstanceLock(same).status(), LockStatus::Busy) << same;
        }
        EXPECT_EQ(InstanceLock("C:\\VelkLockTest\\Other").status(), LockStatus::Acquired);
    }
    EXPECT_EQ(InstanceLock(install).status(), LockStatus::Acquired);
}

std::string accessList(const fs::path& folder) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(folder.wstring().c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &dacl, nullptr, &descriptor) != ERROR_SUCCESS) {
        return "unreadable";
    }
    LPSTR text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text,
                                                         nullptr);
    std::string result = text != nullptr ? text : "";
    LocalFree(text);
    LocalFree(descriptor);
    return result;
}

// Hidden, nothing inherited; an earlier run's folder gets the list again. Wine maps an access
// list to the file's mode and back, so there only "nobody else is let in" can be checked.
TEST(PrivateFolder, OnlyAdministratorsAndSystem) {
    const std::string expected = "D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";
    const test::TempDir dir;
    const fs::path folder = dir.path() / ".velk_downloads";
    std::string error;
    ASSERT_TRUE(preparePrivateFolder(folder.string(), error)) << error;
    const std::string created = accessList(folder);
    std::cout << "access list: " << created << "\n";
    EXPECT_TRUE(runningUnderWine() || created == expected) << created;
    for (const char* everyone : {";;;WD)", ";;;BU)", ";;;AU)"}) EXPECT_EQ(created.find(everyone), std::string::npos);
    EXPECT_NE(GetFileAttributesW(folder.wstring().c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u);
    ASSERT_TRUE(preparePrivateFolder(folder.string(), error)) << error;
    EXPECT_TRUE(runningUnderWine() || accessList(folder) == expected) << accessList(folder);

    test::writeFile(dir.path() / "file", "x");
    EXPECT_FALSE(preparePrivateFolder((dir.path() / "file").string(), error));
    EXPECT_NE(error.find("is not a folder"), std::string::npos) << error;
}

TEST(ProcessTest, ExecutablePathAndProgramFilesComeFromTheSystem) {
    const std::string path = executablePath();
    EXPECT_TRUE(path.ends_with("\\test_windows.exe")) << path;
    EXPECT_TRUE(fs::exists(path)) << path;

    const auto programFiles = programFilesFolder();
    ASSERT_TRUE(programFiles.has_value());
    EXPECT_EQ(*programFiles, "C:\\Program Files");
    EXPECT_EQ(joinPath(*programFiles, "VELK"), "C:\\Program Files\\VELK");
}

TEST(ElevationTest, RunasStartsTheProgramAndHandsBackItsExitCode) {
    const std::string cmd = systemFolder() + "\\cmd.exe";

    const ElevationResult waited = startElevated(cmd, "/c exit 7", true);
    ASSERT_TRUE(waited.success) << waited.message;
    EXPECT_EQ(waited.message, "Elevation request successful");
    EXPECT_EQ(waited.exitCode, 7u);

    const ElevationResult missing = startElevated(cmd + ".missing", "", true);
    EXPECT_FALSE(missing.success);
    EXPECT_NE(missing.errorCode, 0u);
    EXPECT_EQ(missing.message, "Failed to request elevation: " + formatSystemError(missing.errorCode));
}

TEST(ElevationTest, ElevatedProcessStartsNothing) {
    if (!isProcessElevated()) GTEST_SKIP() << "this test needs an elevated process";
    const ElevationResult result = requestElevation("C:\\nothing.exe", "", true);
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.alreadyElevated);
    EXPECT_EQ(result.message, "Process is already elevated");
}

// Wine has no shell zip folders: there the test skips, so it is never counted as a pass.
TEST(WineLimitsTest, ZipExtractionThroughShellFolders) {
    if (runningUnderWine()) {
        GTEST_SKIP() << "Wine has no zip folders: Shell.Application's NameSpace on a .zip returns S_FALSE";
    }
    const test::TempDir dir;
    test::writeFile(dir / "in" / "VELK.dll", "library bytes");
    // tar.exe ships with Windows 10 and later and writes zip archives with -a.
    const std::string zip = (dir / "VELK.zip").string(), out = (dir / "VELK.dll.tmp").string();
    ASSERT_EQ(captureCommand("tar -a -cf \"" + zip + "\" -C \"" + (dir / "in").string() + "\" VELK.dll").exitCode, 0);
    ASSERT_EQ(extractZipEntry(zip, "VELK.dll", out, 13), ZipEntryStatus::Extracted);
    EXPECT_EQ(test::readFile(out), "library bytes");
    EXPECT_EQ(extractZipEntry(zip, "VELK.dll", out, 12), ZipEntryStatus::TooLarge);
    EXPECT_FALSE(fs::exists(out));
}

// The registry and the service control manager, checked against what reg and sc see.
class ProductRecordTest : public ::testing::Test {
protected:
    void SetUp() override {
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
        // The product never creates its key; the installer does.
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE, kProductRegistryKey, &key), ERROR_SUCCESS);
        RegCloseKey(key);
    }
    void TearDown() override { RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey); }
};

TEST_F(ProductRecordTest, TypedReadsRefuseOtherTypesAndReportMissingValues) {
    const DWORD seven = 7;
    ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, kProductRegistryKey, "Version", REG_DWORD, &seven, sizeof(seven)),
              ERROR_SUCCESS);
    std::uint32_t size = 0;
    EXPECT_EQ(getStringValue(kProductRegistryKey, "Version", nullptr, &size), kErrorUnsupportedType);
    EXPECT_EQ(getStringValue(kProductRegistryKey, "Absent", nullptr, &size), kErrorFileNotFound);

    RegistryKey key;
    ASSERT_EQ(key.open(kProductRegistryKey, RegistryAccess::Read), kErrorSuccess);
    std::uint32_t type = 0;
    DWORD value = 0;
    size = sizeof(value);
    ASSERT_EQ(key.queryValue("Version", &type, &value, &size), kErrorSuccess);
    EXPECT_EQ(type, kRegDword);
    EXPECT_EQ(value, 7u);
}

TEST_F(ProductRecordTest, WrittenVersionIsWhatRegQueryShowsAndAMissingKeyIsNeverCreated) {
    ASSERT_TRUE(setInstalledVersion("2.5.1", "1234"));
    const std::string version = captureCommand(regQuery("HKLM\\SOFTWARE\\Quenmark\\VELK") + " /v Version").text;
    EXPECT_NE(version.find("REG_SZ"), std::string::npos) << version;
    EXPECT_NE(version.find("2.5.1"), std::string::npos) << version;
    EXPECT_EQ(getInstalledVersion(), "2.5.1");

    RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
    EXPECT_FALSE(setInstalledVersion("3.0.0", "1"));
    EXPECT_EQ(captureCommand(regQuery("HKLM\\SOFTWARE\\Quenmark\\VELK")).exitCode, 1);  // not found
}

TEST(ServiceManagerTest, ServiceCreatedBySeamIsFoundByOpenService) {
    const std::string name = "VELKTestSvc";
    std::system(("sc delete " + name + " >NUL 2>&1").c_str());
    const auto before = queryServicePresence(name);
    EXPECT_TRUE(before.managerOpened);
    EXPECT_FALSE(before.serviceOpened);
    EXPECT_FALSE(isServiceInstalled(name));

    ASSERT_EQ(createService(name, "VELK Test Service", "C:\\VELK\\VELK_Service.exe"), 0);
    EXPECT_TRUE(queryServicePresence(name).serviceOpened);
    EXPECT_TRUE(isServiceInstalled(name));
    // Wine's sc has no "qc"; the service's key holds the command line.
    const auto image = captureCommand(regQuery("HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + name) + " /v ImagePath");
    EXPECT_NE(image.text.find("C:\\VELK\\VELK_Service.exe"), std::string::npos) << image.text;
    // A second creation fails; Windows' sc gives ERROR_SERVICE_EXISTS as the exit code, Wine's 1.
    EXPECT_EQ(createService(name, "VELK Test Service", "C:\\x.exe"), runningUnderWine() ? 1 : 1073);

    EXPECT_EQ(std::system(("sc delete " + name + " >NUL").c_str()), 0);
    EXPECT_FALSE(queryServicePresence(name).serviceOpened);
}

// Reads one OutputDebugString text out of the debugged process.
std::string debugString(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info) {
    std::string text(info.nDebugStringLength, '\0');
    ReadProcessMemory(process, info.lpDebugStringData, text.data(), text.size(), nullptr);
    return text.substr(0, text.find('\0'));
}

// Every debugger text the command line sent, run under this process as its debugger.
std::vector<std::string> debugStringsOf(std::string commandLine) {
    std::vector<std::string> strings;
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, DEBUG_ONLY_THIS_PROCESS, nullptr,
                        nullptr, &startup, &process)) {
        ADD_FAILURE() << "CreateProcessA failed: " << GetLastError();
        return strings;
    }
    for (bool running = true; running;) {
        DEBUG_EVENT event{};
        if (!WaitForDebugEvent(&event, 60000)) {
            ADD_FAILURE() << "no debug event within a minute";
            TerminateProcess(process.hProcess, 1);
            break;
        }
        const DWORD code = event.dwDebugEventCode;
        if (code == OUTPUT_DEBUG_STRING_EVENT) strings.push_back(debugString(process.hProcess, event.u.DebugString));
        if (code == CREATE_PROCESS_DEBUG_EVENT) CloseHandle(event.u.CreateProcessInfo.hFile);
        if (code == LOAD_DLL_DEBUG_EVENT) CloseHandle(event.u.LoadDll.hFile);
        running = code != EXIT_PROCESS_DEBUG_EVENT;
        // The loader's breakpoint is ours to pass; every other exception is the program's own.
        const bool programs = code == EXCEPTION_DEBUG_EVENT &&
                              event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT;
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId, programs ? DBG_EXCEPTION_NOT_HANDLED : DBG_CONTINUE);
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return strings;
}

TEST(DebugOutputTest, EveryLogLineReachesAnAttachedDebugger) {
    const auto strings = debugStringsOf("\"" + buildFolder() +
                                        "\\VELK_Updater.exe\" --check-only --manifest C:\\absent.json");
    // A whole line: the time stamp before the level, the line end after the message.
    const auto sent = [&](const std::string& tail) {
        return std::ranges::any_of(strings, [&](const std::string& s) {
            return s.size() > tail.size() && s.starts_with('[') && s.ends_with(tail);
        });
    };
    EXPECT_TRUE(sent("[INFO] [] VELK Update Client starting...\n"));
    EXPECT_TRUE(sent("[ERROR] [] Update check failed\n"));
}

}  // namespace
}  // namespace velk::updater::platform
