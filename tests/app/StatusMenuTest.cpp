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

TEST_F(StatusMenuTest, DefaultsShowEveryItemButLaunchAtLogin) {
    AppDelegate app;
    app.statusMenu().constructMenu();
    EXPECT_EQ(shown(),
              (std::vector<std::string>{"(off) Varnoth Brelvane Agent", "-", "Update Signatures", "-",
                                        "Configure", "-", "View Logs", "-", "About", "-", "Exit"}));
}

TEST_F(StatusMenuTest, HiddenItemsTakeTheirSeparatorsAlong) {
    configure("ShowViewLogMenu=0\nShowConfigurationMenu=0\nShowExitMenu=0\n");
    AppDelegate app;
    app.statusMenu().constructMenu();
    EXPECT_EQ(shown(), (std::vector<std::string>{"(off) Varnoth Brelvane Agent", "-", "Update Signatures",
                                                 "-", "About", "-"}));
}

TEST_F(StatusMenuTest, LaunchAtLoginIsCheckedBelowUpdateAndTogglesWhenChosen) {
    configure("ShowLaunchAtLogon=1\nShowExitMenu=0\n");
    AppDelegate app;
    app.statusMenu().constructMenu();
    EXPECT_EQ(shown(), (std::vector<std::string>{"(off) Varnoth Brelvane Agent", "-", "Update Signatures",
                                                 "[x] Launch Automatically at Login", "-", "Configure", "-",
                                                 "View Logs", "-", "About", "-"}));
    action("Launch Automatically at Login")->trigger();
    EXPECT_FALSE(action("Launch Automatically at Login")->isChecked());
    EXPECT_FALSE(app.statusMenu().shouldLaunchAtLogin());
    action("Launch Automatically at Login")->trigger();
    EXPECT_TRUE(action("Launch Automatically at Login")->isChecked());
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

TEST_F(StatusMenuTest, ChoosingItemsRunsTheirActions) {
    AppDelegate app;
    app.statusMenu().constructMenu();
    action("About")->trigger();
    action("View Logs")->trigger();
    action("Exit")->trigger();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(workspace.opened.size(), 1u);
    EXPECT_EQ(application.terminations, 1);
    const auto lines = logLines();
    EXPECT_EQ(
        std::vector<std::string>(lines.end() - 3, lines.end()),
        (std::vector<std::string>{"About menu selected", "View Logs menu selected", "Exit menu selected"}));
}

} // namespace
} // namespace varnoth::test
