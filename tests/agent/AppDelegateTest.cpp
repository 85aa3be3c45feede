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
    std::vector<std::string> linesFrom(const std::string& first) {
        auto lines = logLines();
        auto start = std::find(lines.begin(), lines.end(), first);
        return {start, lines.end()};
    }
    void configure(const std::string& text) {
        writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", text);
    }
};

TEST_F(AppDelegateTest, TrustedStartWritesTheStartUpSequenceInOrder) {
    configure("SignatureServerAddress=sig.example.com\n");
    AppDelegate app;
    app.applicationDidFinishLaunching();
    const auto lines = logLines();
    ASSERT_GE(lines.size(), 8u);
    EXPECT_EQ(lines[0], "--------------- Varnoth Brelvane Agent Version 1.0.0.1 ---------------");
#ifdef __APPLE__
    EXPECT_EQ(lines[1], "Operating system is macOS Version 14.5 (Build 23F79)");
#else
    EXPECT_EQ(lines[1], "Operating system is Version 14.5 (Build 23F79)"); // the host's text names the system
#endif
    EXPECT_EQ(lines[2], "The current user is tester");
    EXPECT_EQ(lines[3], "The current computer is Test Mac");
    EXPECT_EQ(lines[4], "Loading in progress: false");
    const auto rest = linesFrom("Constructing menu");
    const std::vector<std::string> expected{"Constructing menu",
                                            "Adding Update Signatures option",
                                            "Adding Configure option",
                                            "Adding View Logs option",
                                            "Adding About option",
                                            "Adding Exit option",
                                            "Accessibility permission is set up correctly",
                                            "Starting app engine",
                                            "",
                                            "UpdateFrequency: 60.0"};
    EXPECT_EQ(std::vector<std::string>(rest.begin(), rest.begin() + 10), expected);
    EXPECT_EQ(statusItem.images.front(), "menu_icon"); // set before the first run starts
    EXPECT_EQ(accessibility.prompts, std::vector<bool>{false});
    ASSERT_NE(app.updateTimer(), nullptr);
    EXPECT_EQ(app.updateTimer()->interval(), 3600s);
}

TEST_F(AppDelegateTest, HostWithoutAComputerNameSkipsThatLine) {
    host.computer.reset();
    AppDelegate app;
    app.setUpAgent();
    for (const auto& line : logLines()) {
        EXPECT_EQ(line.rfind("The current computer is", 0), std::string::npos);
    }
}

TEST_F(AppDelegateTest, UntrustedStartWaitsForTheNotificationAndStartsOnceHalfASecondLater) {
    accessibility.trusted = false;
    AppDelegate app;
    app.setUpAgent();
    const auto waiting = linesFrom("Waiting for accessibility permission");
    ASSERT_GE(waiting.size(), 2u);
    EXPECT_EQ(waiting[1], "Application is granted accessibility permission: false");
    EXPECT_EQ(accessibility.prompts, (std::vector<bool>{false, true}));
    EXPECT_FALSE(app.engineStarted());
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
    const auto lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Starting app engine"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Accessibility permission received"), 2);
    EXPECT_EQ(queue.activeTimerCount(), 1u);
}

TEST_F(AppDelegateTest, TimerIntervalFollowsUpdateFrequencyWithinItsBounds) {
    EXPECT_EQ(AppDelegate::updateInterval(60), 3600s);
    EXPECT_EQ(AppDelegate::updateInterval(30), 1800s);
    EXPECT_EQ(AppDelegate::updateInterval(120), 7200s);
    EXPECT_EQ(AppDelegate::updateInterval(0), AppDelegate::minimumUpdateInterval);
    EXPECT_EQ(AppDelegate::updateInterval(-5), AppDelegate::minimumUpdateInterval);
    EXPECT_EQ(AppDelegate::updateInterval(0.01f), AppDelegate::minimumUpdateInterval);
    EXPECT_EQ(AppDelegate::updateInterval(std::numeric_limits<float>::quiet_NaN()),
              AppDelegate::minimumUpdateInterval);
    EXPECT_EQ(AppDelegate::updateInterval(std::numeric_limits<float>::infinity()),
              AppDelegate::maximumUpdateInterval);

    for (const auto& [text, interval] :
         {std::pair{"30m", 1800s}, std::pair{"2", 7200s}, std::pair{"0.5m", 60s}}) {
        Config::setShared(nullptr);
        configure(std::string("UpdateFrequency=") + text + "\n");
        AppDelegate app;
        app.startEngine();
        EXPECT_EQ(app.updateTimer()->interval(), interval) << text;
    }
    const auto lines = logLines(); // the raised value says so once
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), "Warning: UpdateFrequency below 1 minute; using 1 minute"), 1);
}

TEST_F(AppDelegateTest, MenuFollowsTheConfiguration) {
    {
        AppDelegate app;
        app.statusMenu().constructMenu();
        EXPECT_EQ(statusItem.titles(),
                  (std::vector<std::string>{"Varnoth Brelvane Agent", "-", "Update Signatures", "-",
                                            "Configure", "-", "View Logs", "-", "About", "-", "Exit"}));
    }
    configure("ShowViewLogMenu=0\nShowConfigurationMenu=0\nShowExitMenu=0\n");
    Config::setShared(nullptr);
    {
        AppDelegate app;
        app.statusMenu().constructMenu();
        EXPECT_EQ(statusItem.titles(), (std::vector<std::string>{"Varnoth Brelvane Agent", "-",
                                                                 "Update Signatures", "-", "About", "-"}));
    }
}

TEST_F(AppDelegateTest, ViewLogsOpensTheLogAndExitTerminatesSayingExiting) {
    AppDelegate app;
    app.statusMenu().constructMenu();
    statusItem.choose("View Logs");
    ASSERT_EQ(workspace.opened.size(), 1u);
    EXPECT_EQ(workspace.opened[0].filename(), "Varnoth Brelvane Agent.log");
    statusItem.choose("Exit");
    EXPECT_EQ(application.terminations, 1);
    app.applicationWillTerminate();
    const auto lines = logLines();
    EXPECT_EQ(std::vector<std::string>(lines.end() - 3, lines.end()),
              (std::vector<std::string>{"View Logs menu selected", "Exit menu selected", "Exiting"}));
}

} // namespace
} // namespace varnoth::test

namespace varnoth::test {
namespace {

class LaunchAtLoginTest : public AppDelegateTest {
protected:
    void SetUp() override {
        AppDelegateTest::SetUp();
        Platform::Ports ports = Platform::ports();
        ports.loginItem = &loginItem;
        ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent";
        Platform::install(ports);
    }
    std::filesystem::path entry() const {
        return root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    }
    XdgAutostartLoginItem loginItem;
};

TEST_F(LaunchAtLoginTest, CheckMarkAndAutostartEntryMoveTogetherAndTheChoiceOutlastsARestart) {
    configure("ShowLaunchAtLogon=1\n");
    AppDelegate app;
    app.statusMenu().constructMenu();
    EXPECT_TRUE(statusItem.item("Launch Automatically at Login").checked);
    EXPECT_TRUE(std::filesystem::exists(entry()));

    statusItem.choose("Launch Automatically at Login");
    EXPECT_FALSE(statusItem.item("Launch Automatically at Login").checked);
    EXPECT_FALSE(std::filesystem::exists(entry()));

    AppDelegate restarted;
    restarted.statusMenu().constructMenu();
    EXPECT_FALSE(statusItem.item("Launch Automatically at Login").checked);
    EXPECT_FALSE(std::filesystem::exists(entry()));
    statusItem.choose("Launch Automatically at Login");
    EXPECT_TRUE(statusItem.item("Launch Automatically at Login").checked);
    EXPECT_TRUE(loginItem.isInstalled());
    EXPECT_EQ(statusItem.titles()[3], "Launch Automatically at Login");
    const auto lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Launch Automatically at Login selected"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Login item installed"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Login item removed"), 1);
}

TEST_F(LaunchAtLoginTest, WithoutTheSettingNothingIsInstalledOrRemoved) {
    writeFile(entry(), "[Desktop Entry]\nType=Application\nName=Someone else's\nExec=/bin/true\n");
    AppDelegate app;
    app.statusMenu().constructMenu();
    const auto titles = statusItem.titles();
    EXPECT_EQ(std::count(titles.begin(), titles.end(), "Launch Automatically at Login"), 0);
    EXPECT_TRUE(std::filesystem::exists(entry()));
    std::error_code ignored;
    std::filesystem::remove(entry(), ignored);
    AppDelegate second;
    second.statusMenu().constructMenu();
    EXPECT_FALSE(std::filesystem::exists(entry()));
}

TEST_F(LaunchAtLoginTest, AgentRecordIsLabelledByTheBundle) {
    AppDelegate app;
    EXPECT_EQ(app.agent().label, "com.varnoth.brelvane-agent");
    EXPECT_EQ(app.agent().program(), "Varnoth Brelvane Agent");
}

} // namespace
} // namespace varnoth::test
