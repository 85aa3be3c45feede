#pragma once

#include "agent/AppDelegate.h"
#include "platform/deterministic/FastClock.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace varnoth::test {

// Whole update runs with the demo signature server on loopback and the Outlook stand-in. A fault test
// starts from a good run's state (signatures in the store, the list of additional signatures, a
// deployment log on the server); after the fault, that state must be intact and the next timer run
// must work again.
class RunTest : public AgentTest {
protected:
    static constexpr const char* mailbox = "anna@example.com";
    // During a faulty run steady time runs this much faster, so the 20-second read bound ends in
    // under half a second; good runs keep real time, so a slow machine cannot make them time out.
    static constexpr int clockFactor = 50;

    void SetUp() override;
    void TearDown() override;

    // The data set of the good server: both default signatures and two additional ones for mailbox.
    std::filesystem::path goodData();
    // Points the configuration at a loopback port, with more key=value lines.
    void configure(int port, const std::string& more = "");

    // One run from the timer (or the menu) to its end, including the deployment log's send; a faulty
    // run's bounds pass quickly.
    void run(AppDelegate& app, bool userInitiated = false);
    void runFaulty(AppDelegate& app) { fastClock.setFactor(clockFactor), run(app), fastClock.setFactor(1); }

    // The store's signatures by name, as the stand-in keeps them.
    std::map<std::string, std::string> storedSignatures() const;
    std::filesystem::path storeFolder() const { return root() / "home/.local/share/Varnoth/Outlook"; }
    std::vector<std::string> additionalSignatures() const {
        return defaults.stringArray("additionalSignatures").value_or(std::vector<std::string>{});
    }

    // Starts the good server and makes the good run every fault starts from with the test's own agent;
    // remembers its outcome.
    void startFromGoodRun();
    // Store and list of additional signatures as the good run left them.
    void expectKept() const;
    // The timer's next run against the good server succeeds and installs the full set again.
    void expectNextRunWorks(AppDelegate& app, int goodPort, const std::filesystem::path& goodLogs);

    struct DeploymentLog {
        std::string result, log;
    };
    // Every deployment log of the folder is a whole document whose log lines are whole lines; returns them.
    static std::vector<DeploymentLog> wholeDeploymentLogs(const std::filesystem::path& folder,
                                                          std::size_t atLeast);
    // The run's alerts and log lines, then the results and deployment logs a server got (times as TIME), as
    // the fault goldens hold them.
    std::string runTranscript(const ServerProcess* server, std::size_t reports) const;
    int count(const std::string& line) const { return int(std::ranges::count(logLines(), line)); }
    bool logged(const std::string& prefix) const {
        return std::ranges::any_of(logLines(),
                                   [&](const std::string& text) { return text.starts_with(prefix); });
    }

    ProcessScriptHost scripts{std::chrono::seconds(5)};
    FastClock fastClock{queue};
    std::map<std::string, std::string> keptSignatures;
    std::vector<std::string> keptList;
    AppDelegate app;
    std::unique_ptr<ServerProcess> good;
};

} // namespace varnoth::test
