#include "agent/AppDelegate.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

class AppDelegateTest : public AgentTest {
protected:
    // The lines from the first one equal to `first` (or from the start), joined by "|".
    static std::string joined(const std::vector<std::string>& lines, const std::string& first = "",
                              std::size_t count = 1000) {
        auto at = first.empty() ? lines.begin() : std::find(lines.begin(), lines.end(), first);
        std::string text;
        for (; at != lines.end() && count-- > 0; ++at) {
            text += *at + "|";
        }
        return text;
    }
    std::string linesFrom(const std::string& first, std::size_t count = 1000) {
        return joined(logLines(), first, count);
    }
    long times(const std::string& line) {
        const auto lines = logLines();
        return std::count(lines.begin(), lines.end(), line);
    }
    void configure(const std::string& text) {
        writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", text);
        Config::setShared(nullptr);
    }
};

TEST_F(AppDelegateTest, TrustedStartWritesTheStartUpSequenceInOrder) {
    configure("SignatureServerAddress=sig.example.com\n");
    AppDelegate app;
    app.applicationDidFinishLaunching();
#ifdef __APPLE__
    const std::string system = "macOS Version 14.5 (Build 23F79)";
#else
    const std::string system = "Version 14.5 (Build 23F79)"; // the host's text names the system
#endif
    EXPECT_EQ(linesFrom("", 5), "--------------- Varnoth Brelvane Agent Version 1.0.0.1 ---------------|"
                                "Operating system is " +
                                    system +
                                    "|The current user is tester|The current computer is Test Mac|"
                                    "Loading in progress: false|");
    EXPECT_EQ(linesFrom("Constructing menu", 10),
              "Constructing menu|Adding Update Signatures option|Adding Configure option|Adding View Logs "
              "option|Adding About option|Adding Exit option|Accessibility permission is set up correctly|"
              "Starting app engine||UpdateFrequency: 60.0|");
    EXPECT_EQ(statusItem.images.front(), "menu_icon"); // set before the first run starts
    EXPECT_EQ(accessibility.prompts, std::vector<bool>{false});
    ASSERT_NE(app.updateTimer(), nullptr);
    EXPECT_EQ(app.updateTimer()->interval(), 3600s);

    clearLog();
    host.computer.reset(); // a host without a name skips that line
    AppDelegate nameless;
    nameless.setUpAgent();
    EXPECT_EQ(linesFrom("The current user is tester", 2),
              "The current user is tester|Loading in progress: false|");
}

TEST_F(AppDelegateTest, UntrustedStartWaitsForTheNotificationAndStartsOnceHalfASecondLater) {
    accessibility.trusted = false;
    AppDelegate app;
    app.setUpAgent();
    EXPECT_EQ(linesFrom("Waiting for accessibility permission", 2),
              "Waiting for accessibility permission|Application is granted accessibility permission: false|");
    EXPECT_EQ(accessibility.prompts, (std::vector<bool>{false, true}));
    queue.advance(10min);
    EXPECT_FALSE(app.engineStarted());
    accessibility.deliver();
    queue.advance(100ms);
    accessibility.deliver();
    queue.advance(399ms);
    EXPECT_FALSE(app.engineStarted());
    queue.advance(1ms);
    EXPECT_TRUE(app.engineStarted());
    EXPECT_EQ(accessibility.observerCount(), 0u);
    queue.advance(1s);
    EXPECT_EQ(times("Starting app engine"), 1);
    EXPECT_EQ(times("Accessibility permission received"), 2);
    EXPECT_EQ(queue.activeTimerCount(), 1u);
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
    EXPECT_EQ(times("Warning: UpdateFrequency below 1 minute; using 1 minute"), 1); // said once
}

TEST_F(AppDelegateTest, MenuFollowsTheConfigurationAndItsActionsAreLogged) {
    for (const auto& [config, titles] :
         {std::pair{"", "Varnoth Brelvane Agent|-|Update Signatures|-|Configure|-|View Logs|-|About|-|Exit|"},
          {"ShowViewLogMenu=0\nShowConfigurationMenu=0\nShowExitMenu=0\n",
           "Varnoth Brelvane Agent|-|Update Signatures|-|About|-|"}}) {
        configure(config);
        AppDelegate app;
        app.statusMenu().constructMenu();
        EXPECT_EQ(joined(statusItem.titles()), titles);
    }
    configure("");
    AppDelegate app;
    app.statusMenu().constructMenu();
    statusItem.choose("About");
    statusItem.choose("View Logs");
    ASSERT_EQ(workspace.opened.size(), 1u);
    EXPECT_EQ(workspace.opened[0].filename(), "Varnoth Brelvane Agent.log");
    statusItem.choose("Exit");
    EXPECT_EQ(application.terminations, 1);
    app.applicationWillTerminate();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(linesFrom("About menu selected"),
              "About menu selected|View Logs menu selected|Exit menu selected|Exiting|");
}

TEST_F(AppDelegateTest, LaunchAtLoginCheckMarkAndAutostartEntryMoveTogetherOnlyWithTheSetting) {
    XdgAutostartLoginItem loginItem;
    Platform::Ports ports = Platform::ports();
    ports.loginItem = &loginItem;
    ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent";
    Platform::install(ports);
    const auto entry = root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    const std::string toggle = "Launch Automatically at Login";
    // Without the setting the entry is neither shown nor touched, whoever wrote the file.
    writeFile(entry, "[Desktop Entry]\nType=Application\nName=Someone else's\nExec=/bin/true\n");
    AppDelegate first;
    first.statusMenu().constructMenu();
    const auto titles = statusItem.titles();
    EXPECT_EQ(std::count(titles.begin(), titles.end(), toggle), 0);
    EXPECT_TRUE(std::filesystem::exists(entry));
    std::filesystem::remove(entry);
    AppDelegate second;
    second.statusMenu().constructMenu();
    EXPECT_FALSE(std::filesystem::exists(entry));

    configure("ShowLaunchAtLogon=1\n");
    AppDelegate app;
    EXPECT_EQ(app.agent().label, "com.varnoth.brelvane-agent");
    EXPECT_EQ(app.agent().program(), "Varnoth Brelvane Agent");
    app.statusMenu().constructMenu();
    EXPECT_TRUE(statusItem.item(toggle).checked);
    EXPECT_TRUE(std::filesystem::exists(entry));
    statusItem.choose(toggle);
    EXPECT_FALSE(statusItem.item(toggle).checked);
    EXPECT_FALSE(std::filesystem::exists(entry));
    // The choice outlasts a restart.
    AppDelegate restarted;
    restarted.statusMenu().constructMenu();
    EXPECT_FALSE(statusItem.item(toggle).checked);
    EXPECT_FALSE(std::filesystem::exists(entry));
    statusItem.choose(toggle);
    EXPECT_TRUE(statusItem.item(toggle).checked);
    EXPECT_TRUE(loginItem.isInstalled());
    EXPECT_EQ(statusItem.titles()[3], toggle);
    EXPECT_EQ(times(toggle + " selected"), 2);
    EXPECT_EQ(times("Login item installed"), 2);
    EXPECT_EQ(times("Login item removed"), 1);
}

} // namespace
} // namespace varnoth::test
