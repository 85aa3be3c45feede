#include "agent/AppDelegate.h"
#include "app/QtStatusItem.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "tests/app/QtWindowTest.h"

#include <QAction>

namespace varnoth::test {
namespace {

// The tray menu as Qt draws it from the agent's menu, for the configuration's combinations.
class StatusMenuTest : public QtWindowTest {
protected:
    void SetUp() override {
        QtWindowTest::SetUp();
        tray = std::make_unique<QtStatusItem>(VARNOTH_TEST_RESOURCES);
        Platform::Ports ports = Platform::ports();
        ports.statusItem = tray.get();
        Platform::install(ports);
    }
    void TearDown() override {
        tray.reset();
        QtWindowTest::TearDown();
    }
    // Titles in menu order, "-" for separators, "[x] " before a checked entry, "(off) " before a disabled
    // one; remembers each action by its title.
    std::string shown() {
        std::string result;
        for (QAction* action : tray->menu()->actions()) {
            const std::string title = action->text().toStdString();
            actions[title] = action;
            result += std::string(action->isEnabled() ? "" : "(off) ") + (action->isChecked() ? "[x] " : "") +
                      (action->isSeparator() ? "-" : title) + "|";
        }
        return result;
    }
    std::map<std::string, QAction*> actions;
    std::unique_ptr<QtStatusItem> tray;
};

// What Qt adds to the agent's menu: the disabled title, real separators, a checked entry, actions, an
// icon shown also where the offscreen platform has no tray (as a desktop whose panel has not started yet)
// whose left click opens the menu. The menu's contents and the launch toggle are AppDelegateTest's.
TEST_F(StatusMenuTest, QtMenuShowsTheAgentsEntriesAndRunsTheirActions) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "ShowLaunchAtLogon=1\n");
    AppDelegate app;
    app.setLoading(false);
    app.statusMenu().constructMenu();
    EXPECT_EQ(shown(), "(off) Varnoth Brelvane Agent|-|Update Signatures|[x] Launch Automatically at Login|-|"
                       "Configure|-|View Logs|-|About|-|Exit|");
    actions["About"]->trigger();
    actions["Exit"]->trigger();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(application.terminations, 1);
    EXPECT_FALSE(QSystemTrayIcon::isSystemTrayAvailable());
    EXPECT_TRUE(tray->trayIcon().isVisible());
    emit tray->trayIcon().activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(tray->menu()->isVisible());
    tray->menu()->hide();
}

} // namespace
} // namespace varnoth::test
