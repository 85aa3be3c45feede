#include "config/ConfigReport.h"
#include "base/Logger.h"
#include "tests/support/AgentTest.h"

#include <gmock/gmock.h>

namespace varnoth::test {
namespace {

using testing::AllOf;
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

    EXPECT_EQ(checked.searchLines(),
              (std::vector<std::string>{"Checking for configuration file: " + plistPath().string(),
                                        "Checking for configuration file: " + textPath().string(),
                                        "Using configuration file: " + textPath().string()}));
    EXPECT_TRUE(checked.fileRead());
    // The settings entry exactly as the log writes it.
    for (const std::string& part : std::vector<std::string>{
             "Configuration file: " + textPath().string() + " (text)\n",
             checked.config().settingsText() + "\n", "\nSignatureServerPort: 6000\n",
             "\nLDAPPassword: (set, not shown)\n", "Log file: " + Logger::logFilePath().string()}) {
        EXPECT_THAT(checked.text(), HasSubstr(part));
    }
    EXPECT_THAT(checked.text(), Not(HasSubstr("Top-Secret-42")));
}

TEST_F(ConfigReportTest, SaysWhenNoFileWasFoundOrTheFileCouldNotBeReadAndHidesAPropertyListPassword) {
    const ConfigReport none = report();
    EXPECT_FALSE(none.fileRead());
    EXPECT_EQ(none.searchLines().back(), "Error: couldn't find config file");
    EXPECT_THAT(none.text(), HasSubstr("Configuration file: none found"));
    EXPECT_THAT(none.text(), HasSubstr("\nLDAPPassword: (empty)\n"));

    writeFile(plistPath(), "not a property list");
    const ConfigReport broken = report();
    EXPECT_FALSE(broken.fileRead());
    EXPECT_TRUE(broken.config().plistMode);
    EXPECT_TRUE(broken.searchLines().back().starts_with("Error reading plist configuration: "));
    EXPECT_THAT(broken.text(), HasSubstr(" (property list), not readable"));

    writeFile(plistPath(),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>LDAPPassword</key><string>Plist-Secret-7</string>"
              "<key>LDAPUser</key><string>CN=Reader,DC=example,DC=com</string></dict></plist>\n");
    EXPECT_THAT(report().text(), AllOf(Not(HasSubstr("Plist-Secret-7")),
                                       HasSubstr("\nLDAPUser: CN=Reader,DC=example,DC=com\n")));
    EXPECT_EQ(logText(), "");
}

} // namespace
} // namespace varnoth::test
