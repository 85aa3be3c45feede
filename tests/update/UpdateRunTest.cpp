#include "agent/AppDelegate.h"
#include "base/Logger.h"
#include "config/Config.h"
#include "dialogs/ApplyViewController.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/Window.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

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
    // A data set for the demo server: the mapping file and templates by file name.
    std::string dataSet(const std::string& name, const std::string& mapping,
                        const std::map<std::string, std::string>& templates) {
        for (const auto& [file, html] : templates) {
            writeFile(root() / name / "templates" / file, html);
        }
        writeFile(root() / name / "signatures.conf", mapping);
        return (root() / name).string();
    }
    std::string standardData() {
        return dataSet(
            "data",
            "[global]\nremove-other-signatures = false\n[mailbox keep@example.com]\ndefault = keep\n"
            "reply = keep\nadditional = Legal | legal.html\nadditional = " +
                greeting +
                " | greet.html\n[mailbox change@example.com]\ndefault = new.html\n"
                "reply = reply.html\n",
            {{"legal.html", "<p>Legal</p>"},
             {"greet.html", "<p>Gr\u00FC\u00DFe \u2013 \u6771\u4EAC \u2013 \U0001F600</p>"},
             {"new.html", "<p>New</p>"},
             {"reply.html", "<p>Reply</p>"}});
    }
    // The base's configuration names anna; a later line of the same key wins, an empty one means none.
    void configure(const ServerProcess& server, const std::string& address, const std::string& more = "") {
        RunTest::configure(server.port(), "UserEmailAddress=" + address + "\n" + more);
    }
    std::string standIn(std::vector<std::string> arguments) {
        return Platform::processLauncher()
            .run({VARNOTH_TEST_STANDIN, std::move(arguments), {}, std::chrono::seconds(20), {}})
            .output;
    }
    void expectCounts(const std::vector<std::pair<std::string, int>>& expected) {
        for (const auto& [line, times] : expected) {
            EXPECT_EQ(count(line), times) << line;
        }
    }
    std::string deploymentLog(const ServerProcess& server, std::size_t files, std::size_t index) {
        const auto logs = ServerProcess::waitForFiles(server.logFolder(), files);
        return index < logs.size() ? readWholeFile(server.logFolder() / logs[index]) : "";
    }

    const std::string greeting = "Gr\u00FC\u00DFe \U0001F600";
    FakeWindow applyWindow;
};

TEST_F(UpdateRunTest, UnchangedDefaultsRecreateAdditionalSignaturesAndOnlyTheMenuRunOpensTheDialog) {
    ServerProcess server({}, standardData());
    configure(server, "keep@example.com");
    FakeApplyView view;
    ApplyViewController controller(&view);
    AppDelegate app({&applyWindow, nullptr, &controller});
    run(app, false);
    clearLog();
    run(app, false);
    expectCounts({{"Using fixed email address: keep@example.com", 1},
                  {"Default new email signature: <Do Not Change>", 1},
                  {"Default reply forward email signature: <Do Not Change>", 1},
                  {"Creating signature " + greeting, 1},
                  {"Update signatures: Create signatures succeeded", 0}});
    EXPECT_EQ(applyWindow.shown, 0);
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_EQ(ServerProcess::waitForFiles(server.logFolder(), 2).size(), 2u);
    EXPECT_NE(deploymentLog(server, 2, 1).find("<Result>Success</Result>"), std::string::npos);
    EXPECT_NE(standIn({"list"}).find(greeting), std::string::npos);

    clearLog();
    run(app, true);
    run(app, true);
    expectCounts({{"Update Signatures menu selected", 2},
                  {"Update signatures: Create signatures succeeded", 2},
                  {"Opening apply signatures dialog", 2}});
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
    ServerProcess server({}, standardData());
    configure(server, "change@example.com");
    standIn({"set-form", "html"});
    AppDelegate app({&applyWindow, nullptr, nullptr});
    run(app, false);
    expectCounts(
        {{"Creating default new email signature", 1}, {"Creating default reply forward signature", 1}});
    EXPECT_EQ(applyWindow.shown, 1);
    EXPECT_NE(standIn({"show", "Default New Email Signature"}).find("<body><p>New</p></body>"),
              std::string::npos);
    clearLog();
    run(app, false);
    expectCounts(
        {{"Creating default new email signature", 0}, {"Creating default reply forward signature", 0}});
    EXPECT_EQ(applyWindow.shown, 1);
}

TEST_F(UpdateRunTest, SignatureDroppedByTheServerIsDeletedAndForgotten) {
    {
        ServerProcess server({}, standardData());
        configure(server, "keep@example.com");
        AppDelegate app;
        run(app, false);
    }
    ServerProcess server({}, dataSet("later",
                                     "[mailbox keep@example.com]\ndefault = keep\nreply = keep\n"
                                     "additional = Legal | legal.html\n",
                                     {{"legal.html", "<p>Legal v2</p>"}}));
    configure(server, "keep@example.com");
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Email signature " + greeting + " deleted"), 1);
    EXPECT_EQ(*defaults.stringArray("additionalSignatures"), std::vector<std::string>{"Legal"});
    EXPECT_EQ(standIn({"list"}).find("\U0001F600"), std::string::npos);
}

// Without a fixed address Outlook's default account is asked; without one the run ends (silently from
// the timer when so configured, never from the menu).
TEST_F(UpdateRunTest, AddressIsTheFixedOneOrOutlooksDefaultAccountAndWithoutEitherTheRunFails) {
    ServerProcess server({}, standardData());
    configure(server, "", "SuppressErrorMessages=1\n");
    AppDelegate app;
    run(app, false);
    expectCounts({{"Update signatures: using default account: ", 1},
                  {"Error: Update signatures: no email account available", 1}});
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_FALSE(app.updateInProgress());
    const std::string body = deploymentLog(server, 1, 0);
    EXPECT_NE(body.find("<Result>Failure</Result>"), std::string::npos);
    EXPECT_NE(body.find("no email account available"), std::string::npos);
    run(app, true);
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, "Update signatures failed");
    EXPECT_EQ(alerts.shown[0].message, "No email account available");

    standIn({"set-account", ""});
    OutlookHandler::defaultAccount.reset(); // asked once per process
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", "keep@example.com");
    clearLog();
    run(app, false);
    expectCounts({{"Update signatures: using default account: keep@example.com", 1},
                  {"Parsed signature successfully for keep@example.com", 1}});
}

TEST_F(UpdateRunTest, AutodetectWithoutAddressStillAsksTheServer) {
    writeFile(
        userConfigFolder() / "Varnoth Brelvane Agent.txt",
        "SignatureServerAutodetect=1\nUserEmailAddress=keep@example.com\nLDAPServer=ldap://127.0.0.1:1\n");
    Config::setShared(nullptr);
    AppDelegate app;
    run(app, false);
    expectCounts({{"Missing SignatureServerAddress configuration. Unable to update signatures.", 0},
                  {"Error Update signatures: Fetching signature failed", 1}});
    EXPECT_TRUE(logged("Failed to connect to host: "));
}

TEST_F(UpdateRunTest, RunAskedForDuringARunIsRefusedAndKeptOutOfItsLog) {
    ServerProcess server({}, standardData());
    configure(server, "keep@example.com");
    AppDelegate app;
    app.updateSignatures(false);
    queue.runUntilIdle(); // the query is sent; the answer is read a second later
    app.updateSignatures(true);
    queue.advance(1s);
    queue.runUntilIdle();
    expectCounts({{"Update signatures already in progress", 1}, {"Update signatures started", 1}});
    // The timer firing inside a modal alert's nested event loop is refused too.
    alerts.whileShown = [&app] { app.autoUpdateSignatures(); };
    configure(server, "nobody@example.com");
    run(app, false);
    expectCounts({{"Update signatures already in progress", 2}, {"Update signatures started", 2}});
    const std::string first = deploymentLog(server, 1, 0);
    EXPECT_EQ(first.find("already in progress"), std::string::npos);
    EXPECT_EQ(first.find("Update Signatures menu selected"), std::string::npos);
    EXPECT_NE(first.find("Update signatures started"), std::string::npos);
}

} // namespace
} // namespace varnoth::test
