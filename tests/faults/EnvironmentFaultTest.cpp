#include "base/Logger.h"
#include "config/Config.h"
#include "tests/directory/SlapdServer.h"
#include "tests/faults/FaultTest.h"
#include "tests/server/ServerProcess.h"
#include "tests/support/LoopbackListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

// The directory, the log file or the configuration fail while the signature server is fine.
class EnvironmentFaultTest : public FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        startFromGoodRun();
    }
};

TEST_F(EnvironmentFaultTest, DirectoryDownFallsBackToTheConfiguredServer) {
    configure(good->port(), "SignatureServerAutodetect=1\nLDAPServer=ldap://127.0.0.1:" +
                                std::to_string(LoopbackListener::closedPort()) + "\n");
    run(app);
    EXPECT_TRUE(logged("Error: Failed to get defaultNamingContext from LDAP server: ")) << logText();
    EXPECT_EQ(count(std::string("Parsed signature successfully for ") + mailbox), 1);
    EXPECT_TRUE(alerts.shown.empty());
    const auto logs = wholeDeploymentLogs(good->logFolder(), 2);
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_NE(logs[1].find("Error: Failed to get defaultNamingContext from LDAP server: "),
              std::string::npos);
    expectKept();
}

TEST_F(EnvironmentFaultTest, WrongDirectoryPasswordFallsBackAndIsNeverLogged) {
    if (!SlapdServer::available()) {
        GTEST_SKIP() << "slapd is not installed";
    }
    SlapdServer::Options options;
    options.anonymousRead = false;
    options.entries = SlapdServer::serviceConnectionPoint("Signatures", {"127.0.0.1"});
    SlapdServer directory(options);
    ASSERT_TRUE(directory.start()) << directory.error();
    const std::string wrong = "Wr0ng-Passw0rd-4411";
    configure(good->port(), "SignatureServerAutodetect=1\nLDAPServer=" + directory.url() +
                                "\nLDAPUser=" + SlapdServer::bindDN + "\nLDAPPassword=" + wrong + "\n");
    run(app);
    EXPECT_TRUE(logged("Error: Failed to get defaultNamingContext from LDAP server: ")) << logText();
    EXPECT_EQ(count(std::string("Parsed signature successfully for ") + mailbox), 1);
    const auto logs = wholeDeploymentLogs(good->logFolder(), 2);
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[1].find(wrong), std::string::npos);
    EXPECT_EQ(logText().find(wrong), std::string::npos);
    expectKept();
}

TEST_F(EnvironmentFaultTest, LogFolderUnwritable) {
    // Tests run as root, for whom permissions do not stop a write: a file where the folder should be
    // does.
    const auto saved = Logger::logFilePath();
    writeFile(root() / "not-a-folder", "x");
    Logger::setLogFilePath(root() / "not-a-folder/Varnoth Brelvane Agent.log");
    testing::internal::CaptureStdout();
    run(app);
    const std::string printed = testing::internal::GetCapturedStdout();
    Logger::setLogFilePath(saved);
    EXPECT_NE(printed.find("logging failed\n"), std::string::npos);
    // The run itself works; its lines are lost, so the server gets a whole report with an empty log.
    EXPECT_TRUE(alerts.shown.empty());
    expectKept();
    const auto files = ServerProcess::waitForFiles(good->logFolder(), 2);
    ASSERT_EQ(files.size(), 2u);
    const std::string report = readWholeFile(files[1]);
    EXPECT_NE(report.find("<Result>Success</Result><DeploymentLog></DeploymentLog>"), std::string::npos)
        << report;
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(EnvironmentFaultTest, ConfigurationUnreadable) {
    const auto file = userConfigFolder() / "Varnoth Brelvane Agent.txt";
    std::filesystem::remove(file);
    std::filesystem::create_directories(file); // exists, but no file can be read there, even by root
    Config::setShared(nullptr);
    run(app);
    EXPECT_EQ(count("Error: couldn't read config file, possibly no permission"), 1) << logText();
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message,
              "Missing SignatureServerAddress configuration. Unable to update signatures.");
    expectKept();
    // The configuration is read once per process: the next timer run meets the same defaults.
    run(app);
    EXPECT_EQ(alerts.shown.size(), 2u);
    EXPECT_EQ(ServerProcess::waitForFiles(good->logFolder(), 2).size(), 1u); // only the good run's
    expectKept();
    // Once the file is readable again, the agent's next start works.
    std::filesystem::remove(file);
    expectNextRunWorks(app, good->port(), good->logFolder());
}

} // namespace
} // namespace varnoth::test
