#include "apply/progress_line.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace velk::updater {
namespace {

constexpr std::uint64_t kMiB = 1024 * 1024;

TEST(ProgressLine, TextShowsDoneTotalSpeedAndTimeLeft) {
    EXPECT_EQ(progressText("VELK.dll", 12 * kMiB, 30 * kMiB, 4 * kMiB), "VELK.dll: 12.0 MiB of 30.0 MiB, 4.0 MiB/s, 5 s left");
    EXPECT_EQ(progressText("VELK.dll", 0, 1536, 0), "VELK.dll: 0 B of 1.5 KiB, 0 B/s");
    EXPECT_EQ(progressText("a\rb", 1, 3, 1), "a\\rb: 1 B of 3 B, 1 B/s, 2 s left");
}

// At most ten redraws a second, the last one always; a new file starts its speed anew.
TEST(ProgressLine, RedrawnAtMostTenTimesASecond) {
    std::ostringstream out;
    std::chrono::steady_clock::time_point now{};
    ProgressLine line(out, [&] { return now; });
    const auto at = [&](int ms, const char* name, std::uint64_t done) {
        now = std::chrono::steady_clock::time_point{} + std::chrono::milliseconds(ms);
        line.update(name, done, 4000);
    };
    at(1000, "VELK.dll", 0);
    at(1050, "VELK.dll", 100);
    at(1100, "VELK.dll", 1000);
    at(1150, "VELK.dll", 4000);
    at(1160, "VELK.exe", 0);
    EXPECT_EQ(out.str(),
              "\rVELK.dll: 0 B of 3.9 KiB, 0 B/s\x1b[K"
              "\rVELK.dll: 1000 B of 3.9 KiB, 9.8 KiB/s, 1 s left\x1b[K"
              "\rVELK.dll: 3.9 KiB of 3.9 KiB, 26.0 KiB/s, 0 s left\x1b[K"
              "\rVELK.exe: 0 B of 3.9 KiB, 0 B/s\x1b[K");
}

}  // namespace
}  // namespace velk::updater
