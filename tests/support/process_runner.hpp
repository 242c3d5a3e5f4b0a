#pragma once

#include <map>
#include <string>
#include <vector>

namespace velk::test {

struct ProcessResult {
    int exitCode = -1;  // -1 when the process did not end normally
    std::string out;
    std::string err;
};

struct ProcessOptions {
    std::map<std::string, std::string> env;  // added to (or replacing in) this environment
    std::string workingDirectory;            // empty: this process's
    std::string input;                       // written to the child's standard input
};

// Runs a program with arguments (no shell), waits for it, and returns its exit code
// and everything it wrote to standard output and standard error.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options = {});

// Path of a program built by this project (for example "VELK_Updater").
std::string builtProgram(const std::string& name);

}  // namespace velk::test
