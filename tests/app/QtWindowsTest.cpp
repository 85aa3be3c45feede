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

// The agent test fixture plus one QApplication for the whole program, on the offscreen platform unless a
// display was chosen.
class QtWindowsTest : public AgentTest {
protected:
    static void SetUpTestSuite() {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        static int argc = 1;
        static char name[] = "app_tests";
        static char* argv[] = {name, nullptr};
        // Made once and kept for the life of the process: Qt does not support a second QApplication.
        [[maybe_unused]] static QApplication* application = new QApplication(argc, argv);
    }

    // What a user does with the mouse: a left click at a point of the control (its centre by default).
    static void click(QWidget* widget, QPoint at = {}) { QTest::mouseClick(widget, Qt::LeftButton, {}, at); }
    template <typename Window> static void show(Window& window) {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window.dialog()));
    }
};

// One window reused: closed by its button or Escape, it shows the next update's message and button; the
// configure button its message quotes sends only the reply message and closes the window.
TEST_F(QtWindowsTest, ApplyWindowFollowsEachUpdateAndItsConfigureButtonSendsOnlyTheReplyMessage) {
    ScriptedOutlook outlook;
    ApplyWindow window;
    QDialog& dialog = window.dialog();
    auto* message = dialog.findChild<QLabel*>("messageView");
    auto* configure = dialog.findChild<QPushButton*>("autoConfigureButton");
    auto* close = dialog.findChild<QPushButton*>("closeButton");
    // What an update run does: hand over the answer, let the dialog choose its message, show the window.
    const auto update = [&](SignatureAction newAction, SignatureAction replyAction) {
        auto& signature = window.controller().signature.emplace();
        signature.defaultSignatureAction = newAction;
        signature.replySignatureAction = replyAction;
        window.controller().updateMessage();
        show(window);
    };
    update(SignatureAction::change, SignatureAction::clear);
    EXPECT_TRUE(configure->isVisible());
    click(close);
    EXPECT_FALSE(dialog.isVisible());

    update(SignatureAction::dontchange, SignatureAction::dontchange);
    EXPECT_EQ(message->text(), QString::fromUtf8(ApplyViewController::notChangedMessage));
    EXPECT_FALSE(configure->isVisible());
    EXPECT_TRUE(close->isVisible());
    QTest::keyClick(&dialog, Qt::Key_Escape);
    EXPECT_FALSE(dialog.isVisible());

    update(SignatureAction::undefined, SignatureAction::change);
    EXPECT_TRUE(configure->isVisible());
    EXPECT_TRUE(outlook.script.messages.empty());

    update(SignatureAction::dontchange, SignatureAction::change);
    EXPECT_EQ(window.controller().view(), &window);
    EXPECT_EQ(message->text(), QString::fromUtf8(ApplyViewController::automaticMessage));
    EXPECT_TRUE(message->text().contains(QString::fromUtf8("\xE2\x80\x9C") + configure->text() +
                                         QString::fromUtf8("\xE2\x80\x9D")));
    EXPECT_TRUE(configure->isVisible());
    click(configure);
    EXPECT_EQ(outlook.changes(), (std::vector<RecordingScriptHost::Message>{
                                     {"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(logLines().back(), "Signatures applied successfully with automation");
}

// Centred, the window's middle is the screen's, up to the frame's width (known only once shown). The
// controls reach the controller (whose rules ConfigurationViewControllerTest covers): the box, typing,
// Return only while OK is enabled, Cancel, Escape and OK.
TEST_F(QtWindowsTest, ConfigurationWindowCentresAndItsControlsKeysAndButtonsDriveTheDialog) {
    ConfigurationWindow window;
    QDialog& dialog = window.dialog();
    auto* box = dialog.findChild<QCheckBox*>("emailCheckbox");
    auto* input = dialog.findChild<QLineEdit*>("emailInput");
    auto* ok = dialog.findChild<QPushButton*>("okButton");
    window.center();
    window.setRestorable(true);
    show(window);
    const QRect area = dialog.screen()->availableGeometry();
    EXPECT_LE(std::abs(dialog.frameGeometry().center().x() - area.center().x()), 8);
    EXPECT_LE(std::abs(dialog.frameGeometry().center().y() - area.center().y()), 8);
    EXPECT_TRUE(window.restorable());

    // A check box toggles only on its indicator or label, so it is clicked near its left edge.
    const QPoint indicator(6, box->height() / 2);
    EXPECT_FALSE(input->isEnabled());
    click(box, indicator);
    EXPECT_TRUE(input->isEnabled());
    QTest::keyClicks(input, "jane.doe");
    EXPECT_FALSE(ok->isEnabled());
    QTest::keyClick(input, Qt::Key_Return);
    EXPECT_TRUE(dialog.isVisible());
    QTest::keyClicks(input, "@example.com");
    QTest::keyClick(input, Qt::Key_Return);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");

    for (const bool escape : {false, true}) {
        show(window);
        EXPECT_EQ(input->text(), "jane.doe@example.com");
        QTest::keyClicks(input, "x");
        escape ? QTest::keyClick(input, Qt::Key_Escape)
               : click(dialog.findChild<QPushButton*>("cancelButton"));
        EXPECT_FALSE(dialog.isVisible());
        EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");
    }
    show(window);
    click(box, indicator);
    click(ok);
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_FALSE(dialog.isVisible());
}

// The tray menu as Qt draws it from the agent's menu: the disabled title, real separators, a checked
// entry, actions, an icon shown also where the offscreen platform has no tray (as a desktop whose panel
// has not started yet) whose left click opens the menu. The menu's contents and the launch toggle are
// AppDelegateTest's.
TEST_F(QtWindowsTest, QtMenuShowsTheAgentsEntriesAndRunsTheirActions) {
    QtStatusItem tray(VARNOTH_TEST_RESOURCES);
    Platform::Ports ports = Platform::ports();
    ports.statusItem = &tray;
    Platform::install(ports);
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "ShowLaunchAtLogon=1\n");
    AppDelegate app;
    app.setLoading(false);
    app.statusMenu().constructMenu();
    // Titles in menu order, "-" for separators, "[x] " before a checked entry, "(off) " before a disabled
    // one.
    std::string shown;
    std::map<std::string, QAction*> actions;
    for (QAction* action : tray.menu()->actions()) {
        actions[action->text().toStdString()] = action;
        shown += std::string(action->isEnabled() ? "" : "(off) ") + (action->isChecked() ? "[x] " : "") +
                 (action->isSeparator() ? "-" : action->text().toStdString()) + "|";
    }
    EXPECT_EQ(shown, "(off) Varnoth Brelvane Agent|-|Update Signatures|[x] Launch Automatically at Login|-|"
                     "Configure|-|View Logs|-|About|-|Exit|");
    actions["About"]->trigger();
    actions["Exit"]->trigger();
    EXPECT_EQ(application.aboutPanels, 1);
    EXPECT_EQ(application.terminations, 1);
    EXPECT_FALSE(QSystemTrayIcon::isSystemTrayAvailable());
    EXPECT_TRUE(tray.trayIcon().isVisible());
    emit tray.trayIcon().activated(QSystemTrayIcon::Trigger);
    EXPECT_TRUE(tray.menu()->isVisible());
    tray.menu()->hide();
}

} // namespace
} // namespace varnoth::test
