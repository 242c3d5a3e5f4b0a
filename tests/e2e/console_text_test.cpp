#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

// Piped into another program (`VELK_Updater ... | cat`), the console carries plain text:
// colour sequences there would end up as stray bytes in a file or a pager.
TEST_F(EndToEndTest, PipedOutputCarriesNoEscapeByte) {
    const ProcessResult result =
        run({"--install-services"});  // no driver INF: errors go to stderr too
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.out.find("[INFO]"), std::string::npos) << result.out;
    EXPECT_NE(result.err.find("[ERROR]"), std::string::npos) << result.err;
    EXPECT_EQ(result.out.find('\x1b'), std::string::npos) << result.out;
    EXPECT_EQ(result.err.find('\x1b'), std::string::npos) << result.err;
}

}  // namespace
}  // namespace velk::test
