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
};

// Runs a program (no shell), waits for it, and returns its exit code and output.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options = {});

// A program running beside the test, ended (SIGTERM, then waited for) when destroyed.
class BackgroundProcess {
public:
    BackgroundProcess(const std::string& program, const std::vector<std::string>& args,
                      const ProcessOptions& options = {});
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    // The next line of standard output, without its line end; empty when the output ends.
    std::string readLine();
    // Sends the signal and waits; the exit code, or -1 when the process did not end normally.
    int stop(int signal = 15);

private:
    int pid_ = -1;
    int out_ = -1;
    std::string pending_;
};

// Path of a program built by this project (for example "VELK_Updater").
std::string builtProgram(const std::string& name);

}  // namespace velk::test
