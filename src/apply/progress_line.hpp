#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

// A download's progress on a terminal: bytes done of the total, the speed and the time left,
// on one line redrawn at most ten times a second. Pipes and files never get it.
namespace velk::updater {

// "VELK.dll: 12.0 MiB of 30.0 MiB, 4.0 MiB/s, 5 s left"; the time left is left out while
// nothing has arrived yet.
std::string progressText(const std::string& name, std::uint64_t done, std::uint64_t total,
                         std::uint64_t bytesPerSecond);

class ProgressLine {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    explicit ProgressLine(std::ostream& out, Clock now = std::chrono::steady_clock::now);

    // A new entry, or a transfer that starts over, starts its speed anew.
    void update(const std::string& name, std::uint64_t done, std::uint64_t total);

private:
    std::ostream& out_;
    Clock now_;
    std::string name_;
    std::uint64_t firstDone_ = 0;
    std::uint64_t lastDone_ = 0;
    std::chrono::steady_clock::time_point started_{};
    std::chrono::steady_clock::time_point drawn_{};
};

}  // namespace velk::updater
