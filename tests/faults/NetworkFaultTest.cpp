#include "server/Framing.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

#include <gmock/gmock.h>

namespace varnoth::test {
namespace {

// One timer run against a misbehaving signature server, after a good run. Each fault's own lines are
// tested on the service (NetworkServiceTest); here the whole run must end with its failure, report it when
// the server listens, keep what the good run installed, and leave the next run working.
struct NetworkFault {
    const char* title;
    std::vector<std::string> switches; // of the demo server, or "refused" for a closed port
    std::string answer;                // instead of the demo answer, framed; empty: the demo's own
    std::string errorLine;
    bool reported = true; // the failed run's deployment log reaches the faulty server
    std::string alert = "Fetching signature failed";
};

class NetworkFaultTest : public RunTest {};

TEST_F(NetworkFaultTest, EveryFaultEndsTheRunKeepsTheSignaturesAndTheNextRunWorks) {
    const std::string start(framing::startMarker), end(framing::endMarker);
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>x</Identifier>";
    const std::vector<NetworkFault> faults{
        {"refused", {"refused"}, "", "Failed to connect to host: 127.0.0.1 error: Connection refused", false},
        {"never answering", {"--never-answer"}, "", "Error: reading server response timed out", false},
        {"trickling",
         {"--chunks", "4000", "--chunk-pause", "1000"},
         "",
         "Error: reading server response timed out"},
        {"closing mid-answer", {"--no-end-marker"}, "", "Error: reading server response timed out"},
        {"not UTF-16", {"--invalid-utf16"}, "", "Error: No response from server"},
        {"malformed XML",
         {},
         start + head +
             "<DeploymentData><DefaultSignature>1</DefaultSignature>"
             "<ReplyForwardSignature>2</ReplyForwardSignature><Templates><Template><Id>1</"
             "Id><HTML>&lt;p\x1B" +
             std::string(256 << 10, 'x') + end,
         std::string("Error: Parsing signature failed for ") + mailbox},
        {"malformed before the signature ids",
         {},
         start + "<Response><Identifier>x</Ident" + end,
         "Error: DefaultSignature or ReplyForwardSignature missing",
         false,
         std::string("No Outlook signatures are assigned to your email address ") + mailbox + "."},
    };
    startFromGoodRun();
    for (const NetworkFault& fault : faults) {
        SCOPED_TRACE(fault.title);
        auto switches = fault.switches;
        if (!fault.answer.empty()) {
            writeFile(root() / "answer.xml", fault.answer);
            switches = {"--answer-file", (root() / "answer.xml").string()};
        }
        std::unique_ptr<ServerProcess> faulty;
        if (switches == std::vector<std::string>{"refused"}) {
            configure(LoopbackListener::closedPort());
        } else {
            faulty = std::make_unique<ServerProcess>(switches, goodData().string());
            configure(faulty->port());
        }
        runFaulty(app);
        EXPECT_GE(count(fault.errorLine), 1) << logText();
        // Nothing assigned means nothing to report.
        EXPECT_EQ(count("Submitting deployment log"), fault.alert == "Fetching signature failed" ? 1 : 0);
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].message, fault.alert);
        if (fault.reported) {
            const auto received = wholeDeploymentLogs(faulty->logFolder(), 1);
            ASSERT_EQ(received.size(), 1u);
            EXPECT_LT(received[0].size(), 100'000u);
            EXPECT_NE(received[0].find("  " + fault.errorLine + "\n"), std::string::npos) << received[0];
            EXPECT_NE(received[0].find("Error Update signatures: Fetching signature failed\n"),
                      std::string::npos);
        } else if (faulty) {
            EXPECT_TRUE(ServerProcess::waitForFiles(faulty->logFolder(), 0).empty());
        }
        // A quoted answer is escaped and cut: a 256 KiB answer adds a few dozen kilobytes, not megabytes.
        EXPECT_LT(logText().size(), 100'000u);
        if (fault.answer.size() > (256 << 10)) {
            EXPECT_THAT(logLines(), testing::Contains(
                                        testing::AllOf(testing::HasSubstr("&lt;p\\x1Bxxx"),
                                                       testing::EndsWith("xxx\u2026 (262363 bytes in all)")))
                                        .Times(2));
        }
        expectKept();
        expectNextRunWorks(app, good->port(), good->logFolder());
        alerts.shown.clear();
        clearLog();
    }
}

} // namespace
} // namespace varnoth::test
