#include "config/Config.h"
#include "dialogs/ApplyViewController.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/Window.h"
#include "server/Framing.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/support/Golden.h"
#include "tests/support/RunTest.h"

#include <regex>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

class FakeWindow final : public Window {
public:
    void center() override { ++centred; }
    void setRestorable(bool) override {}
    void show() override { ++shown; }
    void close() override {}
    int centred = 0, shown = 0;
};

// Whole update runs against the demo signature server and the Outlook stand-in, from an empty store. Each
// test keeps what the runs logged and left behind as one transcript, compared with tests/golden/update/.
class UpdateRunTest : public RunTest {
protected:
    // The demo server on a data set of tests/golden/update/data/ (none: the one already running), and the
    // base's configuration naming anna; a later line of the same key wins, an empty one means none.
    void serve(const char* dataSet, const std::string& address, const std::string& more = "") {
        if (dataSet) {
            server.emplace(Lines{}, std::string(VARNOTH_GOLDEN_DIR) + "/update/data/" + dataSet);
        }
        RunTest::configure(port = server->port(), "UserEmailAddress=" + address + "\n" + more);
    }
    // The log since the last look, then what the user saw and what Outlook and the defaults hold; with a
    // count of them, also the server's deployment logs, whole, with their times made stable.
    void look(const std::string& title, std::size_t logs = 0) {
        out << "== " << title << "\n"
            << joinLines(logLines()) << "-- window shown " << applyWindow.shown << ", centred "
            << applyWindow.centred << "\n-- icons\n"
            << joinLines(statusItem.images);
        for (const auto& alert : alerts.shown) {
            out << "-- alert " << alert.title << ": " << alert.message << "\n";
        }
        for (const auto& [name, html] : storedSignatures()) {
            out << "-- stored " << name << ": " << html << "\n";
        }
        out << "-- additional\n" << joinLines(additionalSignatures());
        clearLog();
        alerts.shown.clear();
        statusItem.images.clear();
        static const std::regex time(R"(\d{4}-\d\d-\d\d.\d\d:\d\d:\d\d)");
        for (const auto& file : logs ? ServerProcess::waitForFiles(server->logFolder(), logs) : Lines{}) {
            const std::string request = framing::unframe(readWholeFile(server->logFolder() / file));
            out << "== deployment log\n" << std::regex_replace(request, time, "<time>") << "\n";
        }
    }
    void expectTranscript(const std::string& name) {
        const auto& bundle = Platform::bundle();
        expectGolden("update/" + name, out.str(),
                     {{root().string(), "<root>"},
                      {":" + std::to_string(port), ":<port>"},
                      {">" + bundle.shortVersion + "." + bundle.version + "<", "><version><"}});
    }

    std::optional<ServerProcess> server;
    FakeWindow applyWindow;
    std::ostringstream out;
    int port = 0;
};

TEST_F(UpdateRunTest, UnchangedDefaultsRecreateAdditionalSignaturesAndOnlyTheMenuRunOpensTheDialog) {
    serve("standard", "keep@example.com");
    FakeApplyView view;
    ApplyViewController controller(&view);
    AppDelegate app({&applyWindow, nullptr, &controller});
    run(app, false);
    look("first timer run");
    run(app, false);
    look("second timer run");
    run(app, true);
    run(app, true);
    look("two menu runs", 4);
    ASSERT_TRUE(controller.signature);
    EXPECT_EQ(controller.signature->defaultSignatureAction, SignatureAction::dontchange);
    expectTranscript("unchanged-defaults");
}

TEST_F(UpdateRunTest, ChangedDefaultOpensTheDialogOnceAndADefaultInOutlooksOwnFormIsLeftAlone) {
    serve("standard", "change@example.com");
    Platform::processLauncher().run({VARNOTH_TEST_STANDIN, {"set-form", "html"}, {}, 20s, {}});
    AppDelegate app({&applyWindow, nullptr, nullptr});
    run(app, false);
    look("first run");
    run(app, false);
    look("second run");
    expectTranscript("changed-default-html-form");
}

TEST_F(UpdateRunTest, SignatureDroppedByTheServerIsDeletedAndForgotten) {
    serve("standard", "keep@example.com");
    {
        AppDelegate app;
        run(app, false);
        look("first run");
    }
    serve("later", "keep@example.com");
    AppDelegate app;
    run(app, false);
    look("run with one signature dropped");
    expectTranscript("signature-dropped");
}

// Without a fixed address Outlook's default account is asked; without one the run ends (silently from
// the timer when so configured, never from the menu).
TEST_F(UpdateRunTest, AddressIsTheFixedOneOrOutlooksDefaultAccountAndWithoutEitherTheRunFails) {
    serve("standard", "", "SuppressErrorMessages=1\n");
    AppDelegate app;
    run(app, false);
    look("timer run without an account", 1);
    run(app, true);
    look("menu run without an account");
    Platform::processLauncher().run({VARNOTH_TEST_STANDIN, {"set-account", ""}, {}, 20s, {}});
    OutlookHandler::defaultAccount.reset(); // asked once per process
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", "keep@example.com");
    run(app, false);
    look("timer run with Outlook's account");
    expectTranscript("address-from-outlook");
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
    EXPECT_TRUE(logged("Failed to connect to host: "));
}

TEST_F(UpdateRunTest, RunAskedForDuringARunIsRefusedAndKeptOutOfItsLog) {
    serve("standard", "keep@example.com");
    AppDelegate app;
    app.updateSignatures(false);
    queue.runUntilIdle(); // the query is sent; the answer is read a second later
    app.updateSignatures(true);
    queue.advance(1s);
    queue.runUntilIdle();
    look("menu run during a run");
    // The timer firing inside a modal alert's nested event loop is refused too.
    alerts.whileShown = [&app] { app.autoUpdateSignatures(); };
    serve(nullptr, "nobody@example.com");
    run(app, false);
    look("timer run during an alert", 1); // the second run ends before its log is sent
    expectTranscript("run-during-a-run");
}

} // namespace
} // namespace varnoth::test
