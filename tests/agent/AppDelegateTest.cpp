#include "agent/AppDelegate.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// Each test's whole log (and what it notes besides) is kept as a golden transcript under agent/.
class AppDelegateTest : public AgentTest {
protected:
#ifdef __APPLE__
    static constexpr const char* system = "is macOS Version 14.5 (Build 23F79)\n";
#else
    static constexpr const char* system = "is Version 14.5 (Build 23F79)\n"; // the host's text names it
#endif
    void configure(const std::string& text) {
        writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", text);
        Config::setShared(nullptr);
    }
    void expectLog(const std::string& name, const std::vector<std::string>& noted = {}) {
        expectGolden("agent/" + name, joinLines(noted) + joinLines(logLines()),
                     {{root().string(), "<root>"}, {system, "is <system>\n"}});
    }
};

TEST_F(AppDelegateTest, TrustedStartWritesTheStartUpSequenceInOrder) {
    configure("SignatureServerAddress=sig.example.com\n");
    AppDelegate app;
    app.applicationDidFinishLaunching();
    EXPECT_EQ(statusItem.images.front(), "menu_icon"); // set before the first run starts
    EXPECT_EQ(accessibility.prompts, std::vector<bool>{false});
    ASSERT_NE(app.updateTimer(), nullptr);
    EXPECT_EQ(app.updateTimer()->interval(), 3600s);
    host.computer.reset(); // a host without a name skips that line
    AppDelegate nameless;
    nameless.setUpAgent();
    expectLog("start-up");
}

TEST_F(AppDelegateTest, UntrustedStartWaitsForTheNotificationAndStartsOnceHalfASecondLater) {
    accessibility.trusted = false;
    AppDelegate app;
    app.setUpAgent();
    EXPECT_EQ(accessibility.prompts, (std::vector<bool>{false, true}));
    queue.advance(10min);
    accessibility.deliver();
    queue.advance(100ms);
    accessibility.deliver();
    queue.advance(399ms);
    EXPECT_FALSE(app.engineStarted());
    queue.advance(1ms);
    EXPECT_TRUE(app.engineStarted());
    EXPECT_EQ(accessibility.observerCount(), 0u);
    queue.advance(1s);
    EXPECT_EQ(queue.activeTimerCount(), 1u);
    expectLog("untrusted-start"); // one engine start after two notifications
}

TEST_F(AppDelegateTest, TimerIntervalFollowsUpdateFrequencyWithinItsBounds) {
    const auto minimum = AppDelegate::minimumUpdateInterval, maximum = AppDelegate::maximumUpdateInterval;
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const float minutes[] = {60, 30, 120, 0, -5, 0.01f, nan, inf};
    const std::chrono::seconds intervals[] = {3600s,   1800s,   7200s,   minimum,
                                              minimum, minimum, minimum, maximum};
    for (std::size_t i = 0; i < std::size(minutes); ++i) {
        EXPECT_EQ(AppDelegate::updateInterval(minutes[i]), intervals[i]) << minutes[i];
    }
    for (const auto& [text, interval] : {std::pair{"30m", 1800s}, {"2", 7200s}, {"0.5m", 60s}}) {
        configure(std::string("UpdateFrequency=") + text + "\n");
        AppDelegate app;
        app.startEngine();
        EXPECT_EQ(app.updateTimer()->interval(), interval) << text;
    }
    expectLog("update-frequency"); // the warning below one minute is said once
}

TEST_F(AppDelegateTest, MenuFollowsTheConfigurationAndItsActionsAreLogged) {
    std::vector<std::string> noted;
    for (const char* config : {"ShowViewLogMenu=0\nShowConfigurationMenu=0\nShowExitMenu=0\n", ""}) {
        configure(config);
        AppDelegate app;
        app.statusMenu().constructMenu();
        std::ranges::copy(statusItem.titles(), std::back_inserter(noted));
    }
    AppDelegate app;
    app.statusMenu().constructMenu();
    for (const char* title : {"About", "View Logs", "Exit"}) {
        statusItem.choose(title);
    }
    app.applicationWillTerminate();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(application.terminations, 1);
    ASSERT_EQ(workspace.opened.size(), 1u);
    EXPECT_EQ(workspace.opened[0].filename(), "Varnoth Brelvane Agent.log");
    expectLog("menu", noted);
}

TEST_F(AppDelegateTest, LaunchAtLoginCheckMarkAndAutostartEntryMoveTogetherOnlyWithTheSetting) {
    XdgAutostartLoginItem loginItem;
    Platform::Ports ports = Platform::ports();
    ports.loginItem = &loginItem;
    ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent";
    Platform::install(ports);
    const auto entry = root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    const std::string toggle = "Launch Automatically at Login";
    std::vector<std::string> noted;
    // The menu's titles, then whether the toggle is checked, the login item installed and the entry there.
    const auto note = [&](const std::string& step) {
        std::ranges::copy(statusItem.titles(), std::back_inserter(noted));
        const auto titles = statusItem.titles();
        const bool shown = std::ranges::count(titles, toggle) == 1;
        noted.push_back(step + ": " +
                        (shown ? statusItem.item(toggle).checked ? "[x]" : "[ ]" : "no toggle") +
                        (loginItem.isInstalled() ? " installed" : "") +
                        (std::filesystem::exists(entry) ? " entry" : " no entry"));
    };
    // Without the setting the entry is neither shown nor touched, whoever wrote the file.
    writeFile(entry, "[Desktop Entry]\nType=Application\nName=Someone else's\nExec=/bin/true\n");
    AppDelegate first;
    first.statusMenu().constructMenu();
    note("someone else's entry");
    std::filesystem::remove(entry);
    AppDelegate second;
    second.statusMenu().constructMenu();
    note("no entry");

    configure("ShowLaunchAtLogon=1\n");
    AppDelegate app;
    noted.push_back(app.agent().label + " runs " + app.agent().program().value_or("?"));
    app.statusMenu().constructMenu();
    note("with the setting");
    statusItem.choose(toggle);
    note("chosen");
    AppDelegate restarted; // the choice outlasts a restart
    restarted.statusMenu().constructMenu();
    note("restarted");
    statusItem.choose(toggle);
    note("chosen again");
    expectLog("launch-at-login", noted);
}

} // namespace
} // namespace varnoth::test
