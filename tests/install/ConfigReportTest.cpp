#include "core/ConfigReport.h"
#include "core/Logger.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

class ConfigReportTest : public AgentTest {
protected:
    ConfigReport report() const { return ConfigReport(Config::platformLocations()); }
    std::filesystem::path textPath() const { return systemConfigFolder() / "Varnoth Brelvane Agent.txt"; }
    std::filesystem::path plistPath() const { return systemConfigFolder() / "Varnoth Brelvane Agent.plist"; }
};

TEST_F(ConfigReportTest, ReportsTheSearchAndTheSettingsWithoutTouchingTheLogOrARunningCapture) {
    writeFile(textPath(),
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

    const std::vector<std::string> expectedSearch{
        "Checking for configuration file: " + plistPath().string(),
        "Checking for configuration file: " + textPath().string(),
        "Using configuration file: " + textPath().string(),
    };
    EXPECT_EQ(checked.searchLines(), expectedSearch);
    EXPECT_TRUE(checked.fileRead());

    const std::string text = checked.text();
    EXPECT_NE(text.find("Configuration file: " + textPath().string() + " (text)\n"), std::string::npos)
        << text;
    // The settings entry exactly as the log writes it.
    EXPECT_NE(text.find(checked.config().settingsText() + "\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nSignatureServerPort: 6000\n"), std::string::npos);
    EXPECT_NE(text.find("\nShowExitMenu: false\n"), std::string::npos);
    EXPECT_NE(text.find("\nLDAPPassword: (set, not shown)\n"), std::string::npos);
    EXPECT_EQ(text.find("Top-Secret-42"), std::string::npos);
    EXPECT_NE(text.find("Log file: " + Logger::logFilePath().string()), std::string::npos);
}

TEST_F(ConfigReportTest, SaysWhenNoFileWasFoundOrTheFileCouldNotBeReadAndHidesAPropertyListPassword) {
    {
        const ConfigReport none = report();
        EXPECT_FALSE(none.fileRead());
        ASSERT_FALSE(none.searchLines().empty());
        EXPECT_EQ(none.searchLines().back(), "Error: couldn't find config file");
        EXPECT_NE(none.text().find("Configuration file: none found"), std::string::npos);
        EXPECT_NE(none.text().find("\nLDAPPassword: (empty)\n"), std::string::npos);
    }
    {
        writeFile(plistPath(), "not a property list");
        const ConfigReport broken = report();
        EXPECT_FALSE(broken.fileRead());
        EXPECT_TRUE(broken.config().plistMode);
        EXPECT_TRUE(broken.searchLines().back().starts_with("Error reading plist configuration: "));
        EXPECT_NE(broken.text().find(" (property list), not readable"), std::string::npos) << broken.text();
    }
    {
        writeFile(plistPath(),
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                  "<key>LDAPPassword</key><string>Plist-Secret-7</string>"
                  "<key>LDAPUser</key><string>CN=Reader,DC=example,DC=com</string></dict></plist>\n");
        const std::string text = report().text();
        EXPECT_EQ(text.find("Plist-Secret-7"), std::string::npos);
        EXPECT_NE(text.find("\nLDAPUser: CN=Reader,DC=example,DC=com\n"), std::string::npos);
    }
    EXPECT_EQ(logText(), "");
}

} // namespace
} // namespace varnoth::test
