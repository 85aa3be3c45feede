#include "tests/support/RunTest.h"

#include "config/Config.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "server/Framing.h"
#include "tests/support/Golden.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <pugixml.hpp>
#include <regex>
#include <set>

namespace varnoth::test {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

void RunTest::SetUp() {
    AgentTest::SetUp();
    OutlookHandler::defaultAccount.reset();
    setEnvironment("VARNOTH_OUTLOOK_STANDIN", VARNOTH_TEST_STANDIN);
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", std::nullopt);
    Platform::Ports ports = Platform::ports();
    ports.scriptHost = &scripts;
    ports.clock = &fastClock;
    ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
    Platform::install(ports);
}

void RunTest::TearDown() {
    good.reset();
    OutlookHandler::defaultAccount.reset();
    AgentTest::TearDown();
}

std::filesystem::path RunTest::goodData() {
    const auto folder = root() / "data";
    writeFile(folder / "templates/new.html", "<p>New \u2013 Anna</p>");
    writeFile(folder / "templates/reply.html", "<p>Reply</p>");
    writeFile(folder / "templates/legal.html", "<p>Legal &amp; privacy</p>");
    writeFile(folder / "templates/greet.html", "<p>Gr\u00FC\u00DFe \U0001F600</p>");
    writeFile(folder / "signatures.conf", std::string("[mailbox ") + mailbox +
                                              "]\ndefault = new.html\nreply = reply.html\n"
                                              "additional = Legal | legal.html\n"
                                              "additional = Gr\u00FC\u00DFe | greet.html\n");
    return folder;
}

void RunTest::configure(int port, const std::string& more) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt",
              "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(port) +
                  "\nUserEmailAddress=" + mailbox + "\n" + more);
    Config::setShared(nullptr);
}

void RunTest::run(AppDelegate& app, bool userInitiated) {
    userInitiated ? app.updateSignatures(true) : app.autoUpdateSignatures();
    queue.runUntilIdle();
    queue.advance(1s);
    queue.runUntilIdle();
    ASSERT_FALSE(app.updateInProgress());
}

// A store that cannot be read throws, which fails the test.
std::map<std::string, std::string> RunTest::storedSignatures() const {
    std::map<std::string, std::string> signatures;
    OutlookStandInStore store(storeFolder());
    for (const auto& name : store.signatureNames()) {
        signatures[name] = store.signature(name).value_or("<missing>");
    }
    return signatures;
}

void RunTest::startFromGoodRun() {
    good = std::make_unique<ServerProcess>(std::vector<std::string>{}, goodData().string());
    configure(good->port());
    run(app);
    keptSignatures = storedSignatures();
    keptList = additionalSignatures();
    ASSERT_EQ(keptSignatures.size(), 4u) << logText();
    ASSERT_EQ(keptSignatures["Legal"], "<p>Legal &amp; privacy</p>");
    ASSERT_EQ(keptSignatures["Gr\u00FC\u00DFe"], "<p>Gr\u00FC\u00DFe \U0001F600</p>");
    ASSERT_EQ(keptList.size(), 2u);
    alerts.shown.clear();
    clearLog();
}

void RunTest::expectKept() const {
    EXPECT_EQ(storedSignatures(), keptSignatures);
    const auto list = additionalSignatures();
    EXPECT_EQ(std::multiset(list.begin(), list.end()), std::multiset(keptList.begin(), keptList.end()));
}

void RunTest::expectNextRunWorks(AppDelegate& app, int goodPort, const std::filesystem::path& goodLogs) {
    const std::size_t before = ServerProcess::waitForFiles(goodLogs, 0).size();
    configure(goodPort);
    alerts.shown.clear();
    clearLog();
    run(app);
    EXPECT_EQ(count(std::string("Parsed signature successfully for ") + mailbox), 1) << logText();
    EXPECT_TRUE(alerts.shown.empty());
    const auto logs = wholeDeploymentLogs(goodLogs, before + 1);
    ASSERT_EQ(logs.size(), before + 1);
    EXPECT_NE(logs.back().log.find("Parsed signature successfully for "), std::string::npos);
    EXPECT_EQ(storedSignatures().size(), 4u);
    EXPECT_EQ(additionalSignatures().size(), 2u);
}

std::vector<RunTest::DeploymentLog> RunTest::wholeDeploymentLogs(const std::filesystem::path& folder,
                                                                 std::size_t atLeast) {
    static const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d  .*)");
    std::vector<DeploymentLog> logs;
    for (const auto& file : ServerProcess::waitForFiles(folder, atLeast)) {
        const std::string document = framing::unframe(readWholeFile(file));
        pugi::xml_document parsed;
        EXPECT_TRUE(parsed.load_string(document.c_str())) << document;
        const pugi::xml_node request = parsed.child("Request");
        EXPECT_STREQ(request.attribute("Type").value(), "SubmitDeploymentLog");
        const std::string result = request.child_value("Result");
        EXPECT_TRUE(result == "Success" || result == "Failure") << result;
        const std::string log = request.child_value("DeploymentLog");
        // Whole log lines: a timestamped first line and a line feed at the end.
        if (!log.empty()) {
            EXPECT_EQ(log.back(), '\n');
            EXPECT_TRUE(std::regex_match(log.substr(0, log.find('\n')), line)) << log;
        }
        logs.push_back({result, log});
    }
    return logs;
}

std::string RunTest::runTranscript(const ServerProcess* server, std::size_t reports) const {
    std::string text;
    for (const auto& alert : alerts.shown) {
        text += "alert: " + alert.message + "\n";
    }
    text += joinLines(logLines()) + "--- the server got\n";
    const auto got =
        server ? wholeDeploymentLogs(server->logFolder(), reports) : std::vector<DeploymentLog>{};
    for (const auto& report : got) {
        text += "result: " + report.result + "\n";
    }
    for (const auto& report : got) {
        text += std::regex_replace(report.log, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"), "TIME");
    }
    return text;
}

} // namespace varnoth::test
