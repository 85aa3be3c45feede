#include "core/TextValues.h"
#include "launchd/LaunchdLoginItem.h"
#include "platform/Platform.h"
#include "platform/XdgAutostartLoginItem.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace varnoth::test {
namespace {

std::string fileText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

class LoginItemTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        useExecutable(root() / "Varnoth Brelvane Agent.app/Contents/MacOS/Varnoth Brelvane Agent");
    }

    void useExecutable(const std::filesystem::path& executable) {
        Platform::Ports ports = Platform::ports();
        ports.bundle.executablePath = executable;
        Platform::install(ports);
    }

    std::filesystem::path autostartEntry() const {
        return root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    }
};

TEST_F(LoginItemTest, AutostartEntryIsWrittenCheckedAndRemoved) {
    XdgAutostartLoginItem item;
    EXPECT_EQ(XdgAutostartLoginItem::entryPath(), autostartEntry());
    EXPECT_FALSE(item.isInstalled());
    EXPECT_TRUE(item.remove()); // nothing there is no failure

    ASSERT_TRUE(item.install());
    EXPECT_EQ(fileText(autostartEntry()), "[Desktop Entry]\n"
                                          "Type=Application\n"
                                          "Name=Varnoth Brelvane Agent\n"
                                          "Exec=\"" +
                                              (root() / "Varnoth Brelvane Agent.app/Contents/MacOS/"
                                                        "Varnoth Brelvane Agent")
                                                  .string() +
                                              "\"\n"
                                              "Terminal=false\n"
                                              "X-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(item.isInstalled());
    // Written through a temporary file that is gone afterwards.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(autostartEntry().parent_path()), {}), 1);

    ASSERT_TRUE(item.install()); // again: replaced, not duplicated
    EXPECT_TRUE(item.isInstalled());

    ASSERT_TRUE(item.remove());
    EXPECT_FALSE(std::filesystem::exists(autostartEntry()));
    EXPECT_FALSE(item.isInstalled());
    EXPECT_TRUE(logLines().empty());
}

TEST_F(LoginItemTest, AutostartEntryThatWouldNotStartThisAgentIsNotInstalled) {
    XdgAutostartLoginItem item;
    ASSERT_TRUE(item.install());
    const std::string ours = fileText(autostartEntry());

    writeFile(autostartEntry(), ours + "Hidden=true\n");
    EXPECT_FALSE(item.isInstalled());
    writeFile(autostartEntry(),
              text::replaceAll(ours, "X-GNOME-Autostart-enabled=true", "X-GNOME-Autostart-enabled=false"));
    EXPECT_FALSE(item.isInstalled());
    writeFile(autostartEntry(), "[Desktop Entry]\nType=Application\nName=x\nExec=/usr/bin/other\n");
    EXPECT_FALSE(item.isInstalled());
    writeFile(autostartEntry(),
              "[Other Group]\nExec=\"" + Platform::bundle().executablePath.string() + "\"\n");
    EXPECT_FALSE(item.isInstalled());

    useExecutable(root() / "moved/agent");
    writeFile(autostartEntry(), ours);
    EXPECT_FALSE(item.isInstalled()); // the entry still names the old place
    ASSERT_TRUE(item.install());
    EXPECT_TRUE(item.isInstalled());
}

TEST_F(LoginItemTest, ExecQuotesEveryReservedCharacter) {
    const std::filesystem::path tricky = "/opt/My Apps/a\"b$c\\d%e`f";
    // Quoting escapes " $ \ ` with a backslash and doubles %; the key file then doubles every backslash.
    EXPECT_EQ(XdgAutostartLoginItem::execValue(tricky), R"("/opt/My Apps/a\\"b\\$c\\\\d%%e\\`f")");
    EXPECT_EQ(XdgAutostartLoginItem::execArguments(XdgAutostartLoginItem::execValue(tricky)),
              std::vector<std::string>{tricky.string()});
    EXPECT_EQ(XdgAutostartLoginItem::execArguments("/usr/bin/foo --bar %U"),
              (std::vector<std::string>{"/usr/bin/foo", "--bar", "%U"}));
    EXPECT_EQ(XdgAutostartLoginItem::execArguments("\"/opt/unterminated"), std::nullopt);

    useExecutable(tricky);
    XdgAutostartLoginItem item;
    ASSERT_TRUE(item.install());
    EXPECT_TRUE(item.isInstalled());
}

TEST_F(LoginItemTest, AutostartFailuresAreLoggedNotThrown) {
    XdgAutostartLoginItem item;
    writeFile(root() / "home/.config/autostart", "a file where the folder belongs");
    EXPECT_FALSE(item.install());
    ASSERT_EQ(logLines().size(), 1U);
    EXPECT_EQ(
        logLines()[0].rfind("Error: couldn't write the login item " + autostartEntry().string() + ": ", 0),
        0U)
        << logLines()[0];

    clearLog();
    useExecutable("");
    EXPECT_FALSE(item.install());
    EXPECT_EQ(logLines(),
              std::vector<std::string>{
                  "Error: cannot add the login item: the bundle has no identifier or executable"});
}

class LaunchdLoginItemTest : public LoginItemTest {
protected:
    void SetUp() override {
        LoginItemTest::SetUp();
        LaunchControl::Options options;
        options.launchAgentsFolder = folder = root() / "home/Library/LaunchAgents";
        options.launchctl = root() / "no-launchctl"; // the running session must not be touched
        control.setOptions(options);
    }

    std::filesystem::path folder;
    LaunchControl control;
};

TEST_F(LaunchdLoginItemTest, JobRecordStartsTheExecutableAtLogin) {
    LaunchdLoginItem item(control);
    EXPECT_FALSE(item.isInstalled()); // no folder yet
    EXPECT_TRUE(item.remove());

    ASSERT_TRUE(item.install()); // creates the folder
    const auto path = folder / "com.varnoth.brelvane-agent.plist";
    const std::string xml = fileText(path);
    EXPECT_EQ(rootKeys(xml), (std::vector<std::string>{"Label", "Program", "RunAtLoad"}));
    const LaunchAgent written = control.read(path);
    EXPECT_EQ(written.label, "com.varnoth.brelvane-agent");
    EXPECT_EQ(written.program(), Platform::bundle().executablePath.string());
    EXPECT_EQ(written.runAtLoad, true);
    EXPECT_TRUE(item.isInstalled());

    ASSERT_TRUE(item.remove());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(item.isInstalled());
}

TEST_F(LaunchdLoginItemTest, OnlyAnEnabledRecordOfThisExecutableCounts) {
    LaunchdLoginItem item(control);
    ASSERT_TRUE(item.install());
    LaunchAgent agent = LaunchdLoginItem::record();
    agent.disabled = true;
    control.write(agent);
    EXPECT_FALSE(item.isInstalled());
    agent.disabled.reset();
    agent.runAtLoad = false;
    control.write(agent);
    EXPECT_FALSE(item.isInstalled());
    agent.runAtLoad = true;
    agent.setProgramArguments(
        std::vector<std::string>{Platform::bundle().executablePath.string(), "--hidden"});
    control.write(agent);
    EXPECT_TRUE(item.isInstalled());
    agent.setProgram("/Applications/Old.app/Contents/MacOS/Old");
    control.write(agent);
    EXPECT_FALSE(item.isInstalled());
}

TEST_F(LaunchdLoginItemTest, EveryFileOfTheLabelGoesOthersStay) {
    std::filesystem::create_directories(folder);
    writeFile(folder / "copy.plist", xmlPlist("<key>Label</key><string>com.varnoth.brelvane-agent</string>"));
    writeFile(folder / "other.plist", xmlPlist("<key>Label</key><string>com.example.other</string>"));
    writeFile(folder / "junk.plist", "junk");

    LaunchdLoginItem item(control);
    ASSERT_TRUE(item.install());
    EXPECT_FALSE(std::filesystem::exists(folder / "copy.plist"));
    EXPECT_TRUE(item.isInstalled());
    ASSERT_TRUE(item.remove());
    EXPECT_FALSE(std::filesystem::exists(folder / "com.varnoth.brelvane-agent.plist"));
    EXPECT_TRUE(std::filesystem::exists(folder / "other.plist"));
    EXPECT_TRUE(std::filesystem::exists(folder / "junk.plist"));
}

TEST_F(LaunchdLoginItemTest, WriteFailureIsLogged) {
    writeFile(folder, "a file where the folder belongs");
    LaunchdLoginItem item(control);
    EXPECT_FALSE(item.install());
    ASSERT_EQ(logLines().size(), 1U);
    EXPECT_EQ(logLines()[0].rfind("Error: couldn't write the login item com.varnoth.brelvane-agent: ", 0), 0U)
        << logLines()[0];
    EXPECT_FALSE(item.isInstalled());
}

} // namespace
} // namespace varnoth::test
