#include "config/ConfigReport.h"
#include "agent/AppDelegate.h"
#include "base/Logger.h"
#include "config/ManagedPreferencesFile.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

// The search lines, then the report as --print-config prints it, kept whole under install/ (the settings
// entry exactly as the log writes it, no password).
class ConfigReportTest : public AgentTest {
protected:
    void expectReport(const std::string& name, const ConfigReport& report) {
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

// A managed value wins over the file, the file over the default; a refused value (of the wrong type, not
// parsing, a port outside 1-65535) passes the choice on and is named: in the report, and after the log's
// settings entry, which keeps its lines and names the managed settings.
TEST_F(ConfigReportTest, ManagedValuesWinAndEveryRefusedValueIsNamed) {
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
              "UpdateFrequency=2h\nSignatureServerAddress=file.example.com\nSignatureServerPort=70000\n"
              "ShowExitMenu=true\nSuppressErrorMessages=1\nLDAPServer=ldap://file\n");
    writeFile(
        ManagedPreferencesFile::platformPath(),
        "<plist version=\"1.0\"><dict><key>SignatureServerPort</key><integer>7100</integer>"
        "<key>SignatureServerAddress</key><string>managed.example.com</string>"
        "<key>ShowViewLogMenu</key><string>no</string><key>SuppressErrorMessages</key><integer>0</integer>"
        "<key>UserEmailAddress</key><string>boss@corp.example</string>"
        "<key>LDAPPassword</key><string>Managed-Secret</string><key>ShowLaunchAtLogon</key><array/>"
        "</dict></plist>");
    defaults.setString("UserEmailAddress", "user@example.com"); // a forced address outweighs the user's
    ManagedPreferencesFile file;
    Platform::Ports ports = Platform::ports();
    ports.managedPreferences = &file;
    Platform::install(ports);
    const std::string text = report().text();
    Config::shared().logSettings();
    expectGolden("install/config-report-managed", text + joinLines(logLines()),
                 {{root().string(), "<root>"}});
    EXPECT_EQ((text + logText()).find("Managed-Secret"), std::string::npos);
    EXPECT_FALSE(Config::shared().UserEmailAddressEditable());

    // The interval as the timer takes it.
    static_assert(AppDelegate::minimumUpdateInterval.count() == Config::minimumUpdateFrequency * 60 &&
                  AppDelegate::maximumUpdateInterval.count() == Config::maximumUpdateFrequency * 60);
    EXPECT_EQ(ConfigReport::line({"UpdateFrequency", "0.5", Config::Source::file, {}}),
              "UpdateFrequency: 1.0 minutes (file; 0.5 raised to the shortest interval)");
    EXPECT_EQ(ConfigReport::line({"UpdateFrequency", "1e+06", Config::Source::managed, {}}),
              "UpdateFrequency: 34560.0 minutes (managed; 1e+06 lowered to the longest interval)");
}

} // namespace
} // namespace varnoth::test
