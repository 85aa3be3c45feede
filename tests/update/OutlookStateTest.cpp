// Each state of Outlook that keeps the agent from its work is named once, before any signature
// operation: one cause line, one alert, a failed run whose deployment log carries the line. And the
// preview: what a run would change, with nothing written.

#include "outlook/OutlookState.h"
#include "platform/Platform.h"
#include "server/Framing.h"
#include "tests/support/RunTest.h"
#include "tests/support/WatchedScripts.h"
#include "tools/outlook-standin/OutlookStandInStore.h"
#include "update/DryRun.h"

#include <sstream>

namespace varnoth::test {
namespace {

using Blocker = OutlookState::Blocker;

// What a Mac's system answers about Outlook, as a test sets it.
struct FixedOutlookEnvironment final : OutlookEnvironment {
    std::optional<bool> installed() override { return isInstalled; }
    std::optional<bool> runningNewOutlook() override { return newOutlook; }
    std::optional<long> managedEnableNewOutlook() override { return managed; }
    Automation automation() override { return permission; }
    std::optional<bool> isInstalled, newOutlook;
    std::optional<long> managed;
    Automation permission = Automation::unknown;
};

class OutlookStateTest : public RunTest {
protected:
    void SetUp() override {
        RunTest::SetUp();
        setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", mailbox);
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = &sent;
        ports.outlook = &system;
        Platform::install(ports);
        app.setUpdateFinishedHandler([&](bool ok) { results.push_back(ok); });
    }
    int dryRun(std::string& printed, const std::filesystem::path& answer = {}) {
        std::ostringstream out;
        int status = -1;
        DryRun preview({mailbox, answer}, out);
        preview.start([&](int exit) { status = exit; });
        queue.runUntilIdle(), queue.advance(std::chrono::seconds(1)), queue.runUntilIdle();
        printed = out.str();
        return status;
    }

    WatchedScripts sent{scripts};
    FixedOutlookEnvironment system;
    std::vector<bool> results;
};

TEST_F(OutlookStateTest, EachBlockingStateGivesOneCauseOneAlertAFailedRunAndNoSignatureOperation) {
    using Automation = OutlookEnvironment::Automation;
    struct Case {
        const char* standInKey;
        const char* standInValue;
        std::function<void(FixedOutlookEnvironment&, ManualAccessibility&)> mac;
        Blocker expected;
        const char* causeHolds;
    };
    const auto none = [](FixedOutlookEnvironment&, ManualAccessibility&) {};
    const Case cases[] = {
        {"installed", "no", none, Blocker::notInstalled, "install Outlook for Mac"},
        {"mode", "new", none, Blocker::newMode, "turn off New Outlook"},
        {"mode", "new", [](auto& mac, auto&) { mac.managed = 3; }, Blocker::newMode,
         "EnableNewOutlook value 3"},
        {"automation", "denied", none, Blocker::automationRefused, "Privacy & Security > Automation"},
        {"automation", "denied", [](auto& mac, auto&) { mac.newOutlook = true; }, Blocker::newMode,
         "New Outlook"},
        {nullptr, nullptr, [](auto&, auto& access) { access.trusted = false; }, Blocker::accessibilityMissing,
         "Privacy & Security > Accessibility"},
        // What the system knows sends Outlook nothing at all.
        {nullptr, nullptr, [](auto& mac, auto&) { mac.isInstalled = false; }, Blocker::notInstalled,
         "install"},
        {nullptr, nullptr, [](auto& mac, auto&) { mac.permission = Automation::refused; },
         Blocker::automationRefused, "error -1743"},
    };
    startFromGoodRun();
    std::size_t reports = 1; // every run sends one deployment log, which the server writes when it can
    EXPECT_TRUE(statusItem.toolTip.starts_with("Signatures updated ")) << statusItem.toolTip;
    for (const auto& state : cases) {
        system = {};
        accessibility.trusted = true;
        OutlookStandInStore(storeFolder()).deleteSignatures(); // a fresh Outlook: every write would show
        keptSignatures.clear();
        std::filesystem::remove_all(storeFolder() / "settings");
        if (state.standInKey != nullptr) {
            OutlookStandInStore(storeFolder()).setState(state.standInKey, state.standInValue);
        }
        state.mac(system, accessibility);
        const std::string cause = OutlookState::cause(state.expected);
        SCOPED_TRACE(cause);
        EXPECT_NE(cause.find(state.causeHolds), std::string::npos);
        sent.sent.clear(), alerts.shown.clear(), results.clear(), clearLog();

        run(app);
        EXPECT_EQ(results, std::vector<bool>{false});
        std::vector<std::string> errors;
        std::ranges::copy_if(logLines(), std::back_inserter(errors),
                             [](auto& l) { return l.starts_with("Error"); });
        EXPECT_EQ(errors, std::vector<std::string>{"Error: " + cause}) << logText();
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].message, cause);
        for (const auto& [selector, name] : sent.sent) { // reading only, to learn the state
            EXPECT_TRUE(selector == "getVersion" || selector == "getDefaultAccount" ||
                        selector == "getSignatureNames")
                << selector;
        }
        if (state.standInKey == nullptr && state.expected != Blocker::accessibilityMissing) {
            EXPECT_TRUE(sent.sent.empty());
        }
        expectKept();
        const auto logs = wholeDeploymentLogs(good->logFolder(), ++reports);
        ASSERT_EQ(logs.size(), reports);
        EXPECT_EQ(logs.back().result, "Failure");
        EXPECT_NE(logs.back().log.find("  Error: " + cause + "\n"), std::string::npos);
        EXPECT_EQ(defaults.string("LastUpdateResult"), "Failure: " + cause);
        EXPECT_TRUE(statusItem.toolTip.starts_with("Last update failed ") &&
                    statusItem.toolTip.ends_with(cause));
    }
}

// The preview against the demo server: the changes of a first run, then none after a real run; Outlook's
// store, the user defaults and the server's deployment logs stay as they were.
TEST_F(OutlookStateTest, DryRunPrintsWhatARunWouldChangeAndWritesNothing) {
    good = std::make_unique<ServerProcess>(std::vector<std::string>{}, goodData().string());
    configure(good->port());
    OutlookStandInStore(storeFolder()).createSignature("Mine", "<p>mine</p>");
    const auto snapshot = [&] {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(storeFolder())) {
            if (entry.is_regular_file() && entry.path().filename() != ".lock") {
                files[entry.path().string()] = readWholeFile(entry.path());
            }
        }
        return files;
    };
    const auto store = snapshot();
    const auto values = defaults.values();
    std::string printed;
    EXPECT_EQ(dryRun(printed), DryRun::wouldChange);
    EXPECT_EQ(printed,
              std::string("Mailbox: ") + mailbox +
                  "\ncreate signature 'Default New Email Signature'\n"
                  "default for new messages: 'Default New Email Signature'\n"
                  "create signature 'Default Reply Forward Email Signature'\n"
                  "default for replies and forwards: 'Default Reply Forward Email Signature'\n"
                  "create signature 'Gr\u00FC\u00DFe'\ncreate signature 'Legal'\napply dialog: would open\n");
    EXPECT_EQ(snapshot(), store);
    EXPECT_EQ(defaults.values(), values);
    EXPECT_TRUE(ServerProcess::waitForFiles(good->logFolder(), 0).empty());

    run(app);
    EXPECT_EQ(dryRun(printed), DryRun::nothingToChange);
    EXPECT_EQ(printed, std::string("Mailbox: ") + mailbox + "\nno changes\n");
    // Offline, from a saved answer as a file holds it or as the wire carries it (UTF-16, framed).
    const auto saved = std::filesystem::path(VARNOTH_TEST_DATA_DIR) / "saved-answer.xml";
    writeFile(root() / "wire.bin", framing::frameText(readWholeFile(saved)));
    for (const auto& answer : {saved, root() / "wire.bin"}) {
        EXPECT_EQ(dryRun(printed, answer), DryRun::wouldChange);
        EXPECT_EQ(printed, "delete signature 'Gr\u00FC\u00DFe' (not in the deployment)\n"
                           "delete signature 'Mine' (not in the deployment)\n"
                           "update signature 'Default New Email Signature'\n"
                           "default for new messages: 'Default New Email Signature'\n"
                           "update signature 'Legal'\napply dialog: would open\n");
    }
    OutlookStandInStore(storeFolder()).setState("mode", "new");
    EXPECT_EQ(dryRun(printed), DryRun::failed);
    EXPECT_EQ(printed, "failed: " + OutlookState::cause(Blocker::newMode) + "\n");
    EXPECT_EQ(ServerProcess::waitForFiles(good->logFolder(), 1).size(), 1u); // the real run's only
}

} // namespace
} // namespace varnoth::test
