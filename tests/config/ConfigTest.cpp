#include "config/Config.h"
#include "base/TextValues.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <sstream>
#include <sys/stat.h>

namespace varnoth::test {
namespace {

class ConfigTest : public AgentTest {
protected:
    std::filesystem::path userTextPath() const { return userConfigFolder() / "Varnoth Brelvane Agent.txt"; }

    // A dictionary whose one value is an array in an array ... down to a string: depth containers.
    static std::string nestedPlist(std::size_t depth, bool binary) {
        if (!binary) {
            return "<plist><dict><key>k</key>" + repeated("<array>", depth - 1) + "<string>k</string>" +
                   repeated("</array>", depth - 1) + "</dict></plist>";
        }
        // Objects: the dictionary, the string (key and innermost value), the arrays; four-byte
        // references and offsets.
        const auto bigEndian = [](std::uint64_t value, int bytes) {
            std::string out;
            for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
                out += static_cast<char>((value >> shift) & 0xFF);
            }
            return out;
        };
        std::vector<std::string> objects{"\xD1" + bigEndian(1, 4) + bigEndian(depth > 1 ? 2 : 1, 4), "\x51k"};
        for (std::size_t i = 2; i <= depth; ++i) {
            objects.push_back("\xA1" + bigEndian(i < depth ? i + 1 : 1, 4));
        }
        std::string data = "bplist00";
        std::string offsets;
        for (const auto& object : objects) {
            offsets += bigEndian(data.size(), 4);
            data += object;
        }
        const std::size_t table = data.size();
        return data + offsets + std::string(6, '\0') + "\x04\x04" + bigEndian(objects.size(), 8) +
               bigEndian(0, 8) + bigEndian(table, 8);
    }
    static std::string repeated(const std::string& text, std::size_t count) {
        std::string out;
        for (std::size_t i = 0; i < count; ++i) {
            out += text;
        }
        return out;
    }
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
        if (word == "fifo" || word == "zero") { // in the place of the file the case names
            word == "fifo" ? void(::mkfifo(paths.at(content).c_str(), 0600))
                           : std::filesystem::create_symlink("/dev/zero", paths.at(content));
        } else if (word == "large") {
            writeFile(userTextPath(),
                      "SignatureServerAddress=large\n" + std::string(Config::maxFileBytes, '#'));
        } else if (word.starts_with("nested")) { // a dictionary holding arrays, as deep as the case says
            writeFile(paths.at("plist"), nestedPlist(std::stoul(content), word == "nested-binary"));
        } else if (word != "none") {
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

// The user's file is read whole, past a byte-order mark (as Windows writes) and a long line, up to
// exactly the largest size read.
TEST_F(ConfigTest, ALongUserFileIsReadWhole) {
    const std::string head = "\xEF\xBB\xBFSignatureServerAddress=user\n",
                      tail = "\nSignatureServerPort=6100\n";
    writeFile(userTextPath(),
              head + std::string(Config::maxFileBytes - head.size() - tail.size(), 'x') + tail);
    ASSERT_EQ(std::filesystem::file_size(userTextPath()), Config::maxFileBytes);
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
