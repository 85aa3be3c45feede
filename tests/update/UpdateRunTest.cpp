#include "base/Logger.h"
#include "base/TextValues.h"
#include "config/Config.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/Window.h"
#include "server/Framing.h"
#include "tests/support/Golden.h"
#include "tests/support/RunTest.h"
#include "tests/support/WatchedScripts.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <regex>
#include <set>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using Selector = AppleScriptProtocol::Selector;

class FakeWindow final : public Window {
public:
    void center() override {}
    void setRestorable(bool) override {}
    void show() override { ++shown; }
    void close() override {}
    int shown = 0;
};

// "NEW" and "REPLY" for the agent's two default signatures.
std::string shortName(const std::string& name) {
    return name == OutlookHandler::newSignatureName     ? "NEW"
           : name == OutlookHandler::replySignatureName ? "REPLY"
                                                        : name;
}

// Update runs against the demo signature server and the Outlook stand-in keeping Outlook's own HTML form,
// for an Outlook account whose user has a signature of their own.
class UpdateRunTest : public RunTest {
protected:
    static constexpr const char* account = "user@example.com";

    void SetUp() override {
        RunTest::SetUp();
        setEnvironment("VARNOTH_OUTLOOK_FORM", "html");
        setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", account);
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = &watched;
        Platform::install(ports);
        agent.setUpdateFinishedHandler([&](bool ok) { finished.push_back(ok ? "succeeded" : "failed"); });
    }
    // The server's templates, and a mailbox section for each deployment, written "NEW REPLY [NAME=FILE...]
    // REMOVE-OTHER": the defaults' templates (or none, keep), the additional signatures, remove or preserve.
    void serve(const std::vector<std::pair<std::string, std::string>>& mailboxes) {
        const auto folder = root() / "data";
        for (const auto& [file, content] : templates) {
            writeFile(folder / "templates" / (file + ".html"), content);
        }
        std::string conf;
        for (const auto& [mailbox, deployment] : mailboxes) {
            Lines words = caseArguments(text::replaceAll(deployment, " ", " | "));
            const auto file = [](const std::string& word) {
                return word == "none" || word == "keep" ? word : word + ".html";
            };
            conf += "[mailbox " + mailbox + "]\ndefault = " + file(words[0]) + "\nreply = " + file(words[1]) +
                    "\nremove-other = " + words.back() + "\n";
            for (std::size_t i = 2; i + 1 < words.size(); ++i) {
                conf += "additional = " + text::replaceAll(words[i], "=", " | ") + ".html\n";
            }
        }
        writeFile(folder / "signatures.conf", conf);
        server.emplace(Lines{}, folder.string());
    }
    void runFor(const std::string& mailbox, const std::string& more = "") {
        configure(server->port(), "UserEmailAddress=" + mailbox + "\n" + more);
        run(agent);
    }
    OutlookStandInStore store() const { return OutlookStandInStore(storeFolder()); }

    // The signatures Outlook holds, each by the template it came from, and the account's two defaults.
    std::string outlook() const {
        std::map<std::string, std::string> origin;
        for (const auto& [file, content] : templates) {
            origin[OutlookStandInStore::htmlForm(content)] = file;
        }
        std::string held;
        for (const auto& [name, content] : storedSignatures()) {
            held += (held.empty() ? "" : " ") + shortName(name) + "=" +
                    (origin.count(content) ? origin[content] : "?" + content);
        }
        const auto defaults = store().defaults(account);
        return held + " | new " + shortName(defaults.newMessages.value_or("none")) + ", reply " +
               shortName(defaults.repliesAndForwards.value_or("none"));
    }
    // What the run wrote to Outlook: "create NAME", "delete NAME", the other changes by selector.
    std::string writes() const {
        std::multiset<std::string> written;
        for (const auto& [selector, name] : watched.sent) {
            const bool create = selector == Selector::createSignature,
                       remove = selector == Selector::deleteSignature;
            create || remove ? void(written.insert((create ? "create " : "delete ") + shortName(name)))
            : selector.starts_with("get") ? void()
                                          : void(written.insert(selector));
        }
        std::string listed;
        for (const auto& write : written) {
            listed += (listed.empty() ? "" : "; ") + write;
        }
        return listed;
    }

    const std::map<std::string, std::string> templates = {{"new", "<p>New \u2013 \"Anna\"</p>"},
                                                          {"reply", "<p>Reply</p>"},
                                                          {"legal", "<p>Legal</p>"},
                                                          {"legal2", "<p>Legal, revised</p>"},
                                                          {"greet", "<p>Gr\u00FC\u00DFe \U0001F600</p>"},
                                                          {"mine", "<p>Mine</p>"}};
    WatchedScripts watched{scripts};
    std::optional<ServerProcess> server;
    FakeWindow applyWindow;
    AppDelegate agent{AppDelegate::Windows{&applyWindow, nullptr, nullptr}};
    Lines finished; // how each run ended, as the agent's --once reports it
};

// The deployment the table starts from: both defaults, two further signatures, others removed.
constexpr const char* deployment = "new reply Legal=legal Grüße=greet remove";

struct Case {
    const char* name;
    bool firstRun;          // a run of the whole deployment first, whose defaults the user then applies
    const char* deployment; // the mailbox's at the run checked
    const char* failing;    // the signature whose creation fails in it
    std::string outlook;    // what Outlook holds afterwards
    std::string writes;     // what the run wrote to Outlook
    bool succeeded, dialog;
};

// Each case checks what a user sees: Outlook's signatures and defaults, the run's result (as --once and
// the deployment log's Result report it), the failure alert and the apply dialog.
TEST_F(UpdateRunTest, EachDeploymentLeavesOutlookWithWhatItHolds) {
    const std::string all = "NEW=new REPLY=reply Grüße=greet Legal=legal",
                      everything = "create Grüße; create Legal; create NEW; create REPLY";
    const std::vector<Case> cases = {
        {"a first run installs everything and removes the user's own", false, deployment, "",
         all + " | new none, reply none", everything + "; delete Mine", true, true},
        {"an unchanged run writes nothing and the user's defaults stay", true, deployment, "",
         all + " | new NEW, reply REPLY", "", true, false},
        {"preserve keeps the user's own", false, "new reply Legal=legal Grüße=greet preserve", "",
         all + " Mine=mine | new none, reply none", everything, true, true},
        {"none for new messages deletes that default only", true, "none reply Legal=legal Grüße=greet remove",
         "", "REPLY=reply Grüße=greet Legal=legal | new none, reply REPLY", "delete NEW", true, false},
        {"none for replies deletes that default only", true, "new none Legal=legal Grüße=greet remove", "",
         "NEW=new Grüße=greet Legal=legal | new NEW, reply none", "delete REPLY", true, false},
        {"do-not-change keeps both defaults though others are removed", true,
         "keep keep Legal=legal Grüße=greet remove", "", all + " | new NEW, reply REPLY", "", true, false},
        {"a failed default fails the run", false, deployment, "Default Reply Forward Email Signature",
         "NEW=new Grüße=greet Legal=legal | new none, reply none", everything + "; delete Mine", false,
         false},
        {"a failed additional signature fails the run", false, deployment, "Legal",
         "NEW=new REPLY=reply Grüße=greet | new none, reply none", everything + "; delete Mine", false,
         false},
        {"a changed template is written, nothing else", true, "new reply Legal=legal2 Grüße=greet remove", "",
         "NEW=new REPLY=reply Grüße=greet Legal=legal2 | new NEW, reply REPLY", "create Legal", true, false},
        {"a signature the server dropped is deleted", true, "new reply Legal=legal preserve", "",
         "NEW=new REPLY=reply Legal=legal | new NEW, reply REPLY", "delete Grüße", true, false},
    };
    std::vector<std::pair<std::string, std::string>> mailboxes = {{"first@example.com", deployment}};
    for (std::size_t i = 0; i < cases.size(); ++i) {
        mailboxes.emplace_back("case" + std::to_string(i) + "@example.com", cases[i].deployment);
    }
    serve(mailboxes);
    std::size_t reports = 0;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.name);
        std::filesystem::remove_all(storeFolder());
        defaults = MemoryUserDefaults();
        OutlookHandler::defaultAccount.reset();
        store().createSignature("Mine", templates.at("mine"));
        if (c.firstRun) {
            runFor("first@example.com");
            ASSERT_TRUE(
                OutlookHandler().applyDefaultSignatures(SignatureAction::change, SignatureAction::change));
            ++reports;
        }
        watched.sent.clear();
        watched.failing = c.failing;
        finished.clear();
        alerts.shown.clear();
        applyWindow.shown = 0;
        runFor("case" + std::to_string(i) + "@example.com");
        EXPECT_EQ(outlook(), c.outlook);
        EXPECT_EQ(writes(), c.writes);
        EXPECT_EQ(finished, Lines{c.succeeded ? "succeeded" : "failed"});
        const auto logs = wholeDeploymentLogs(server->logFolder(), ++reports);
        ASSERT_EQ(logs.size(), reports);
        EXPECT_EQ(logs.back().result, c.succeeded ? "Success" : "Failure");
        EXPECT_EQ(alerts.shown.size(), c.succeeded ? 0u : 1u);
        EXPECT_EQ(applyWindow.shown, c.dialog ? 1 : 0);
        // The list of additional signatures holds what Outlook holds as the server has it.
        const Lines listed = additionalSignatures();
        const std::string stored = outlook();
        for (const auto& name : listed) {
            EXPECT_NE(stored.find(" " + name + "="), std::string::npos) << name;
        }
    }
}

// The one complete log of a run: a first run from the menu, whose deployment removes the user's own
// signature and installs its four; with the deployment log the server got.
TEST_F(UpdateRunTest, ACompleteRunLogsEachStep) {
    serve({{"anna@example.com", deployment}});
    store().createSignature("Mine", templates.at("mine"));
    configure(server->port());
    agent.updateSignatures(true);
    queue.runUntilIdle(), queue.advance(1s), queue.runUntilIdle();
    const auto logs = wholeDeploymentLogs(server->logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    static const std::regex time(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)");
    expectGolden("update/complete-run",
                 joinLines(logLines()) + "--- deployment log, " + logs[0].result + "\n" +
                     std::regex_replace(logs[0].log, time, "TIME"),
                 {{root().string(), "<root>"}});
}

// A single run (--once) shows no window, so a run that would open the apply dialog neither opens nor
// announces it.
TEST_F(UpdateRunTest, ASingleRunNeitherOpensNorAnnouncesTheApplyDialog) {
    serve({{mailbox, deployment}});
    configure(server->port());
    agent.runOnce();
    queue.runUntilIdle(), queue.advance(1s), queue.runUntilIdle();
    EXPECT_EQ(finished, Lines{"succeeded"});
    EXPECT_EQ(applyWindow.shown + count("Opening apply signatures dialog"), 0);
}

// Without a fixed address or Outlook's default account the run fails: silently from the timer when so
// configured, never from the menu; with Outlook's account it works.
TEST_F(UpdateRunTest, WithoutAnAddressOnlyOutlooksAccountLetsTheRunGoOn) {
    serve({{account, "keep keep Legal=legal preserve"}});
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", "");
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt",
              "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(server->port()) +
                  "\nSuppressErrorMessages=1\n");
    Config::setShared(nullptr);
    run(agent);
    EXPECT_TRUE(alerts.shown.empty());
    run(agent, true);
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message, "No email account available");
    EXPECT_EQ(wholeDeploymentLogs(server->logFolder(), 2).back().result, "Failure");

    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", account);
    OutlookHandler::defaultAccount.reset();
    run(agent);
    EXPECT_EQ(finished, (Lines{"failed", "failed", "succeeded"}));
    EXPECT_EQ(outlook(), "Legal=legal | new none, reply none");
}

// A run asked for while one is under way (from the menu, or by the timer inside an alert's event loop) is
// refused, and its lines stay out of the deployment log of the run under way.
TEST_F(UpdateRunTest, ARunAskedForDuringARunIsRefused) {
    serve({{"anna@example.com", "keep keep Legal=legal preserve"}});
    configure(server->port());
    agent.updateSignatures(false), queue.runUntilIdle(), agent.updateSignatures(true);
    queue.advance(1s), queue.runUntilIdle();
    alerts.whileShown = [&] { agent.autoUpdateSignatures(); };
    configure(server->port(), "UserEmailAddress=nobody@example.com\n");
    run(agent);
    EXPECT_EQ(count("Update signatures already in progress"), 2);
    EXPECT_EQ(finished, (Lines{"succeeded", "failed"}));
    ASSERT_EQ(alerts.shown.size(), 1u);
    const auto logs = wholeDeploymentLogs(server->logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].log.find("already in progress"), std::string::npos);
}

TEST_F(UpdateRunTest, AutodetectWithoutAddressStillAsksTheServer) {
    writeFile(
        userConfigFolder() / "Varnoth Brelvane Agent.txt",
        "SignatureServerAutodetect=1\nUserEmailAddress=keep@example.com\nLDAPServer=ldap://127.0.0.1:1\n");
    Config::setShared(nullptr);
    run(agent, false);
    EXPECT_EQ(count("Missing SignatureServerAddress configuration. Unable to update signatures."), 0);
    EXPECT_EQ(count("Error Update signatures: Fetching signature failed"), 1);
    EXPECT_TRUE(logged("Failed to connect to host: "));
}

// Without a server nothing is sent, and the run's lines are not kept for the next run's deployment log.
TEST_F(UpdateRunTest, RunWithoutServerAddressStopsCapturingTheLog) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=keep@example.com\n");
    Config::setShared(nullptr);
    run(agent, false);
    EXPECT_EQ(count("Missing SignatureServerAddress configuration. Unable to update signatures."), 1);
    EXPECT_FALSE(Logger::captureEnabled);
    EXPECT_EQ(Logger::capturedLog, "");
}

} // namespace
} // namespace varnoth::test
