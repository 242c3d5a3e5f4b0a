#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::test {
namespace {

// Without root the updater starts itself again through sudo. A stand-in sudo on PATH grants
// the prompt, records each call's arguments one to a line, and ends the elevated copy with 7.
TEST(ElevatedRelaunch, GetsTheArgumentsUnchangedAndHandsBackItsExitCode) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the updater as another user";
    if (::getpwnam("nobody") == nullptr || !fs::exists("/usr/bin/setpriv")) GTEST_SKIP() << "no nobody or setpriv";
    TempDir dir;
    writeFile(dir / "sudo", "#!/bin/sh\nprintf '%s\\n' \"$@\" >> \"$(dirname \"$0\")/asked\"\n"
                            "[ \"$1\" = \"-v\" ] && exit 0\nexit 7\n");
    fs::permissions(dir.path(), fs::perms::all);
    fs::permissions(dir / "sudo", fs::perms::all);
    const std::string program = builtProgram("VELK_Updater");
    const std::vector<std::string> args{"--check-only", "--install-dir", "/opt/My VELK", "--channel", "",
                                        "--log-level", "say \"hi\""};
    std::vector<std::string> command{"--reuid=nobody", "--regid=nogroup", "--clear-groups", program};
    command.insert(command.end(), args.begin(), args.end());
    const ProcessResult result = runProcess("/usr/bin/setpriv", command,
                                            ProcessOptions{{{"PATH", dir.str() + ":/usr/bin:/bin"}}, "", ""});

    EXPECT_EQ(result.exitCode, 7) << result.err;
    EXPECT_EQ(result.out, "VELK Updater requires administrator privileges.\nRequesting elevation...\n"
                          "Elevation request completed.\n");
    std::string expected = "-v\n-n\n--\n" + fs::canonical(program).string() + "\n";
    for (const std::string& arg : args) expected += arg + "\n";
    EXPECT_EQ(readFile(dir / "asked"), expected);
}

}  // namespace
}  // namespace velk::test
