#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

const std::string kLoggingKey = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n";

using ServicesRunTest = EndToEndTest;
using StartFailureTest = EndToEndTest;

// The mode's console lines and its log, in order (the logger's lines may come between).
TEST_F(ServicesRunTest, InstallServicesRunsTheFallbackFirstAndReportsTheState) {
    writeFile(installDir() / "VELK_Sys.inf", "[Version]\n");  // the one driver file needed
    const ProcessResult result = run({"--install-services"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(printedInOrder(
        result.out, {"Installing missing VELK service to ensure game functionality...\n",
                     "VELK services installed successfully\n", "Service installation status:\n",
                     "  VELK Service: INSTALLED\n", "  VELK Driver: INSTALLED\n",
                     "NOTE: Services are installed but not started. They will be managed by the game launcher.\n"}))
        << result.out;
    EXPECT_EQ(result.out.find("Checking VELK installation state"), std::string::npos);
    EXPECT_TRUE(printedInOrder(
        logText(), {"[WARNING] VELKSvc not found on system - installing as fallback to ensure game functionality\n",
                    "[INFO] VELKSvc installed successfully as fallback\n", "[INFO] VELK service already installed\n",
                    "[INFO] Executing: pnputil.exe /add-driver \"" + (installDir() / "VELK_Sys.inf").string() +
                        "\" /install\n",
                    "[INFO] VELK driver installed successfully\n", "[INFO]   VELK Service: INSTALLED\n",
                    "[INFO]   VELK Driver: INSTALLED\n", "[INFO] Performing final backup cleanup...\n"}))
        << logText();
    EXPECT_NE(registryText().find("ImagePath\"=hex(2):"), std::string::npos);
}

// Piped, the console has no colours; --quiet leaves the result; the registry can turn the log off.
TEST_F(ServicesRunTest, WithoutTheDriverItFailsPlainlyAndEachSwitchDecidesWhatIsShown) {
    const ProcessResult piped = run({"--install-services"});
    EXPECT_EQ(piped.exitCode, 1);
    EXPECT_NE(piped.out.find("[INFO]"), std::string::npos) << piped.out;
    EXPECT_NE(piped.err.find("[ERROR]"), std::string::npos) << piped.err;
    EXPECT_EQ(piped.out.find('\x1b'), std::string::npos) << piped.out;
    EXPECT_EQ(piped.err.find('\x1b'), std::string::npos) << piped.err;
    EXPECT_NE(registryText().find("\\VELKSvc]"), std::string::npos) << "the service goes in first";

    const ProcessResult result = run({"--install-services", "--quiet"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out.find("Installing missing VELK service"), std::string::npos);
    EXPECT_NE(result.out.find("Failed to install one or more VELK services\n"), std::string::npos);
    EXPECT_EQ(result.err, "");  // no console logging either

    writeFile(installDir() / "VELK_Sys.inf", "[Version]\n");
    const ProcessResult quiet = run({"--install-services", "--quiet"});
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_NE(quiet.out.find("VELK services installed successfully\n"), std::string::npos);
    EXPECT_EQ(quiet.out.find("Service installation status:"), std::string::npos);

    fs::remove_all(logFile().parent_path());
    productKey("", kLoggingKey + "\"EnableUpdaterLogs\"=dword:00000000\n");
    const ProcessResult off = run({"--install-services"});
    EXPECT_FALSE(fs::exists(logFile()));
    EXPECT_NE(off.out.find("Installing missing VELK service"), std::string::npos) << off.out;
    EXPECT_EQ(off.out.find("[INFO]"), std::string::npos);
    productKey();
    const ProcessResult warningsOnly = run({"--install-services", "--log-level", "warning"});
    EXPECT_EQ(warningsOnly.out.find("[INFO]"), std::string::npos);
    EXPECT_NE(warningsOnly.err.find("[WARNING]"), std::string::npos);
    EXPECT_EQ(logText().find("[INFO]"), std::string::npos);
}

// A file where the log folder belongs, then where the installation folder does.
TEST_F(StartFailureTest, LoggerOrUpdateClientThatCannotStartEndsWithOne) {
    writeFile(installDir() / "logs", "a file where the log folder belongs");
    const ProcessResult logger = run({});
    EXPECT_EQ(logger.exitCode, 1);
    EXPECT_EQ(logger.err, "Failed to open log file: " + logFile().string() +
                              "\nFailed to initialize logger\n");

    // A file where the download folder belongs stops the update client, not the logger.
    fs::remove(installDir() / "logs");
    writeFile(downloads(), "x");
    const ProcessResult client = run({});
    EXPECT_EQ(client.exitCode, 1);
    EXPECT_NE(client.err.find("Failed to initialize update client\n"), std::string::npos);
    EXPECT_NE(logText().find("[ERROR] Failed to initialize update client\n"), std::string::npos) << logText();
}

}  // namespace
}  // namespace velk::test
