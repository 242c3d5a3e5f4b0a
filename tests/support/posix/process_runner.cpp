#include "support/process_runner.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

#include "support/test_support.hpp"

extern char** environ;

namespace velk::test {
namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// Starts `program` with its standard streams redirected by what `redirect` adds.
pid_t spawn(const std::string& program, const std::vector<std::string>& args, const ProcessOptions& options,
            const std::function<void(posix_spawn_file_actions_t*)>& redirect) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    redirect(&actions);
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

// Output goes to files, read at the end: a process it left running cannot keep the test waiting.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options) {
    const TempDir dir;
    const pid_t pid = spawn(program, args, options, [&](posix_spawn_file_actions_t* files) {
        posix_spawn_file_actions_addopen(files, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(files, 1, (dir / "out").c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(files, 2, (dir / "err").c_str(), O_WRONLY | O_CREAT, 0600);
    });
    ProcessResult result;
    result.exitCode = waitFor(pid);
    result.out = readFile(dir / "out");
    result.err = readFile(dir / "err");
    return result;
}

BackgroundProcess::BackgroundProcess(const std::string& program, const std::vector<std::string>& args,
                                     const ProcessOptions& options) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    out_ = fds[0];
    try {
        pid_ = spawn(program, args, options, [&](posix_spawn_file_actions_t* actions) {
            posix_spawn_file_actions_adddup2(actions, fds[1], 1);
        });
    } catch (...) {
        ::close(fds[0]);
        ::close(fds[1]);
        throw;
    }
    ::close(fds[1]);
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
    if (out_ >= 0) ::close(std::exchange(out_, -1));
    if (pid_ <= 0) return -1;
    ::kill(pid_, signal);
    return waitFor(std::exchange(pid_, -1));
}

std::string builtProgram(const std::string& name) { return std::string(VELK_BINARY_DIR) + "/" + name; }

}  // namespace velk::test
