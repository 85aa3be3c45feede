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
    // The menu's entries (made anew by `app` if given), "-" for a separator and a box before a checkable one.
    void noteMenu(AppDelegate* app = nullptr) {
        if (app) {
            app->statusMenu().constructMenu();
        }
        for (const auto& item : statusItem.menu) {
            noted.push_back(item.kind == MenuItem::Kind::separator ? "-"
                            : item.checkable ? (item.checked ? "[x] " : "[ ] ") + item.title
                                             : item.title);
        }
    }
    // What the test noted, then the whole log.
    void expectLog(const std::string& name) {
        expectGolden("agent/" + name, joinLines(noted) + joinLines(logLines()),
                     {{root().string(), "<root>"}, {system, "is <system>\n"}});
    }

    std::vector<std::string> noted;
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

// Steps: set-up, deliver (the permission's notification) or wait a number of milliseconds; each answered
// with whether the engine started, the permission's observers and the active timers.
TEST_F(AppDelegateTest, UntrustedStartWaitsForTheNotificationAndStartsOnceHalfASecondLater) {
    accessibility.trusted = false;
    AppDelegate app;
    expectTranscript("agent/untrusted-steps", [&](const std::string& step, const std::string& ms) {
        step == "set-up"    ? app.setUpAgent()
        : step == "deliver" ? accessibility.deliver()
        : step == "wait"    ? queue.advance(std::chrono::milliseconds(std::stoi(ms)))
                            : throw std::invalid_argument(step);
        return "started " + std::to_string(app.engineStarted()) + ", observers " +
               std::to_string(accessibility.observerCount()) + ", timers " +
               std::to_string(queue.activeTimerCount());
    });
    EXPECT_EQ(accessibility.prompts, (std::vector<bool>{false, true})); // asked without, then with, a prompt
    expectLog("untrusted-start"); // one engine start after two notifications
}

// "minutes M": the interval for M minutes; "config T": the timer's interval after UpdateFrequency=T.
TEST_F(AppDelegateTest, TimerIntervalFollowsUpdateFrequencyWithinItsBounds) {
    expectTranscript("agent/update-interval", [&](const std::string& word, const std::string& value) {
        if (word == "minutes") {
            return std::to_string(AppDelegate::updateInterval(std::stof(value)).count()) + "ms";
        }
        configure("UpdateFrequency=" + value + "\n");
        AppDelegate app;
        app.startEngine();
        return std::to_string(app.updateTimer()->interval().count()) + "ms";
    });
    expectLog("update-frequency"); // the warning below one minute is said once
}

TEST_F(AppDelegateTest, MenuFollowsTheConfigurationAndItsActionsAreLogged) {
    for (const char* config : {"ShowViewLogMenu=0\nShowConfigurationMenu=0\nShowExitMenu=0\n", ""}) {
        configure(config);
        AppDelegate app;
        noteMenu(&app);
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
    expectLog("menu");
}

TEST_F(AppDelegateTest, LaunchAtLoginCheckMarkAndAutostartEntryMoveTogetherOnlyWithTheSetting) {
    XdgAutostartLoginItem loginItem;
    Platform::Ports ports = Platform::ports();
    ports.loginItem = &loginItem;
    ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent";
    Platform::install(ports);
    const auto entry = root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    const std::string toggle = "Launch Automatically at Login";
    // The menu, then whether the login item is installed and the entry there.
    const auto note = [&](const std::string& step, AppDelegate* app = nullptr) {
        noteMenu(app);
        noted.push_back(step + ":" + (loginItem.isInstalled() ? " installed" : "") +
                        (std::filesystem::exists(entry) ? " entry" : " no entry"));
    };
    // Without the setting the entry is neither shown nor touched, whoever wrote the file.
    writeFile(entry, "[Desktop Entry]\nType=Application\nName=Someone else's\nExec=/bin/true\n");
    AppDelegate first;
    note("someone else's entry", &first);
    std::filesystem::remove(entry);
    AppDelegate second;
    note("no entry", &second);

    configure("ShowLaunchAtLogon=1\n");
    AppDelegate app;
    noted.push_back(app.agent().label + " runs " + app.agent().program().value_or("?"));
    note("with the setting", &app);
    statusItem.choose(toggle);
    note("chosen");
    AppDelegate restarted; // the choice outlasts a restart
    note("restarted", &restarted);
    statusItem.choose(toggle);
    note("chosen again");
    expectLog("launch-at-login");
}

} // namespace
} // namespace varnoth::test
