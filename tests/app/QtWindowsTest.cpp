// The Qt windows and the tray menu, driven as a user would on the offscreen platform.

#include "agent/AppDelegate.h"
#include "app/ApplyWindow.h"
#include "app/ConfigurationWindow.h"
#include "app/QtDesktop.h"
#include "app/QtMainQueue.h"
#include "app/QtStatusItem.h"
#include "base/Logger.h"
#include "base/TextValues.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "platform/Termination.h"
#include "platform/posix/SystemClock.h"
#include "platform/posix/ThreadWorker.h"
#include "tests/app/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/LoopbackListener.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <cstdlib>
#include <iostream>

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

    // Runs a user's step on the window's dialog: "show", "click CONTROL", "type CONTROL TEXT" or "key CONTROL
    // Return|Escape", where CONTROL "dialog" is the dialog itself. A check box toggles only on its indicator
    // or label, so it is clicked near its left edge. The answer is the dialog, shown or hidden, and each
    // named control: "hidden" when the dialog would not show it, "off" when disabled, "[x]" when checked, and
    // its text.
    template <typename Window>
    static std::string step(Window& window, const std::string& word, const std::string& rest) {
        QDialog& dialog = window.dialog();
        const auto space = rest.find(' ');
        QWidget* control = rest.starts_with("dialog")
                               ? &dialog
                               : dialog.findChild<QWidget*>(QString::fromStdString(rest.substr(0, space)));
        const std::string argument = space == std::string::npos ? "" : rest.substr(space + 1);
        if (word == "show") {
            window.show();
            EXPECT_TRUE(QTest::qWaitForWindowExposed(&dialog, 60000)); // waits only as long as it takes
        } else if (word == "click") {
            const QPoint indicator(6, control->height() / 2);
            QTest::mouseClick(control, Qt::LeftButton, {},
                              qobject_cast<QCheckBox*>(control) ? indicator : QPoint());
        } else if (word == "type") {
            QTest::keyClicks(control, QString::fromStdString(argument));
        } else if (word == "key") {
            QTest::keyClick(control, argument == "Return" ? Qt::Key_Return : Qt::Key_Escape);
        }
        std::string text = dialog.isVisible() ? "shown" : "hidden";
        for (QWidget* child : dialog.findChildren<QWidget*>(QRegularExpression("^[a-z]"))) {
            const auto* box = qobject_cast<QCheckBox*>(child);
            text += " | " + child->objectName().toStdString() +
                    (child->isVisibleTo(&dialog) ? "" : " hidden") + (child->isEnabled() ? "" : " off") +
                    (box && box->isChecked() ? " [x]" : "") + " \"" +
                    child->property("text").toString().toStdString() + "\"";
        }
        return text;
    }
};

// One window reused: closed by its button or Escape, it shows the next update's message and button, which
// follow the answer's two actions and the administrator's permission ("allow V", read anew for each
// update); the configure button its message quotes sends only the reply message and closes the window,
// with a fresh handler each click. The steps, the dialog after each, what Outlook was sent and the log's
// last line are in tests/golden/app/apply-window.txt.
TEST_F(QtWindowsTest, ApplyWindowFollowsEachUpdateAndItsConfigureButtonSendsOnlyTheReplyMessage) {
    ScriptedOutlook outlook;
    ApplyWindow window;
    EXPECT_EQ(window.controller().view(), &window);
    const QString configure = window.dialog().findChild<QPushButton*>("autoConfigureButton")->text();
    EXPECT_TRUE(QString::fromUtf8(ApplyViewController::automaticMessage).contains("“" + configure + "”"));
    const std::map<std::string, SignatureAction> actions = {{"undefined", SignatureAction::undefined},
                                                            {"change", SignatureAction::change},
                                                            {"dontchange", SignatureAction::dontchange},
                                                            {"clear", SignatureAction::clear}};
    expectTranscript("app/apply-window", [&](const std::string& word, const std::string& rest) {
        // What an update run does: hand over the answer ("none", or the two actions and "+" when a further
        // signature was installed), let the dialog choose its message, show the window.
        if (word == "update") {
            auto& signature = window.controller().signature;
            signature.reset();
            if (rest != "none") {
                const auto words = caseArguments(text::replaceAll(rest, " ", " | "));
                signature.emplace().defaultSignatureAction = actions.at(words[0]);
                signature->replySignatureAction = actions.at(words[1]);
                if (words.size() > 2) {
                    signature->additionalSignatures["Legal"] = "<p>Legal</p>";
                }
            }
            window.controller().updateMessage();
        } else if (word == "allow") {
            writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                      "AllowConfigureDefaultSignatures=" + rest + "\n");
            Config::setShared(nullptr);
        } else if (word == "forget-account") { // the handler's learned account and Outlook's
            OutlookHandler::defaultAccount.reset(), outlook.script.account = "";
        }
        const std::string dialog = step(window, word == "update" ? "show" : word, rest);
        std::string sent;
        for (const auto& message : outlook.script.messages) {
            sent += " " + message.selector + (message.arguments.empty() ? "" : message.arguments[0]);
        }
        outlook.script.messages.clear();
        return text::replaceAll(
            text::replaceAll(dialog, ApplyViewController::automaticMessage, "<automatic message>") +
                " | Outlook:" + sent + " | " + logLines().back(),
            root().string(), "<root>");
    });
}

// Centred, the window's middle is the screen's, up to the frame's width (known only once shown). The box,
// typing, Return only while OK is enabled, Cancel, Escape and OK, with the address in force and whether it
// may be changed, the "@" rule and what is stored, in tests/golden/app/configuration-window.txt.
TEST_F(QtWindowsTest, ConfigurationWindowCentresAndItsControlsKeysAndButtonsDriveTheDialog) {
    ConfigurationWindow window;
    window.center();
    window.setRestorable(true);
    step(window, "show", "");
    const QRect area = window.dialog().screen()->availableGeometry();
    EXPECT_LE(std::abs(window.dialog().frameGeometry().center().x() - area.center().x()), 8);
    EXPECT_LE(std::abs(window.dialog().frameGeometry().center().y() - area.center().y()), 8);
    EXPECT_TRUE(window.restorable());
    // Beside the user's steps: the address the administrator fixes in the text file ("fixed") or forces
    // ("managed"), the user's stored one ("stored"), opening the dialog anew ("open"), none of them
    // ("reset"), replacing the field's text ("paste") and the controller told to use the address ("use").
    const std::map<std::string, std::function<void(const std::string&)>> setups = {
        {"fixed",
         [&](auto& address) {
             writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                       "UserEmailAddress=" + address + "\n");
         }},
        {"managed",
         [&](auto& address) {
             managed.values["UserEmailAddress"] = {PreferenceValue::Type::text, address};
         }},
        {"stored", [&](auto& address) { defaults.setString("UserEmailAddress", address); }},
        {"open", [&](auto&) { Config::setShared(nullptr), window.show(); }},
        {"paste",
         [&](auto& text) {
             auto* field = window.dialog().findChild<QLineEdit*>("emailInput");
             QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier), QTest::keyClick(field, Qt::Key_Delete);
             for (const QChar c :
                  QString::fromStdString(text)) { // any character, as an input method gives it
                 QTest::sendKeyEvent(QTest::Click, field, Qt::Key_unknown, QString(c), Qt::NoModifier);
             }
         }},
        {"use", [&](auto&) { window.controller().setUseEmail(true); }},
        {"reset",
         [&](auto&) {
             managed.values.clear(), defaults = MemoryUserDefaults();
             std::filesystem::remove(systemConfigFolder() / "Varnoth Brelvane Agent.txt");
         }},
    };
    expectTranscript("app/configuration-window", [&](const std::string& word, const std::string& rest) {
        const auto setup = setups.find(word);
        setup != setups.end() ? setup->second(unescaped(rest)) : void();
        const std::string dialog = step(window, word, unescaped(rest));
        const auto stored = defaults.string("UserEmailAddress");
        return text::replaceAll(dialog + " | stored " + (stored ? "\"" + *stored + "\"" : "none") +
                                    " | in force \"" + Config::shared().UserEmailAddress() + "\"",
                                ConfigurationViewController::explanation, "<explanation>");
    });
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

// Every window a user meets looks finished, by rules rather than pixels: the whole title fits beside a title
// bar's buttons (in bold, with at least 100 px for them), each button keeps 8 px around its text, the size is
// fixed and there is no maximise button, and no text repeats the title.
TEST_F(QtWindowsTest, EveryWindowHasRoomForItsTitleAndItsButtonsAndOneSize) {
    ApplyWindow apply;
    ConfigurationWindow configuration;
    const auto alert = QtDesktop::makeAlert("Update signatures failed", "Fetching signature failed", "OK");
    const auto about = QtDesktop::makeAbout();
    EXPECT_TRUE(about->text().contains("Version 1.0.0.1<"));
    apply.controller().signature.emplace().replySignatureAction = SignatureAction::change;
    apply.controller().updateMessage(); // the long message, with the configure button
    QFont bold = QApplication::font();
    bold.setBold(true);
    for (QWidget* window :
         std::vector<QWidget*>{&apply.dialog(), &configuration.dialog(), alert.get(), about.get()}) {
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window, 60000));
        const QString title = window->windowTitle();
        SCOPED_TRACE(title.toStdString());
        EXPECT_GE(window->width(), QFontMetrics(bold).horizontalAdvance(title) + 100);
        EXPECT_EQ(window->minimumSize(), window->maximumSize());
        EXPECT_FALSE(window->windowFlags() & Qt::WindowMaximizeButtonHint);
        for (const QPushButton* button : window->findChildren<QPushButton*>()) {
            EXPECT_GE(button->width(), button->fontMetrics().horizontalAdvance(button->text()) + 16);
        }
        for (const QLabel* label : window->findChildren<QLabel*>()) {
            EXPECT_NE(label->text(), title);
        }
    }
}

#ifndef Q_OS_MACOS
// Whether an application took a file is xdg-open's exit status; without xdg-open none did.
TEST_F(QtWindowsTest, OpeningAFileTellsWhetherAnApplicationTookIt) {
    QtDesktop desktop(false);
    setEnvironment("PATH", (root() / "bin").string());
    for (const std::string status : {"0", "3", ""}) { // "": no xdg-open
        writeFile(root() / "bin/xdg-open", "#!/bin/sh\nexit " + status + "\n");
        std::filesystem::permissions(root() / "bin/xdg-open", status.empty()
                                                                  ? std::filesystem::perms::none
                                                                  : std::filesystem::perms::owner_all);
        std::optional<bool> opened;
        desktop.openFile(Logger::logFilePath(), [&](bool answer) { opened = answer; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return opened.has_value(); }, 60000));
        EXPECT_EQ(opened, status == "0") << status;
    }
}

// The tray icon is drawn white while Qt's palette is dark (a dark panel), black otherwise, following changes.
TEST_F(QtWindowsTest, TrayIconIsLightOnADarkPanel) {
    QtStatusItem tray(VARNOTH_TEST_RESOURCES);
    tray.setImage("menu_icon");
    const QPalette original = QGuiApplication::palette();
    for (const int panel : {0, 255, 0}) {
        QApplication::setPalette(QPalette(QColor(panel, panel, panel)));
        const QImage image = tray.trayIcon().icon().pixmap(22, 22).toImage();
        int opaque = 0, light = 0;
        for (int i = 0; i < image.width() * image.height(); ++i) {
            const QColor pixel = image.pixelColor(i % image.width(), i / image.width());
            opaque += pixel.alpha() == 255, light += pixel.alpha() == 255 && pixel.lightness() > 128;
        }
        EXPECT_EQ(light, panel == 0 ? opaque : 0);
        EXPECT_GT(opaque, 0);
    }
    QApplication::setPalette(original);
}
#endif

// A run held by a server that takes the request and never answers (the read would wait 20 s): a click on
// the icon opens the menu while the run is under way, "Update Signatures" chosen then is refused, and the
// run ends as soon as the agent is asked to exit. Prints the time from the click to the shown menu.
TEST_F(QtWindowsTest, MenuAnswersAndRefusesASecondRunWhileAServerHoldsTheRun) {
    const LoopbackListener silent;
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt",
              "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(silent.port()) +
                  "\nUserEmailAddress=anna@example.com\nSuppressErrorMessages=1\n");
    ScriptedOutlook outlook;
    QtStatusItem tray(VARNOTH_TEST_RESOURCES);
    QtMainQueue mainQueue;
    SystemClock clock;
    ThreadWorker worker(mainQueue);
    Platform::Ports ports = Platform::ports();
    ports.statusItem = &tray;
    ports.mainQueue = &mainQueue;
    ports.clock = &clock;
    ports.worker = &worker;
    Platform::install(ports);
    AppDelegate app;
    app.statusMenu().constructMenu();
    app.updateSignatures(false);
    const auto logged = [&](const std::string& line) { return logText().find(line) != std::string::npos; };
    ASSERT_TRUE(QTest::qWaitFor([&] { return logged("Successfully sent query"); }, 60000)) << logText();

    // The click reaches the tray icon through the event loop, as a user's does.
    const auto clicked = std::chrono::steady_clock::now();
    QMetaObject::invokeMethod(
        &tray.trayIcon(), [&] { emit tray.trayIcon().activated(QSystemTrayIcon::Trigger); },
        Qt::QueuedConnection);
    ASSERT_TRUE(QTest::qWaitFor([&] { return tray.menu()->isVisible(); }, 60000));
    const auto shown = std::chrono::steady_clock::now() - clicked;
    EXPECT_TRUE(app.updateInProgress());
    EXPECT_LT(shown, std::chrono::seconds(10)); // the held read alone would take 20 s
    std::cout << "Menu shown "
              << std::chrono::duration_cast<std::chrono::microseconds>(shown).count() / 1000.0
              << " ms after the click, during a held run\n";
    for (QAction* action : tray.menu()->actions()) {
        if (action->text() == "Update Signatures") {
            action->trigger();
        }
    }
    tray.menu()->hide();
    EXPECT_TRUE(logged("Update signatures already in progress"));

    Termination::request(); // as the agent's exit does
    EXPECT_TRUE(QTest::qWaitFor([&] { return !app.updateInProgress(); }, 60000)) << logText();
    Termination::clear();
    EXPECT_TRUE(logged("Error Update signatures: Fetching signature failed"));
    QCoreApplication::sendPostedEvents(); // the run's release, before the ports go
}

} // namespace
} // namespace varnoth::test
