#include "config/ConfigReport.h"
#include "base/Logger.h"
#include "tests/support/AgentTest.h"

#include <gmock/gmock.h>

namespace varnoth::test {
namespace {

using testing::HasSubstr;
using testing::Not;

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
    EXPECT_THAT(text, HasSubstr("Configuration file: " + textPath().string() + " (text)\n"));
    // The settings entry exactly as the log writes it.
    EXPECT_THAT(text, HasSubstr(checked.config().settingsText() + "\n"));
    EXPECT_THAT(text, HasSubstr("\nSignatureServerPort: 6000\n"));
    EXPECT_THAT(text, HasSubstr("\nLDAPPassword: (set, not shown)\n"));
    EXPECT_THAT(text, Not(HasSubstr("Top-Secret-42")));
    EXPECT_THAT(text, HasSubstr("Log file: " + Logger::logFilePath().string()));
}

TEST_F(ConfigReportTest, SaysWhenNoFileWasFoundOrTheFileCouldNotBeReadAndHidesAPropertyListPassword) {
    {
        const ConfigReport none = report();
        EXPECT_FALSE(none.fileRead());
        ASSERT_FALSE(none.searchLines().empty());
        EXPECT_EQ(none.searchLines().back(), "Error: couldn't find config file");
        EXPECT_THAT(none.text(), HasSubstr("Configuration file: none found"));
        EXPECT_THAT(none.text(), HasSubstr("\nLDAPPassword: (empty)\n"));
    }
    {
        writeFile(plistPath(), "not a property list");
        const ConfigReport broken = report();
        EXPECT_FALSE(broken.fileRead());
        EXPECT_TRUE(broken.config().plistMode);
        EXPECT_TRUE(broken.searchLines().back().starts_with("Error reading plist configuration: "));
        EXPECT_THAT(broken.text(), HasSubstr(" (property list), not readable"));
    }
    {
        writeFile(plistPath(),
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                  "<key>LDAPPassword</key><string>Plist-Secret-7</string>"
                  "<key>LDAPUser</key><string>CN=Reader,DC=example,DC=com</string></dict></plist>\n");
        const std::string text = report().text();
        EXPECT_THAT(text, Not(HasSubstr("Plist-Secret-7")));
        EXPECT_THAT(text, HasSubstr("\nLDAPUser: CN=Reader,DC=example,DC=com\n"));
    }
    EXPECT_EQ(logText(), "");
}

} // namespace
} // namespace varnoth::test
