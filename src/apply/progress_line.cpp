#include "apply/progress_line.hpp"

#include <cstdio>

#include "platform/clean_text.hpp"

namespace velk::updater {
namespace {

constexpr auto kRedraw = std::chrono::milliseconds(100);

std::string size(std::uint64_t bytes) {
    const char* units[] = {"B", "KiB", "MiB", "GiB"};
    double value = static_cast<double>(bytes);
    int unit = 0;
    while (value >= 1024 && unit < 3) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

}  // namespace

std::string progressText(const std::string& name, std::uint64_t done, std::uint64_t total,
                         std::uint64_t bytesPerSecond) {
    std::string text = platform::escapeControlCharacters(name) + ": " + size(done) + " of " + size(total) + ", " +
                       size(bytesPerSecond) + "/s";
    if (bytesPerSecond > 0 && total >= done) {
        text += ", " + std::to_string((total - done + bytesPerSecond - 1) / bytesPerSecond) + " s left";
    }
    return text;
}

ProgressLine::ProgressLine(std::ostream& out, Clock now) : out_(out), now_(std::move(now)) {}

void ProgressLine::update(const std::string& name, std::uint64_t done, std::uint64_t total) {
    const auto now = now_();
    if (name != name_ || done < lastDone_) {
        name_ = name;
        firstDone_ = done;
        started_ = now;
        drawn_ = {};
    }
    lastDone_ = done;
    if (now - drawn_ < kRedraw && done != total) return;
    drawn_ = now;
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_).count();
    const std::uint64_t speed = elapsed > 0 ? (done - firstDone_) * 1000 / static_cast<std::uint64_t>(elapsed) : 0;
    // One write, ended by clearing what a longer earlier line left.
    out_ << ("\r" + progressText(name, done, total, speed) + "\x1b[K") << std::flush;
}

}  // namespace velk::updater
