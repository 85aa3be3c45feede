#include "agent/AppDelegate.h"
#include "base/Logger.h"
#include "config/Config.h"
#include "dialogs/ApplyViewController.h"
#include "dialogs/ConfigurationViewController.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/Window.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/dialogs/FakeConfigurationView.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

#include <cstdlib>
#include <fstream>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

class FakeWindow final : public Window {
public:
    void center() override { ++centred; }
    void setRestorable(bool) override {}
    void show() override { ++shown; }
    void close() override {}
    int centred = 0, shown = 0;
};

// Whole update runs against the demo signature server and the Outlook stand-in, from an empty store.
class UpdateRunTest : public RunTest {
protected:
    // A data set for the demo server: templates by file name and the mapping file.
    std::filesystem::path dataSet(const std::string& name, const std::string& mapping,
                                  const std::map<std::string, std::string>& templates) {
        const auto folder = root() / name;
        for (const auto& [file, html] : templates) {
            writeFile(folder / "templates" / file, html);
        }
        writeFile(folder / "signatures.conf", mapping);
        return folder;
    }
    std::filesystem::path standardData() {
        return dataSet(
            "data",
            "[global]\nremove-other-signatures = false\n"
            "[mailbox keep@example.com]\ndefault = keep\nreply = keep\n"
            "additional = Legal | legal.html\nadditional = Gr\u00FC\u00DFe \U0001F600 | greet.html\n"
            "[mailbox change@example.com]\ndefault = new.html\nreply = reply.html\n",
            {{"legal.html", "<p>Legal</p>"},
             {"greet.html", "<p>Gr\u00FC\u00DFe \u2013 \u6771\u4EAC \u2013 \U0001F600</p>"},
             {"new.html", "<p>New</p>"},
             {"reply.html", "<p>Reply</p>"}});
    }
    void configure(const ServerProcess& server, const std::string& more = "") {
        writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt",
                  "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(server.port()) +
                      "\n" + more);
        Config::setShared(nullptr);
    }
    std::string standIn(std::vector<std::string> arguments) {
        return Platform::processLauncher()
            .run({VARNOTH_TEST_STANDIN, std::move(arguments), {}, std::chrono::seconds(20), {}})
            .output;
    }

    FakeWindow applyWindow;
};

TEST_F(UpdateRunTest, TimerRunWithUnchangedDefaultsRecreatesAdditionalSignaturesWithoutDialog) {
    ServerProcess server({}, standardData().string());
    configure(server, "UserEmailAddress=keep@example.com\n");
    AppDelegate app({&applyWindow, nullptr, nullptr});
    run(app, false);
    clearLog();
    run(app, false);

    EXPECT_EQ(count("Using fixed email address: keep@example.com"), 1);
    EXPECT_EQ(count("Default new email signature: <Do Not Change>"), 1);
    EXPECT_EQ(count("Default reply forward email signature: <Do Not Change>"), 1);
    EXPECT_EQ(count("Creating signature Legal"), 1);
    EXPECT_EQ(count("Creating signature Gr\u00FC\u00DFe \U0001F600"), 1);
    EXPECT_EQ(count("Update signatures: Create signatures succeeded"), 0);
    EXPECT_EQ(applyWindow.shown, 0);
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_EQ(defaults.stringArray("additionalSignatures")->size(), 2u);
    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 2);
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_NE(readWholeFile(server.logFolder() / logs[1]).find("<Result>Success</Result>"),
              std::string::npos);
    EXPECT_NE(standIn({"list"}).find("Gr\u00FC\u00DFe \U0001F600"), std::string::npos);
}

TEST_F(UpdateRunTest, MenuRunOpensTheApplyDialogAndShowsProgress) {
    ServerProcess server({}, standardData().string());
    configure(server, "UserEmailAddress=keep@example.com\n");
    FakeApplyView view;
    ApplyViewController controller(&view);
    AppDelegate app({&applyWindow, nullptr, &controller});
    run(app, true);
    run(app, true);

    EXPECT_EQ(count("Update Signatures menu selected"), 2);
    EXPECT_EQ(count("Update signatures: Create signatures succeeded"), 2);
    EXPECT_EQ(count("Opening apply signatures dialog"), 2);
    EXPECT_EQ(applyWindow.shown, 2);
    EXPECT_EQ(applyWindow.centred, 1);
    ASSERT_TRUE(controller.signature);
    EXPECT_EQ(controller.signature->defaultSignatureAction, SignatureAction::dontchange);
    const auto lines = logLines();
    const auto progress = std::find(lines.begin(), lines.end(), "Loading in progress: true");
    ASSERT_NE(progress, lines.end());
    EXPECT_NE(std::find(progress, lines.end(), "Loading in progress: false"), lines.end());
    EXPECT_EQ(statusItem.images.back(), "menu_icon");
    EXPECT_NE(std::find(statusItem.images.begin(), statusItem.images.end(), "menu_icon_progress"),
              statusItem.images.end());
}

TEST_F(UpdateRunTest, ChangedDefaultOpensTheDialogOnceAndADefaultInOutlooksOwnFormIsLeftAlone) {
    ServerProcess server({}, standardData().string());
    configure(server, "UserEmailAddress=change@example.com\n");
    standIn({"set-form", "html"});
    AppDelegate app({&applyWindow, nullptr, nullptr});
    run(app, false);
    EXPECT_EQ(count("Creating default new email signature"), 1);
    EXPECT_EQ(count("Creating default reply forward signature"), 1);
    EXPECT_EQ(applyWindow.shown, 1);
    EXPECT_NE(standIn({"show", "Default New Email Signature"}).find("<body><p>New</p></body>"),
              std::string::npos);

    clearLog();
    run(app, false);
    EXPECT_EQ(count("Default new email signature needs update: false"), 1);
    EXPECT_EQ(count("Default reply forward email signature needs update: false"), 1);
    EXPECT_EQ(count("Creating default new email signature"), 0);
    EXPECT_EQ(count("Creating default reply forward signature"), 0);
    EXPECT_EQ(applyWindow.shown, 1);
}

TEST_F(UpdateRunTest, SignatureDroppedByTheServerIsDeletedAndForgotten) {
    {
        ServerProcess server({}, standardData().string());
        configure(server, "UserEmailAddress=keep@example.com\n");
        AppDelegate app;
        run(app, false);
    }
    ServerProcess server({}, dataSet("later",
                                     "[mailbox keep@example.com]\ndefault = keep\nreply = keep\n"
                                     "additional = Legal | legal.html\n",
                                     {{"legal.html", "<p>Legal v2</p>"}})
                                 .string());
    configure(server, "UserEmailAddress=keep@example.com\n");
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Email signature Gr\u00FC\u00DFe \U0001F600 deleted"), 1);
    EXPECT_EQ(*defaults.stringArray("additionalSignatures"), std::vector<std::string>{"Legal"});
    EXPECT_EQ(standIn({"list"}).find("\U0001F600"), std::string::npos);
}

TEST_F(UpdateRunTest, FailedCreationIsNotRecordedAndIsTriedAgain) {
    const std::string tooLong(300, 'x'); // the stand-in refuses names it cannot store
    ServerProcess server({}, dataSet("data",
                                     "[mailbox keep@example.com]\ndefault = keep\nreply = keep\n"
                                     "additional = Legal | legal.html\nadditional = " +
                                         tooLong + " | legal.html\n",
                                     {{"legal.html", "<p>Legal</p>"}})
                                 .string());
    configure(server, "UserEmailAddress=keep@example.com\n");
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Error: failed to create signature " + tooLong), 1);
    EXPECT_EQ(*defaults.stringArray("additionalSignatures"), std::vector<std::string>{"Legal"});
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, "Update signatures failed");
    EXPECT_EQ(alerts.shown[0].message, "Signature creation failed");
    run(app, false);
    EXPECT_EQ(count("Creating signature " + tooLong), 2);
    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 2);
    EXPECT_NE(readWholeFile(server.logFolder() / logs[0]).find("<Result>Failure</Result>"),
              std::string::npos);
}

TEST_F(UpdateRunTest, NoAddressEndsTheRunAndReportsFailureWithoutAlertWhenSuppressed) {
    ServerProcess server({}, standardData().string());
    configure(server, "SuppressErrorMessages=1\n");
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Update signatures: using default account: "), 1);
    EXPECT_EQ(count("Error: Update signatures: no email account available"), 1);
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_FALSE(app.updateInProgress());
    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    const std::string body = readWholeFile(server.logFolder() / logs[0]);
    EXPECT_NE(body.find("<Result>Failure</Result>"), std::string::npos);
    EXPECT_NE(body.find("no email account available"), std::string::npos);

    run(app, true); // the menu's run is never silenced
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message, "No email account available");
}

TEST_F(UpdateRunTest, DefaultAccountOfOutlookIsTheAddressWhenNoneIsFixed) {
    ServerProcess server({}, standardData().string());
    configure(server);
    standIn({"set-account", ""});
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", "keep@example.com");
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Update signatures: using default account: keep@example.com"), 1);
    EXPECT_EQ(count("Parsed signature successfully for keep@example.com"), 1);
}

TEST_F(UpdateRunTest, AutodetectWithoutAddressStillAsksTheServer) {
    writeFile(
        userConfigFolder() / "Varnoth Brelvane Agent.txt",
        "SignatureServerAutodetect=1\nUserEmailAddress=keep@example.com\nLDAPServer=ldap://127.0.0.1:1\n");
    Config::setShared(nullptr);
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Missing SignatureServerAddress configuration. Unable to update signatures."), 0);
    EXPECT_EQ(count("Error Update signatures: Fetching signature failed"), 1);
    const auto lines = logLines();
    EXPECT_NE(std::find_if(
                  lines.begin(), lines.end(),
                  [](const std::string& line) { return line.rfind("Failed to connect to host: ", 0) == 0; }),
              lines.end());
}

TEST_F(UpdateRunTest, RunAskedForDuringARunIsRefusedAndKeptOutOfItsLog) {
    ServerProcess server({}, standardData().string());
    configure(server, "UserEmailAddress=keep@example.com\n");
    AppDelegate app;
    app.updateSignatures(false);
    queue.runUntilIdle(); // the query is sent; the answer is read a second later
    app.updateSignatures(true);
    queue.advance(1s);
    queue.runUntilIdle();
    EXPECT_EQ(count("Update signatures already in progress"), 1);
    EXPECT_EQ(count("Update signatures started"), 1);

    // The timer firing inside a modal alert's nested event loop is refused too.
    alerts.whileShown = [&app] { app.autoUpdateSignatures(); };
    configure(server, "UserEmailAddress=nobody@example.com\n");
    run(app, false);
    EXPECT_EQ(count("Update signatures already in progress"), 2);
    EXPECT_EQ(count("Update signatures started"), 2);

    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 1);
    ASSERT_GE(logs.size(), 1u);
    const std::string first = readWholeFile(server.logFolder() / logs[0]);
    EXPECT_EQ(first.find("already in progress"), std::string::npos);
    EXPECT_EQ(first.find("Update Signatures menu selected"), std::string::npos);
    EXPECT_NE(first.find("Update signatures started"), std::string::npos);
}

TEST_F(UpdateRunTest, AddressChosenInTheConfigurationDialogIsUsedByTheNextRun) {
    ServerProcess server({}, standardData().string());
    configure(server);
    FakeConfigurationView view;
    ConfigurationViewController dialog(&view);
    dialog.viewWillAppear();
    view.checkbox = ConfigurationView::CheckState::on;
    dialog.useEmailChanged();
    view.email = "change@example.com";
    dialog.controlTextDidChange();
    ASSERT_TRUE(view.okEnabled);
    dialog.submit();

    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Using fixed email address: change@example.com"), 1);
    EXPECT_EQ(count("Parsed signature successfully for change@example.com"), 1);
}

} // namespace
} // namespace varnoth::test
