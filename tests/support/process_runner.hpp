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

// Runs a program with arguments (no shell), waits for it, and returns its exit code
// and everything it wrote to standard output and standard error.
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

    // The next line the program writes to standard output, without its line end; empty
    // when the output ends first.
    std::string readLine();
    // Sends the signal (SIGTERM by default) and waits; the exit code, or -1 when the
    // process did not end normally.
    int stop(int signal = 15);

private:
    int pid_ = -1;
    int out_ = -1;
    std::string pending_;
};

// The local update server on a port the OS picks, serving `root`; `port()` once running.
class UpdateServer {
public:
    explicit UpdateServer(const std::string& root, const std::vector<std::string>& extraArgs = {});
    int port() const { return port_; }
    std::string url(const std::string& path = "") const;

private:
    BackgroundProcess process_;
    int port_ = 0;
};

// Path of a program built by this project (for example "VELK_Updater").
std::string builtProgram(const std::string& name);

}  // namespace velk::test
