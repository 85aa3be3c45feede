#include "config/Config.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"

#include <sstream>

namespace varnoth::test {
namespace {

class ConfigTest : public AgentTest {
protected:
    std::filesystem::path plistPath() const { return systemConfigFolder() / "Varnoth Brelvane Agent.plist"; }
    std::filesystem::path systemTextPath() const {
        return systemConfigFolder() / "Varnoth Brelvane Agent.txt";
    }
    std::filesystem::path userTextPath() const { return userConfigFolder() / "Varnoth Brelvane Agent.txt"; }

    static std::string plist(const std::string& body) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + body +
               "</dict>\n</plist>\n";
    }
    Config& load() { return Config::shared(); }
    // Every key's value on one line: the interval, the flags (Allow, ViewLog, Exit, LaunchAtLogon,
    // ConfigurationMenu, Autodetect, SuppressErrors, address editable), the server, the address, LDAP.
    std::string values() {
        const Config& c = load();
        std::ostringstream out;
        out << c.UpdateFrequency() << ' ' << c.AllowConfigureDefaultSignatures() << c.ShowViewLogMenu()
            << c.ShowExitMenu() << c.ShowLaunchAtLogon() << c.ShowConfigurationMenu()
            << c.SignatureServerAutodetect() << c.SuppressErrorMessages() << c.UserEmailAddressEditable()
            << ' ' << c.SignatureServerAddress() << ':' << c.SignatureServerPort()
            << " mail=" << c.UserEmailAddress() << " ldap=" << c.LDAPUser() << '|' << c.LDAPPassword() << '|'
            << c.LDAPServer();
        return out.str();
    }
};

TEST_F(ConfigTest, NoFileGivesEveryDefaultAndReadsTheAddressFromUserDefaults) {
    defaults.setString("UserEmailAddress", "stored@example.com");
    EXPECT_EQ(values(), "60 11101001 :5757 mail=stored@example.com ldap=||");
    const std::string checking = "Checking for configuration file: ";
    EXPECT_EQ(logLines(), (std::vector<std::string>{
                              checking + plistPath().string(), checking + systemTextPath().string(),
                              checking + userTextPath().string(), "Error: couldn't find config file"}));
}

TEST_F(ConfigTest, TextFileGivesEveryKeyAndValuesThatDoNotParseGiveTheirDefaults) {
    writeFile(systemTextPath(),
              "UpdateFrequency=30m\nAllowConfigureDefaultSignatures=0\nShowViewLogMenu=0\n"
              "ShowExitMenu = 0\nShowLaunchAtLogon=1\nSignatureServerAddress= sig.example.com \n"
              "SignatureServerPort = 6000\r\nShowConfigurationMenu=-3\nUserEmailAddress=fixed@example.com\n"
              "SignatureServerAutodetect=2\nLDAPUser=cn=reader\nLDAPPassword=secret\n"
              "LDAPServer=ldap://dir\nSuppressErrorMessages=+1\n");
    EXPECT_FALSE(load().plistMode);
    // LDAPUser: two "=", the line is ignored.
    EXPECT_EQ(values(), "30 00011110 sig.example.com:6000 mail=fixed@example.com ldap=|secret|ldap://dir");

    Config::setShared(nullptr);
    std::filesystem::remove(systemTextPath());
    writeFile(userTextPath(),
              "ShowExitMenu=false\nSignatureServerPort=60000000000\nUpdateFrequency=soon\n"
              "LDAPPassword=a=b\nShowViewLogMenu=yes\nUserEmailAddress=\nUserEmailAddress = \n"
              "SignatureServerAddress=first\nSignatureServerAddress=second\nsignatureserverport=1\n");
    defaults.setString("UserEmailAddress", "dialog@example.com");
    EXPECT_EQ(values(), "60 11101001 second:5757 mail=dialog@example.com ldap=||");
}

TEST_F(ConfigTest, UpdateFrequencyIsHoursUnlessItEndsInM) {
    const std::string tiny = "0." + std::string(60, '0') + "1"; // below the smallest float: zero
    const std::pair<const char*, float> cases[] = {{"2", 120},  {"1.5", 90},    {"30m", 30},
                                                   {"30M", 60}, {"0.5m", 0.5f}, {"-1", -60},
                                                   {"m", 60},   {"2h", 60},     {tiny.c_str(), 0}};
    for (const auto& [value, minutes] : cases) {
        Config::setShared(nullptr);
        writeFile(userTextPath(), std::string("UpdateFrequency=") + value + "\n");
        EXPECT_EQ(load().UpdateFrequency(), minutes) << value;
    }
}

TEST_F(ConfigTest, PropertyListGivesEveryKeyWithItsTypeAndWrongTypesGiveTheirDefaults) {
    writeFile(plistPath(),
              plist("<key>UpdateFrequency</key><string>2</string><key>AllowConfigureDefaultSignatures</key>"
                    "<false/><key>ShowViewLogMenu</key><false/><key>ShowExitMenu</key><false/>"
                    "<key>ShowLaunchAtLogon</key><true/><key>SignatureServerAddress</key><string>sig.example"
                    ".com</string><key>SignatureServerPort</key><integer>6001</integer><key>ShowConfiguration"
                    "Menu</key><false/><key>UserEmailAddress</key><string></string><key>SignatureServer"
                    "Autodetect</key><true/><key>LDAPUser</key><string>cn=reader,dc=example</string><key>"
                    "LDAPPassword</key><string>pa=ss</string><key>LDAPServer</key><string>ldap://dir</string>"
                    "<key>SuppressErrorMessages</key><true/>"));
    writeFile(systemTextPath(), "SignatureServerAddress=from-text\n");
    defaults.setString("UserEmailAddress", "dialog@example.com");
    EXPECT_TRUE(load().plistMode);
    // Empty text in a property list is kept.
    EXPECT_EQ(values(), "120 00010111 sig.example.com:6001 mail= ldap=cn=reader,dc=example|pa=ss|ldap://dir");
    EXPECT_EQ(logLines().back(), "Using configuration file: " + plistPath().string());

    Config::setShared(nullptr);
    writeFile(plistPath(),
              plist("<key>UpdateFrequency</key><integer>2</integer><key>SignatureServerPort</key>"
                    "<string>6000</string><key>ShowExitMenu</key><integer>0</integer><key>"
                    "SignatureServerAddress</key><true/><key>UserEmailAddress</key><integer>1"
                    "</integer>"));
    EXPECT_EQ(values(), "60 11101001 :5757 mail=dialog@example.com ldap=||");
    // Integers beyond 32 bits give the default, never their low bits; a real counts when it is whole.
    for (const auto& [value, port] : {std::pair{"<integer>18446744073709551615</integer>", 5757},
                                      {"<integer>4294967296</integer>", 5757},
                                      {"<integer>-1</integer>", -1},
                                      {"<real>6001.0</real>", 6001},
                                      {"<real>6001.5</real>", 5757}}) {
        Config::setShared(nullptr);
        writeFile(plistPath(), plist(std::string("<key>SignatureServerPort</key>") + value));
        EXPECT_EQ(load().SignatureServerPort(), port) << value;
    }
}

// The user's file is read whole, past a byte-order mark (as Windows writes) and a long line.
TEST_F(ConfigTest, SearchOrderIsSystemPlistThenSystemTextThenUserText) {
    writeFile(userTextPath(), "\xEF\xBB\xBFSignatureServerAddress=user\n" +
                                  std::string(10 * 1024 * 1024, 'x') + "\nSignatureServerPort=6100\n");
    EXPECT_EQ(load().SignatureServerAddress(), "user");
    EXPECT_EQ(load().SignatureServerPort(), 6100);
    Config::setShared(nullptr);
    writeFile(systemTextPath(), "SignatureServerAddress=system\n");
    EXPECT_EQ(load().SignatureServerAddress(), "system");
    EXPECT_EQ(load().usedFile(), systemTextPath());
    // Text that is not UTF-8 cannot be read (a folder in the file's place: EnvironmentFaultTest).
    Config::setShared(nullptr);
    std::filesystem::remove(systemTextPath());
    writeFile(userTextPath(), "SignatureServerAddress=\xFF\xFE invalid\n");
    EXPECT_EQ(load().SignatureServerAddress(), "");
    EXPECT_EQ(logLines().back(), "Error: couldn't read config file, possibly no permission");
}

TEST_F(ConfigTest, UnusablePropertyListsGiveDefaultsAndTheirLogLine) {
    const std::string notDictionary =
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>";
    for (const std::string& content :
         {notDictionary, std::string("\x01\xFE<plist>"), std::string("bplist00garbage"), std::string()}) {
        Config::setShared(nullptr);
        clearLog();
        writeFile(plistPath(), content);
        testing::internal::CaptureStdout();
        Config& config = load();
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(config.plistMode);
        EXPECT_EQ(config.SignatureServerPort(), 5757);
        EXPECT_EQ(logLines().back(), "Error reading plist configuration: The data couldn\u2019t be read "
                                     "because it isn\u2019t in the correct format.");
        EXPECT_NE(printed.find("Error reading plist configuration"), std::string::npos);
    }
}

TEST_F(ConfigTest, SettingsEntryIsElevenLinesWithoutDirectorySettings) {
    writeFile(userTextPath(),
              "UpdateFrequency=1.5\nSignatureServerAddress=sig\nLDAPPassword=hunter2\nShowExitMenu=0\n");
    load().logSettings();
    std::string entry;
    for (const auto& line : logLines()) {
        entry += line + "|";
    }
    EXPECT_EQ(entry.substr(entry.find("||")), "||UpdateFrequency: 90.0|AllowConfigureDefaultSignatures: true|"
                                              "ShowViewLogMenu: true|ShowExitMenu: false|ShowLaunchAtLogon: "
                                              "false|SignatureServerAddress: sig|SignatureServerPort: 5757|"
                                              "ShowConfigurationMenu: true|UserEmailAddress: |"
                                              "SuppressErrorMessages: false|");
    EXPECT_EQ(logText().find("hunter2"), std::string::npos);
}

} // namespace
} // namespace varnoth::test
