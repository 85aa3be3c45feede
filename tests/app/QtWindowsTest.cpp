// The Qt windows and the tray menu, driven as a user would on the offscreen platform.

#include "agent/AppDelegate.h"
#include "app/ApplyWindow.h"
#include "app/ConfigurationWindow.h"
#include "app/QtStatusItem.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "tests/dialogs/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <cstdlib>

namespace varnoth::test {
namespace {

// Base of the tests that drive real Qt windows: the agent test fixture plus one QApplication for the
// whole program, on the offscreen platform unless a display was chosen.
class QtWindowTest : public AgentTest {
protected:
    static void SetUpTestSuite() {
        if (QApplication::instance() != nullptr) {
            return;
        }
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        static int argc = 1;
        static char name[] = "app_tests";
        static char* argv[] = {name, nullptr};
        // Kept for the life of the process: Qt does not support a second QApplication.
        static QApplication* application = new QApplication(argc, argv);
        (void)application;
    }

    // What a user does with the mouse: a left click at a point of the control (its centre by default).
    static void click(QWidget* widget, QPoint at = {}) { QTest::mouseClick(widget, Qt::LeftButton, {}, at); }
    // A check box toggles only on its indicator or label, so it is clicked near its left edge.
    static void clickCheckBox(QWidget* box) { click(box, QPoint(6, box->height() / 2)); }
};

class ApplyWindowTest : public QtWindowTest {
protected:
    void SetUp() override {
        QtWindowTest::SetUp();
        outlook.emplace();
        window = std::make_unique<ApplyWindow>();
    }
    void TearDown() override {
        window.reset();
        QtWindowTest::TearDown();
    }

    // What an update run does: hand over the answer, let the dialog choose its message, show the window.
    void updateAndShow(SignatureAction newAction, SignatureAction replyAction) {
        SignatureDescriptor descriptor;
        descriptor.defaultSignatureAction = newAction;
        descriptor.replySignatureAction = replyAction;
        window->controller().signature = descriptor;
        window->controller().updateMessage();
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window->dialog()));
    }

    QLabel* messageView() { return window->dialog().findChild<QLabel*>("messageView"); }
    QPushButton* configureButton() { return window->dialog().findChild<QPushButton*>("autoConfigureButton"); }
    QPushButton* closeButton() { return window->dialog().findChild<QPushButton*>("closeButton"); }

    std::optional<ScriptedOutlook> outlook;
    std::unique_ptr<ApplyWindow> window;
};

TEST_F(ApplyWindowTest, ConfigureButtonQuotedByTheMessageSendsOnlyTheReplyMessageAndClosesTheWindow) {
    updateAndShow(SignatureAction::dontchange, SignatureAction::change);
    EXPECT_EQ(window->controller().view(), window.get());
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::automaticMessage));
    EXPECT_TRUE(messageView()->text().contains(QString::fromUtf8("\xE2\x80\x9C") + configureButton()->text() +
                                               QString::fromUtf8("\xE2\x80\x9D")));
    EXPECT_TRUE(configureButton()->isVisible());

    click(configureButton());
    EXPECT_EQ(outlook->changes(), (std::vector<RecordingScriptHost::Message>{
                                      {"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_FALSE(window->dialog().isVisible());
    EXPECT_EQ(logLines().back(), "Signatures applied successfully with automation");
}

// One window reused: closed by its button or Escape, it shows the next update's message and button.
TEST_F(ApplyWindowTest, CloseLeavesOutlookAloneAndReopenedWindowFollowsTheNextUpdate) {
    updateAndShow(SignatureAction::change, SignatureAction::clear);
    EXPECT_TRUE(configureButton()->isVisible());
    click(closeButton());
    EXPECT_FALSE(window->dialog().isVisible());

    updateAndShow(SignatureAction::dontchange, SignatureAction::dontchange);
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::notChangedMessage));
    EXPECT_FALSE(configureButton()->isVisible());
    EXPECT_TRUE(closeButton()->isVisible());
    QTest::keyClick(&window->dialog(), Qt::Key_Escape);
    EXPECT_FALSE(window->dialog().isVisible());

    updateAndShow(SignatureAction::undefined, SignatureAction::change);
    EXPECT_TRUE(configureButton()->isVisible());
    EXPECT_TRUE(outlook->script.messages.empty());
}

class ConfigurationWindowTest : public QtWindowTest {
protected:
    void open() {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window.dialog()));
    }

    QCheckBox* checkbox() { return window.dialog().findChild<QCheckBox*>("emailCheckbox"); }
    QLineEdit* emailInput() { return window.dialog().findChild<QLineEdit*>("emailInput"); }
    QPushButton* okButton() { return window.dialog().findChild<QPushButton*>("okButton"); }
    QPushButton* cancelButton() { return window.dialog().findChild<QPushButton*>("cancelButton"); }

    ConfigurationWindow window;
};

// The controls reach the controller (whose rules ConfigurationViewControllerTest covers): the box, typing,
// Return only while OK is enabled, Cancel, Escape and OK.
TEST_F(ConfigurationWindowTest, ControlsKeysAndButtonsDriveTheDialog) {
    open();
    EXPECT_FALSE(emailInput()->isEnabled());
    clickCheckBox(checkbox());
    EXPECT_TRUE(emailInput()->isEnabled());
    QTest::keyClicks(emailInput(), "jane.doe");
    EXPECT_FALSE(okButton()->isEnabled());
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_TRUE(window.dialog().isVisible());
    QTest::keyClicks(emailInput(), "@example.com");
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_FALSE(window.dialog().isVisible());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");

    for (const bool escape : {false, true}) {
        open();
        EXPECT_EQ(emailInput()->text(), "jane.doe@example.com");
        QTest::keyClicks(emailInput(), "x");
        escape ? QTest::keyClick(emailInput(), Qt::Key_Escape) : click(cancelButton());
        EXPECT_FALSE(window.dialog().isVisible());
        EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");
    }
    open();
    clickCheckBox(checkbox());
    click(okButton());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_FALSE(window.dialog().isVisible());
}

TEST_F(ConfigurationWindowTest, CenterPutsTheWindowInTheMiddleOfTheScreen) {
    window.center();
    window.setRestorable(true);
    open();
    // The window frame is known only once shown, so the middle may be off by the frame's width.
    const QRect area = window.dialog().screen()->availableGeometry();
    const QPoint middle = window.dialog().frameGeometry().center();
    EXPECT_LE(std::abs(middle.x() - area.center().x()), 8);
    EXPECT_LE(std::abs(middle.y() - area.center().y()), 8);
    EXPECT_TRUE(window.restorable());
}

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
