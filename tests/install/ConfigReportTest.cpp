#include "config/ConfigReport.h"
#include "base/Logger.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

// The search lines, then the report as --print-config prints it, kept whole under install/ (the settings
// entry exactly as the log writes it, no password).
class ConfigReportTest : public AgentTest {
protected:
    void expectReport(const std::string& name, const ConfigReport& report) {
        EXPECT_NE(report.text().find(report.config().settingsText() + "\n"), std::string::npos)
            << report.text();
        expectGolden("install/" + name, joinLines(report.searchLines()) + report.text(),
                     {{root().string(), "<root>"}});
    }
    ConfigReport report() const { return ConfigReport(Config::platformLocations()); }
    std::filesystem::path plistPath() const { return systemConfigFolder() / "Varnoth Brelvane Agent.plist"; }
};

TEST_F(ConfigReportTest, ReportsTheSearchAndTheSettingsWithoutTouchingTheLogOrARunningCapture) {
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
              "SignatureServerAddress = sig.example.com\nSignatureServerPort=6000\nShowExitMenu=0\n"
              "LDAPPassword=Top-Secret-42\n");
    Logger::log("before");
    const std::string logBefore = logText();
    // An update run may be capturing its lines; the report must neither add to nor end that capture.
    Logger::captureEnabled = true;
    Logger::capturedLog = "run so far\n";
    const ConfigReport checked = report();
    EXPECT_EQ(logText(), logBefore);
    EXPECT_TRUE(Logger::captureEnabled);
    EXPECT_EQ(Logger::capturedLog, "run so far\n");
    EXPECT_EQ(Logger::logFilePath(), root() / "home/.local/state/Varnoth Brelvane Agent.log");
    EXPECT_TRUE(checked.fileRead());
    expectReport("config-report-text", checked);
}

TEST_F(ConfigReportTest, SaysWhenNoFileWasFoundOrTheFileCouldNotBeReadAndHidesAPropertyListPassword) {
    EXPECT_FALSE(report().fileRead());
    expectReport("config-report-none", report());
    writeFile(plistPath(), "not a property list");
    EXPECT_FALSE(report().fileRead());
    EXPECT_TRUE(report().config().plistMode);
    expectReport("config-report-broken", report());
    writeFile(plistPath(),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>LDAPPassword</key><string>Plist-Secret-7</string>"
              "<key>LDAPUser</key><string>CN=Reader,DC=example,DC=com</string></dict></plist>\n");
    expectReport("config-report-plist", report());
    EXPECT_EQ(logText(), "");
    // A folder name with a line break still gives one search line for it.
    const ConfigReport odd(Config::Locations{root() / "a\nb", root() / "support", "Agent"});
    EXPECT_EQ(odd.searchLines().front(), "Checking for configuration file: " +
                                             (root() / "a\nb/Agent/Varnoth Brelvane Agent.plist").string());
}

} // namespace
} // namespace varnoth::test
