#include <cstdlib>

#include "support/test_support.hpp"

namespace velk::test {

const std::string kLineEnd = "\r\n";

void setEnvironment(const std::string& name, const std::optional<std::string>& value) {
    // An empty value removes the variable from the environment.
    _putenv_s(name.c_str(), value ? value->c_str() : "");
}

// Windows has no attribute that stops even an administrator; the tests that need one skip.
bool setImmutable(const fs::path&, bool) { return false; }

}  // namespace velk::test
