#include "base/Logger.h"
#include "config/Config.h"
#include "tests/support/Golden.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

namespace varnoth::test {
namespace {

// The log file or the configuration fail while the signature server is fine (a failing directory
// is played by DiscoveryTest: the run falls back to the configured address).
class EnvironmentFaultTest : public RunTest {};

TEST_F(EnvironmentFaultTest, LogFolderUnwritable) {
    startFromGoodRun();
    // Tests run as root, for whom permissions do not stop a write: a file where the folder should be
    // does.
    const auto saved = Logger::logFilePath();
    writeFile(root() / "not-a-folder", "x");
    Logger::setLogFilePath(root() / "not-a-folder/Varnoth Brelvane Agent.log");
    testing::internal::CaptureStdout();
    run(app);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("logging failed\n"), std::string::npos);
    Logger::setLogFilePath(saved);
    // The run itself works; its lines are lost, so the server gets a whole report with an empty log.
    expectKept();
    expectGolden("faults/log-folder-unwritable", runTranscript(good.get(), 2), {{root().string(), "ROOT"}});
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(EnvironmentFaultTest, ConfigurationUnreadable) {
    startFromGoodRun();
    const auto file = userConfigFolder() / "Varnoth Brelvane Agent.txt";
    std::filesystem::remove(file);
    std::filesystem::create_directories(file); // exists, but no file can be read there, even by root
    Config::setShared(nullptr);
    // The configuration is read once per process: the next timer run meets the same defaults. Neither run
    // connects, so the server holds only the good run's report.
    run(app);
    run(app);
    expectGolden("faults/configuration-unreadable", runTranscript(good.get(), 1),
                 {{root().string(), "ROOT"}});
    expectKept();
    // Once the file is readable again, the agent's next start works.
    std::filesystem::remove(file);
    expectNextRunWorks(app, good->port(), good->logFolder());
}

} // namespace
} // namespace varnoth::test
