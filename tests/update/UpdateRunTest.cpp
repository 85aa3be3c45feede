#include "base/Logger.h"
#include "base/TextValues.h"
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

// Whole update runs against the demo signature server and the Outlook stand-in, from an empty store.
class UpdateRunTest : public RunTest, public testing::WithParamInterface<std::string> {
protected:
    // The log since the last look, then what the user saw and what Outlook and the defaults hold; with a
    // count of them, also the server's deployment logs, whole, with their times made stable.
    std::string look(std::size_t logs) {
        std::ostringstream out;
        out << joinLines(logLines()) << "-- window shown " << applyWindow.shown << ", centred "
            << applyWindow.centred << "\n-- icons\n"
            << joinLines(statusItem.images);
        for (const auto& alert : alerts.shown) {
            out << "-- alert " << alert.title << ": " << alert.message << "\n";
        }
        for (const auto& [name, html] : storedSignatures()) {
            out << "-- stored " << name << ": " << html << "\n";
        }
        out << "-- additional\n" << joinLines(additionalSignatures()) << "-- runs\n" << joinLines(finished);
        finished.clear();
        clearLog();
        alerts.shown.clear();
        statusItem.images.clear();
        static const std::regex time(R"(\d{4}-\d\d-\d\d.\d\d:\d\d:\d\d)");
        for (const auto& file : logs ? ServerProcess::waitForFiles(server->logFolder(), logs) : Lines{}) {
            const std::string request = framing::unframe(readWholeFile(server->logFolder() / file));
            out << "== deployment log\n" << std::regex_replace(request, time, "<time>") << "\n";
        }
        const std::string version =
            ">" + Platform::bundle().shortVersion + "." + Platform::bundle().version + "<";
        return text::replaceAll(text::replaceAll(out.str(), root().string(), "<root>"), version,
                                "><version><");
    }

    std::optional<ServerProcess> server;
    FakeWindow applyWindow;
    std::vector<std::string> finished; // how each run ended, as the agent's --once reports it
};

// Each scenario is a step file of tests/golden/update/; "look N" answers with what the runs since the last
// look logged and left behind, and N deployment logs. "serve DATA | ADDRESS | MORE" starts the demo server on
// a data set of tests/golden/update/data/ ("-": the one already running) and configures the address.
TEST_P(UpdateRunTest, StepsLeaveWhatTheirScenarioFileHolds) {
    FakeApplyView view;
    ApplyViewController controller(&view);
    std::optional<AppDelegate> agent;
    std::string result;
    const std::map<std::string, std::function<void(const std::vector<std::string>&)>> steps = {
        {"serve",
         [&](auto& a) {
             if (a[0] != "-") {
                 server.emplace(Lines{}, std::string(VARNOTH_GOLDEN_DIR) + "/update/data/" + a[0]);
             }
             configure(server->port(), "UserEmailAddress=" + a[1] + "\n" + (a.size() > 2 ? a[2] : ""));
         }},
        {"standin",
         [&](auto& a) {
             Platform::processLauncher().run({VARNOTH_TEST_STANDIN, a, {}, 20s, {}});
         }},
        // "agent" alone has no windows; "agent window" the apply window, "agent dialog" also its controller.
        {"agent",
         [&](auto& a) {
             agent.reset();
             agent.emplace(AppDelegate::Windows{a[0].empty() ? nullptr : &applyWindow, nullptr,
                                                a[0] == "dialog" ? &controller : nullptr});
             agent->setUpdateFinishedHandler(
                 [&](bool ok) { finished.push_back(ok ? "succeeded" : "failed"); });
         }},
        {"run", [&](auto& a) { run(*agent, a[0] == "menu"); }},
        {"look", [&](auto& a) { result = look(a[0].empty() ? 0 : std::stoul(a[0])); }},
        {"dialog-action",
         [&](auto&) {
             result = std::to_string(int(controller.signature.value().defaultSignatureAction)) + "\n";
         }},
        {"forget-account", [&](auto&) { OutlookHandler::defaultAccount.reset(); }},
        {"outlook-account", [&](auto& a) { setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", a[0]); }},
        // A menu run asked for while the first run waits for its answer, which is read a second later.
        {"menu-run-during-a-run",
         [&](auto&) {
             agent->updateSignatures(false), queue.runUntilIdle(), agent->updateSignatures(true);
             queue.advance(1s), queue.runUntilIdle();
         }},
        // The timer firing inside a modal alert's nested event loop.
        {"timer-during-alerts", [&](auto&) { alerts.whileShown = [&] { agent->autoUpdateSignatures(); }; }},
    };
    expectTranscript("update/" + GetParam(), [&](const std::string& step, const std::string& rest) {
        result.clear();
        steps.at(step)(caseArguments(rest));
        return text::replaceAll(result.empty() ? result : result.substr(0, result.size() - 1), "\n", "\n= ");
    });
}

// unchanged_defaults: additional signatures are recreated and only the menu run opens the dialog;
// changed_default: the dialog opens once and a default in Outlook's own form is left alone;
// signature_dropped: a signature the server drops is deleted and forgotten; address: the fixed one or
// Outlook's default account, and without either the run fails (silently from the timer when so configured,
// never from the menu); run_during_a_run: a run asked for during a run is refused and kept out of its log.
INSTANTIATE_TEST_SUITE_P(Scenarios, UpdateRunTest,
                         testing::Values("unchanged_defaults", "changed_default", "signature_dropped",
                                         "address", "run_during_a_run"),
                         [](const auto& info) { return info.param; });

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

// Without a server nothing is sent, and the run's lines are not kept for the next run's deployment log.
TEST_F(UpdateRunTest, RunWithoutServerAddressStopsCapturingTheLog) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=keep@example.com\n");
    Config::setShared(nullptr);
    AppDelegate app;
    run(app, false);
    EXPECT_EQ(count("Missing SignatureServerAddress configuration. Unable to update signatures."), 1);
    EXPECT_FALSE(Logger::captureEnabled);
    EXPECT_EQ(Logger::capturedLog, "");
}

} // namespace
} // namespace varnoth::test
