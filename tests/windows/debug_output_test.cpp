// The logger's debugger channel, read by this test acting as the debugger of the exe.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "windows/windows_support.hpp"

namespace velk::test {
namespace {

// Reads one OutputDebugString text out of the debugged process.
std::string debugString(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info) {
    std::string text(info.nDebugStringLength, '\0');
    SIZE_T read = 0;
    ReadProcessMemory(process, info.lpDebugStringData, text.data(), text.size(), &read);
    text.resize(read);
    while (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

// Runs the command line under this process as its debugger; every debugger text it sent.
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
    const auto strings = debugStringsOf("\"" + buildFolder() + "\\VELK_Updater.exe\" --check-only --manifest C:\\absent.json");
    const auto sent = [&](const std::string& tail) {
        return std::any_of(strings.begin(), strings.end(), [&](const std::string& s) {
            return s.size() > tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0 && s[0] == '[';
        });
    };
    EXPECT_TRUE(sent("[INFO] [] VELK Update Client starting...\n"));
    EXPECT_TRUE(sent("[ERROR] [] Update check failed\n"));
}

}  // namespace
}  // namespace velk::test
