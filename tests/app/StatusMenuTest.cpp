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
    void configure(const std::string& text) {
        writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", text);
        Config::setShared(nullptr);
    }
    // Titles in menu order, "-" for separators, "[x] " before a checked entry, "(off) " before a disabled
    // one.
    std::vector<std::string> shown() const {
        std::vector<std::string> result;
        for (QAction* action : tray->menu()->actions()) {
            if (action->isSeparator()) {
                result.push_back("-");
                continue;
            }
            std::string text = action->text().toStdString();
            if (action->isChecked()) {
                text = "[x] " + text;
            }
            if (!action->isEnabled()) {
                text = "(off) " + text;
            }
            result.push_back(text);
        }
        return result;
    }
    QAction* action(const std::string& title) const {
        for (QAction* entry : tray->menu()->actions()) {
            if (entry->text().toStdString() == title) {
                return entry;
            }
        }
        return nullptr;
    }
    std::unique_ptr<QtStatusItem> tray;
};

// What Qt adds to the agent's menu: the disabled title, real separators, a checked entry, actions. The
// menu's contents and the launch toggle are AppDelegateTest's.
TEST_F(StatusMenuTest, QtMenuShowsTheAgentsEntriesAndRunsTheirActions) {
    configure("ShowLaunchAtLogon=1\n");
    AppDelegate app;
    app.statusMenu().constructMenu();
    EXPECT_EQ(shown(), (std::vector<std::string>{"(off) Varnoth Brelvane Agent", "-", "Update Signatures",
                                                 "[x] Launch Automatically at Login", "-", "Configure", "-",
                                                 "View Logs", "-", "About", "-", "Exit"}));
    action("About")->trigger();
    action("Exit")->trigger();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(application.terminations, 1);
}

// The offscreen platform has no tray, as a desktop whose panel has not started yet.
TEST_F(StatusMenuTest, IconIsShownWithoutATrayAndALeftClickOpensTheMenu) {
    AppDelegate app;
    app.setLoading(false);
    app.statusMenu().constructMenu();
    EXPECT_FALSE(QSystemTrayIcon::isSystemTrayAvailable());
    EXPECT_TRUE(tray->trayIcon().isVisible());
    emit tray->trayIcon().activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(tray->menu()->isVisible());
    tray->menu()->hide();
}

} // namespace
} // namespace varnoth::test
