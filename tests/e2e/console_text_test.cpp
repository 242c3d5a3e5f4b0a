#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

// Text from the registry (here a version holding a terminal sequence and a line end) is
// shown escaped on the console and in the log: it can neither drive the terminal nor
// start a line of its own.
TEST_F(EndToEndTest, LogForgingThroughRegistryTextIsShownEscaped) {
    std::string utf16;
    for (const char c : std::string("1.0\x1b]0;owned\x07\n[ERROR] forged")) {
        static const char* digits = "0123456789abcdef";
        utf16 += std::string(",") + digits[(c >> 4) & 0xF] + digits[c & 0xF] + ",00";
    }
    productKey(installPathValue() + "\"Version\"=hex(1):" + utf16.substr(1) +
               ",00,00\n");
    const ProcessResult result = run({"--check-only", "--manifest", (installDir() / "none.json").string()});
    for (const std::string& output : {result.out, result.err, readFile(logFile())}) {
        EXPECT_EQ(output.find('\x1b'), std::string::npos) << output;
        EXPECT_EQ(output.find("\n[ERROR] forged"), std::string::npos) << output;
    }
    EXPECT_NE(result.out.find("Installed VELK version: 1.0\\x1b]0;owned\\x07\\n[ERROR] forged"), std::string::npos)
        << result.out;
}

}  // namespace
}  // namespace velk::test
