#include "support/process_runner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "support/test_support.hpp"

extern char** environ;

namespace velk::test {
namespace {

// A pipe whose reading end the test keeps; the writing end goes to the child.
struct Pipe {
    int read = -1;
    int write = -1;
    Pipe() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
        read = fds[0];
        write = fds[1];
    }
    ~Pipe() {
        for (int fd : {read, write}) {
            if (fd >= 0) ::close(fd);
        }
    }
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// Starts `program` with its standard input read from `input` (empty: inherited) and its
// standard output and error on the given descriptors (-1: inherited).
pid_t spawn(const std::string& program, const std::vector<std::string>& args, const ProcessOptions& options,
            const std::string& input, int stdoutFd, int stderrFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!input.empty()) posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
    if (stdoutFd >= 0) posix_spawn_file_actions_adddup2(&actions, stdoutFd, 1);
    if (stderrFd >= 0) posix_spawn_file_actions_adddup2(&actions, stderrFd, 2);
    if (!options.workingDirectory.empty()) {
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());
    }
    std::vector<std::string> argTexts{program};
    argTexts.insert(argTexts.end(), args.begin(), args.end());
    std::vector<std::string> envTexts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (options.env.count(text.substr(0, text.find('='))) == 0) envTexts.push_back(text);
    }
    for (const auto& [name, value] : options.env) envTexts.push_back(name + "=" + value);
    auto argv = pointers(argTexts);
    auto envp = pointers(envTexts);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(rc));
    return pid;
}

int waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

// The input comes from a file, so only the two output pipes need watching.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options) {
    const TempDir dir;
    writeFile(dir / "input", options.input);
    Pipe out, err;
    const pid_t pid = spawn(program, args, options, (dir / "input").string(), out.write, err.write);
    ::close(std::exchange(out.write, -1));
    ::close(std::exchange(err.write, -1));
    ProcessResult result;
    std::array<pollfd, 2> polls{pollfd{out.read, POLLIN, 0}, pollfd{err.read, POLLIN, 0}};
    std::array<std::string*, 2> texts{&result.out, &result.err};
    std::array<char, 65536> buffer{};
    while (polls[0].fd >= 0 || polls[1].fd >= 0) {
        if (::poll(polls.data(), polls.size(), -1) < 0 && errno != EINTR) break;
        for (std::size_t i = 0; i < polls.size(); ++i) {
            if (polls[i].fd < 0 || polls[i].revents == 0) continue;
            const ssize_t n = ::read(polls[i].fd, buffer.data(), buffer.size());
            if (n > 0) texts[i]->append(buffer.data(), static_cast<std::size_t>(n));
            if (n <= 0) polls[i].fd = -1;  // the Pipe closes it
        }
    }
    result.exitCode = waitFor(pid);
    return result;
}

BackgroundProcess::BackgroundProcess(const std::string& program, const std::vector<std::string>& args,
                                     const ProcessOptions& options) {
    Pipe out;
    pid_ = spawn(program, args, options, "", out.write, -1);
    out_ = std::exchange(out.read, -1);
}

BackgroundProcess::~BackgroundProcess() { stop(); }

std::string BackgroundProcess::readLine() {
    std::array<char, 4096> buffer{};
    while (pending_.find('\n') == std::string::npos && out_ >= 0) {
        const ssize_t n = ::read(out_, buffer.data(), buffer.size());
        if (n <= 0) break;
        pending_.append(buffer.data(), static_cast<std::size_t>(n));
    }
    const auto end = pending_.find('\n');
    std::string line = pending_.substr(0, end);
    pending_.erase(0, end == std::string::npos ? std::string::npos : end + 1);
    return line;
}

int BackgroundProcess::stop(int signal) {
    if (out_ >= 0) {
        ::close(out_);
        out_ = -1;
    }
    if (pid_ <= 0) return -1;
    ::kill(pid_, signal);
    return waitFor(std::exchange(pid_, -1));
}

UpdateServer::UpdateServer(const std::string& root, const std::vector<std::string>& extraArgs)
    : process_(builtProgram("velk_update_server"), [&] {
          std::vector<std::string> args{"--root", root, "--port", "0"};
          args.insert(args.end(), extraArgs.begin(), extraArgs.end());
          return args;
      }()) {
    const std::string line = process_.readLine();
    const auto colon = line.rfind(':');
    if (colon == std::string::npos) throw std::runtime_error("update server did not start: " + line);
    port_ = std::stoi(line.substr(colon + 1));
}

std::string UpdateServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string builtProgram(const std::string& name) { return std::string(VELK_BINARY_DIR) + "/" + name; }

}  // namespace velk::test
