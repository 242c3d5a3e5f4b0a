#include "release/version_order.hpp"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace velk::updater {
namespace {

// Reads like std::stoi: blanks, a sign and leading digits; anything unreadable is 0.
int componentValue(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::exception&) {
        return 0;
    }
}

std::vector<int> components(const std::string& version) {
    std::vector<int> values;
    std::istringstream stream(version);
    for (std::string part; std::getline(stream, part, '.');) values.push_back(componentValue(part));
    while (values.size() < 3) values.push_back(0);
    return values;
}

long long buildValue(const std::string& text) {
    if (text.empty()) return 0;
    try {
        return std::stoll(text);
    } catch (const std::exception&) {
        return 0;
    }
}

template <typename T>
int order(T a, T b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

}  // namespace

int compareVersionComponents(const std::string& a, const std::string& b) {
    if (a == b) return 0;
    const auto left = components(a);
    const auto right = components(b);
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        const int x = i < left.size() ? left[i] : 0;
        const int y = i < right.size() ? right[i] : 0;
        if (x != y) return order(x, y);
    }
    return 0;
}

int compareBuildNumbers(const std::string& a, const std::string& b) {
    if (a == b) return 0;
    return order(buildValue(a), buildValue(b));
}

}  // namespace velk::updater
