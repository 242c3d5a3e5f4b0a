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

extern char** environ;

namespace velk::test {
namespace {

struct Pipe {
    int fds[2] = {-1, -1};
    Pipe() {
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    }
    ~Pipe() { closeBoth(); }
    void closeEnd(int i) {
        if (fds[i] >= 0) ::close(fds[i]);
        fds[i] = -1;
    }
    void closeBoth() {
        closeEnd(0);
        closeEnd(1);
    }
};

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        if (extra.find(name) == extra.end()) result.push_back(text);
    }
    for (const auto& [name, value] : extra) result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// Reads both output pipes until they close while feeding the input pipe.
void pump(Pipe& in, Pipe& out, Pipe& err, const std::string& input, ProcessResult& result) {
    std::size_t written = 0;
    if (input.empty()) in.closeEnd(1);
    std::array<char, 65536> buffer{};
    while (out.fds[0] >= 0 || err.fds[0] >= 0) {
        std::array<pollfd, 3> polls{};
        polls[0] = {out.fds[0], POLLIN, 0};
        polls[1] = {err.fds[0], POLLIN, 0};
        polls[2] = {in.fds[1], POLLOUT, 0};
        if (::poll(polls.data(), polls.size(), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (polls[i].fd < 0 || polls[i].revents == 0) continue;
            Pipe& pipe = i == 0 ? out : err;
            const ssize_t n = ::read(pipe.fds[0], buffer.data(), buffer.size());
            if (n <= 0) {
                pipe.closeEnd(0);
            } else {
                (i == 0 ? result.out : result.err).append(buffer.data(), static_cast<std::size_t>(n));
            }
        }
        if (polls[2].fd >= 0 && polls[2].revents != 0) {
            const ssize_t n = ::write(in.fds[1], input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<std::size_t>(n);
            if (n < 0 || written == input.size()) in.closeEnd(1);
        }
    }
}

// Starts `program` with the given descriptors (-1: inherit) on 0, 1 and 2.
pid_t spawn(const std::string& program, const std::vector<std::string>& args, const ProcessOptions& options,
            int stdinFd, int stdoutFd, int stderrFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int fds[] = {stdinFd, stdoutFd, stderrFd};
    for (int target = 0; target < 3; ++target) {
        if (fds[target] >= 0) posix_spawn_file_actions_adddup2(&actions, fds[target], target);
    }
    if (!options.workingDirectory.empty()) {
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());
    }
    std::vector<std::string> argTexts{program};
    argTexts.insert(argTexts.end(), args.begin(), args.end());
    auto argv = pointers(argTexts);
    auto envTexts = mergedEnvironment(options.env);
    auto envp = pointers(envTexts);
    pid_t pid = -1;
    const int rc = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(rc));
    return pid;
}

}  // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options) {
    Pipe in, out, err;
    const pid_t pid = spawn(program, args, options, in.fds[0], out.fds[1], err.fds[1]);
    in.closeEnd(0);
    out.closeEnd(1);
    err.closeEnd(1);

    ProcessResult result;
    pump(in, out, err, options.input, result);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    return result;
}

BackgroundProcess::BackgroundProcess(const std::string& program, const std::vector<std::string>& args,
                                     const ProcessOptions& options) {
    Pipe out;
    const pid_t pid = spawn(program, args, options, -1, out.fds[1], -1);
    pid_ = pid;
    out_ = out.fds[0];
    out.fds[0] = -1;
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
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
