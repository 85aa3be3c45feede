#include "config/Config.h"
#include "base/TextValues.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <sstream>

namespace varnoth::test {
namespace {

class ConfigTest : public AgentTest {
protected:
    std::filesystem::path userTextPath() const { return userConfigFolder() / "Varnoth Brelvane Agent.txt"; }
};

// Each case writes one configuration file (after removing the others unless its word starts with "+") and
// answers with the file mode, every key's value, the last log line and anything printed. The values are
// the interval, the flags (Allow, ViewLog, Exit, LaunchAtLogon, ConfigurationMenu, Autodetect,
// SuppressErrors, address editable), the server, the address and LDAP user, password and server.
TEST_F(ConfigTest, FilesAndTheValuesTheyGive) {
    defaults.setString("UserEmailAddress", "dialog@example.com");
    expectTranscript("config/values", [&](const std::string& word, const std::string& content) {
        const std::map<std::string, std::filesystem::path> paths = {
            {"plist", systemConfigFolder() / "Varnoth Brelvane Agent.plist"},
            {"system", systemConfigFolder() / "Varnoth Brelvane Agent.txt"},
            {"user", userTextPath()}};
        for (const auto& [kind, path] : paths) {
            word.starts_with("+") || std::filesystem::remove(path);
        }
        if (word != "none") {
            writeFile(paths.at(word.substr(word.starts_with("+") ? 1 : 0)), unescaped(content));
        }
        Config::setShared(nullptr);
        clearLog();
        testing::internal::CaptureStdout();
        const Config& c = Config::shared();
        const std::string printed = testing::internal::GetCapturedStdout();
        std::ostringstream out;
        out << (c.plistMode ? "plist " : "text ") << c.UpdateFrequency() << ' '
            << c.AllowConfigureDefaultSignatures() << c.ShowViewLogMenu() << c.ShowExitMenu()
            << c.ShowLaunchAtLogon() << c.ShowConfigurationMenu() << c.SignatureServerAutodetect()
            << c.SuppressErrorMessages() << c.UserEmailAddressEditable() << ' ' << c.SignatureServerAddress()
            << ':' << c.SignatureServerPort() << " mail=" << c.UserEmailAddress() << " ldap=" << c.LDAPUser()
            << '|' << c.LDAPPassword() << '|' << c.LDAPServer() << " | " << joinLines(logLines()) << "|"
            << printed;
        return text::replaceAll(text::replaceAll(out.str(), root().string(), "<root>"), "\n", "\\n");
    });
}

// The user's file is read whole, past a byte-order mark (as Windows writes) and a long line.
TEST_F(ConfigTest, ALongUserFileIsReadWhole) {
    writeFile(userTextPath(), "\xEF\xBB\xBFSignatureServerAddress=user\n" +
                                  std::string(10 * 1024 * 1024, 'x') + "\nSignatureServerPort=6100\n");
    EXPECT_EQ(Config::shared().SignatureServerAddress(), "user");
    EXPECT_EQ(Config::shared().SignatureServerPort(), 6100);
}

TEST_F(ConfigTest, SettingsEntryIsElevenLinesWithoutDirectorySettings) {
    writeFile(userTextPath(),
              "UpdateFrequency=1.5\nSignatureServerAddress=sig\nLDAPPassword=hunter2\nShowExitMenu=0\n");
    Config::shared().logSettings();
    expectGolden("config/settings-entry", joinLines(logLines()), {{root().string(), "<root>"}});
}

} // namespace
} // namespace varnoth::test
