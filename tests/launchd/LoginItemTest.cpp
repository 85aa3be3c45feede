#include "base/TextValues.h"
#include "launchd/LaunchdLoginItem.h"
#include "platform/Platform.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;

class LoginItemTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        useExecutable(root() / "Varnoth Brelvane Agent.app/Contents/MacOS/Varnoth Brelvane Agent");
        LaunchControl::Options options;
        options.launchAgentsFolder = folder = root() / "home/Library/LaunchAgents";
        options.launchctl = root() / "no-launchctl"; // the running session must not be touched
        control.setOptions(options);
    }

    void useExecutable(const std::filesystem::path& executable) {
        Platform::Ports ports = Platform::ports();
        ports.bundle.executablePath = executable;
        Platform::install(ports);
    }

    std::filesystem::path autostartEntry() const {
        return root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    }

    std::filesystem::path folder;
    LaunchControl control;
};

TEST_F(LoginItemTest, AutostartEntryIsWrittenCheckedAndRemoved) {
    XdgAutostartLoginItem item;
    EXPECT_FALSE(item.isInstalled());
    EXPECT_TRUE(item.remove()); // nothing there is no failure

    ASSERT_TRUE(item.install());
    ASSERT_TRUE(item.install()); // again: replaced, not duplicated
    const std::string ours = readWholeFile(autostartEntry());
    EXPECT_EQ(ours, "[Desktop Entry]\nType=Application\nName=Varnoth Brelvane Agent\nExec=\"" +
                        Platform::bundle().executablePath.string() +
                        "\"\nTerminal=false\nX-GNOME-Autostart-enabled=true\n");
    EXPECT_TRUE(item.isInstalled());
    // Written through a temporary file that is gone afterwards.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(autostartEntry().parent_path()), {}), 1);

    // Entries that would not start this agent at login do not count.
    for (const std::string& other :
         {ours + "Hidden=true\n",
          text::replaceAll(ours, "X-GNOME-Autostart-enabled=true", "X-GNOME-Autostart-enabled=false"),
          std::string("[Desktop Entry]\nType=Application\nName=x\nExec=/usr/bin/other\n"),
          "[Other Group]\nExec=\"" + Platform::bundle().executablePath.string() + "\"\n",
          "[Other Group]\nExec=\"" + Platform::bundle().executablePath.string() +
              "\"\n[Desktop Entry]\nType=Application\nName=x\nExec=/usr/bin/other\n"}) {
        writeFile(autostartEntry(), other);
        EXPECT_FALSE(item.isInstalled()) << other;
    }
    useExecutable(root() / "moved/agent");
    writeFile(autostartEntry(), ours);
    EXPECT_FALSE(item.isInstalled()); // the entry still names the old place
    ASSERT_TRUE(item.install());
    EXPECT_TRUE(item.isInstalled());

    ASSERT_TRUE(item.remove());
    EXPECT_FALSE(std::filesystem::exists(autostartEntry()));
    EXPECT_FALSE(item.isInstalled());
    EXPECT_TRUE(logLines().empty());
}

TEST_F(LoginItemTest, ExecQuotesEveryReservedCharacter) {
    const std::filesystem::path tricky = "/opt/My Apps/a\"b$c\\d%e`f";
    // Quoting escapes " $ \ ` with a backslash and doubles %; the key file then doubles every backslash.
    EXPECT_EQ(XdgAutostartLoginItem::execValue(tricky), R"("/opt/My Apps/a\\"b\\$c\\\\d%%e\\`f")");
    EXPECT_EQ(XdgAutostartLoginItem::execArguments(XdgAutostartLoginItem::execValue(tricky)),
              Lines{tricky.string()});
    EXPECT_EQ(XdgAutostartLoginItem::execArguments("/usr/bin/foo --bar %U"),
              (Lines{"/usr/bin/foo", "--bar", "%U"}));
    EXPECT_EQ(XdgAutostartLoginItem::execArguments("\"/opt/unterminated"), std::nullopt);

    useExecutable(tricky);
    XdgAutostartLoginItem item;
    ASSERT_TRUE(item.install());
    EXPECT_TRUE(item.isInstalled());
}

TEST_F(LoginItemTest, FailuresAreLoggedNotThrown) {
    XdgAutostartLoginItem autostart;
    writeFile(root() / "home/.config/autostart", "a file where the folder belongs");
    writeFile(folder, "a file where the folder belongs");
    EXPECT_FALSE(autostart.install());
    EXPECT_FALSE(LaunchdLoginItem(control).install());
    const Lines lines = logLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(
        lines[0].starts_with("Error: couldn't write the login item " + autostartEntry().string() + ": "))
        << lines[0];
    EXPECT_TRUE(lines[1].starts_with("Error: couldn't write the login item com.varnoth.brelvane-agent: "))
        << lines[1];

    clearLog();
    useExecutable("");
    EXPECT_FALSE(autostart.install());
    EXPECT_EQ(logLines(),
              Lines{"Error: cannot add the login item: the bundle has no identifier or executable"});

    // A write that stops half-way names its cause: a file size limit binds root too. The long path
    // makes the entry longer than the limit, which the log line stays under.
    std::filesystem::remove(root() / "home/.config/autostart");
    useExecutable("/opt/" + std::string(400, 'x') + "/agent");
    clearLog();
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit limited = saved;
    limited.rlim_cur = 300;
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limited);
    const bool installed = autostart.install();
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(installed);
    EXPECT_NE(logText().find(": File too large\n"), std::string::npos) << logText();

    // Without an identifier there is no entry of ours, so nothing to remove.
    Platform::Ports ports = Platform::ports();
    ports.bundle.identifier.clear();
    Platform::install(ports);
    EXPECT_TRUE(autostart.remove());
}

TEST_F(LoginItemTest, JobRecordStartsTheExecutableAtLogin) {
    LaunchdLoginItem item(control);
    EXPECT_FALSE(item.isInstalled()); // no folder yet
    EXPECT_TRUE(item.remove());

    // Other files of the label go when the item is installed; files of other labels and junk stay.
    std::filesystem::create_directories(folder);
    writeFile(folder / "copy.plist", xmlPlist("<key>Label</key><string>com.varnoth.brelvane-agent</string>"));
    writeFile(folder / "other.plist", xmlPlist("<key>Label</key><string>com.example.other</string>"));
    writeFile(folder / "junk.plist", "junk");
    ASSERT_TRUE(item.install());
    EXPECT_FALSE(std::filesystem::exists(folder / "copy.plist"));
    const auto path = folder / "com.varnoth.brelvane-agent.plist";
    const std::string executable = Platform::bundle().executablePath.string();
    LaunchAgent expected("com.varnoth.brelvane-agent", {executable});
    expected.runAtLoad = true;
    expected.url = path;
    EXPECT_EQ(control.read(path), expected);
    EXPECT_TRUE(item.isInstalled());

    // Only an enabled record that starts this executable at load counts.
    const auto installedWith = [&](auto change) {
        LaunchAgent agent = LaunchdLoginItem::record();
        change(agent);
        control.write(agent);
        return item.isInstalled();
    };
    EXPECT_FALSE(installedWith([](LaunchAgent& agent) { agent.disabled = true; }));
    EXPECT_FALSE(installedWith([](LaunchAgent& agent) { agent.runAtLoad = false; }));
    EXPECT_TRUE(installedWith([&](LaunchAgent& agent) {
        agent.setProgramArguments(Lines{executable, "-x"});
    }));
    EXPECT_FALSE(installedWith([](LaunchAgent& agent) { agent.setProgram("/Applications/Old.app/Old"); }));

    ASSERT_TRUE(item.remove());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(item.isInstalled());
    EXPECT_TRUE(std::filesystem::exists(folder / "other.plist"));
    EXPECT_TRUE(std::filesystem::exists(folder / "junk.plist"));

    // A translocated copy is gone after a restart: no record points there, and one line says why.
    const std::string translocated =
        "/private/var/folders/x/T/AppTranslocation/1F2E/d/A.app/Contents/MacOS/A";
    useExecutable(translocated);
    clearLog();
    EXPECT_FALSE(item.install());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(logLines(),
              Lines{"Error: not adding the login item: the agent runs from a translocated copy (" +
                    translocated + "); move it into the Applications folder and start it from there"});
}

} // namespace
} // namespace varnoth::test
