#include "base/Logger.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/Utf16.h"
#include "tests/faults/BlackHoleListener.h"
#include "tests/faults/FaultTest.h"
#include "tests/faults/PeerServer.h"
#include "tests/server/ServerProcess.h"
#include "tests/support/LoopbackListener.h"

#include <arpa/inet.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// The signature server misbehaves during one timer run; the agent ends the run with its failure, keeps
// what the good run before it installed, and the next run against a good server works.
class NetworkFaultTest : public FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        startFromGoodRun();
    }
    // What every failed fetch shows: the run's error line, the alert, and nothing changed.
    void expectFailedFetch() {
        EXPECT_EQ(count("Error Update signatures: Fetching signature failed"), 1) << logText();
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].title, "Update signatures failed");
        EXPECT_EQ(alerts.shown[0].message, "Fetching signature failed");
        EXPECT_EQ(count("Submitting deployment log"), 1);
        expectKept();
    }
    // The failed run's deployment log reached the faulty server whole, with its error line.
    void expectFailureReported(const std::filesystem::path& logs, const std::string& errorLine) {
        const auto received = wholeDeploymentLogs(logs, 1);
        ASSERT_EQ(received.size(), 1u);
        EXPECT_NE(received[0].find("  " + errorLine), std::string::npos) << received[0];
        EXPECT_NE(received[0].find("Error Update signatures: Fetching signature failed\n"),
                  std::string::npos);
    }
};

TEST_F(NetworkFaultTest, ServerRefusingConnections) {
    configure(LoopbackListener::closedPort());
    run(app);
    EXPECT_EQ(count("Failed to connect to host: 127.0.0.1 error: Connection refused"), 2); // query and log
    expectFailedFetch();
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, AcceptingAndNeverAnswering) {
    ServerProcess silent({"--never-answer"}, goodData().string());
    configure(silent.port());
    runFaulty(app);
    EXPECT_EQ(count("Error: reading server response timed out"), 1);
    EXPECT_EQ(count("Successfully sent query to: 127.0.0.1"),
              2); // the log goes into a connection nobody reads
    expectFailedFetch();
    EXPECT_TRUE(ServerProcess::waitForFiles(silent.logFolder(), 0).empty());
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, TricklingOneByteASecond) {
    ServerProcess trickle({"--chunks", "4000", "--chunk-pause", "1000"}, goodData().string());
    configure(trickle.port());
    runFaulty(app);
    EXPECT_EQ(count("Error: reading server response timed out"), 1);
    expectFailedFetch();
    expectFailureReported(trickle.logFolder(), "Error: reading server response timed out");
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, ClosingMidAnswer) {
    std::mutex lock;
    std::vector<std::string> requests;
    const std::string answer =
        framing::frameText(R"(<?xml version="1.0" encoding="utf-16"?><Response><Identifier>x)"
                           R"(</Identifier><DeploymentData><DefaultSignature>1</DefaultSignature>)");
    PeerServer peer([&](int socket, const std::string& request) {
        std::lock_guard guard(lock);
        requests.push_back(request);
        if (requests.size() == 1) {
            PeerServer::writeAll(socket, answer.substr(0, answer.size() / 2 + 1)); // cut inside a code unit
        }
    });
    configure(peer.port());
    runFaulty(app);
    EXPECT_EQ(count("Error: reading server response timed out"), 1);
    expectFailedFetch();
    for (int waited = 0; peer.connections() < 2 && waited < 100; ++waited) {
        std::this_thread::sleep_for(50ms);
    }
    std::lock_guard guard(lock);
    ASSERT_EQ(requests.size(), 2u);
    const auto log = utf16::decode(requests[1]);
    ASSERT_TRUE(log);
    EXPECT_NE(log->find("<Result>Failure</Result>"), std::string::npos);
    EXPECT_NE(log->find("Error: reading server response timed out\n"), std::string::npos);
    EXPECT_NE(log->find(std::string(framing::endMarker)), std::string::npos);
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, BytesThatAreNotUtf16) {
    ServerProcess broken({"--invalid-utf16"}, goodData().string());
    configure(broken.port());
    run(app);
    EXPECT_EQ(count("Error: No response from server"), 1);
    expectFailedFetch();
    expectFailureReported(broken.logFolder(), "Error: No response from server");
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, MalformedXml) {
    const auto answerFile = root() / "malformed.xml";
    writeFile(answerFile,
              std::string(framing::startMarker) +
                  "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>x</Identifier>"
                  "<DeploymentData><DefaultSignature>1</DefaultSignature><ReplyForwardSignature>2"
                  "</ReplyForwardSignature><Templates><Template><Id>1</Id><HTML>&lt;p\x1B" +
                  std::string(4 << 20, 'x') + std::string(framing::endMarker));
    ServerProcess malformed({"--answer-file", answerFile.string()}, goodData().string());
    configure(malformed.port());
    run(app);
    EXPECT_TRUE(logged("Error: failed to parse XML error: ")) << logText();
    EXPECT_EQ(count(std::string("Error: Parsing signature failed for ") + mailbox), 1);
    expectFailedFetch();
    expectFailureReported(malformed.logFolder(),
                          std::string("Error: Parsing signature failed for ") + mailbox);
    // The 4 MB answer is quoted twice, each time escaped and cut: neither the log nor the report grows
    // by more than a few dozen kilobytes.
    const auto lines = logLines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) {
                                return line.find("&lt;p\\x1Bxxx") != std::string::npos &&
                                       line.ends_with("xxx\u2026 (4194523 bytes in all)");
                            }),
              2);
    EXPECT_LT(logText().size(), 100'000u);
    EXPECT_LT(wholeDeploymentLogs(malformed.logFolder(), 1).at(0).size(), 100'000u);
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, MalformedXmlBeforeTheSignatureIds) {
    // The parser finds nothing it needs: the answer counts as one without a setting for the mailbox.
    const auto answerFile = root() / "malformed.xml";
    writeFile(answerFile, std::string(framing::startMarker) + "<Response><Identifier>x</Ident" +
                              std::string(framing::endMarker));
    ServerProcess malformed({"--answer-file", answerFile.string()}, goodData().string());
    configure(malformed.port());
    run(app);
    EXPECT_EQ(count("Error: DefaultSignature or ReplyForwardSignature missing"), 1) << logText();
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message,
              std::string("No Outlook signatures are assigned to your email address ") + mailbox + ".");
    expectKept();
    EXPECT_TRUE(ServerProcess::waitForFiles(malformed.logFolder(), 1).empty()); // nothing assigned: no report
    expectNextRunWorks(app, good->port(), good->logFolder());
}

// Faults whose bound the agent keeps in real time (the connect) or in bytes are played on the run's own
// service with short bounds; the agent's next timer run then shows it is unharmed.
TEST_F(NetworkFaultTest, AnswerOverTheSizeCap) {
    const auto answerFile = root() / "huge.xml";
    writeFile(answerFile, std::string(framing::startMarker) +
                              "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>" +
                              std::string(200 * 1024, 'x') + "</Identifier></Response>" +
                              std::string(framing::endMarker));
    ServerProcess huge({"--answer-file", answerFile.string(), "--chunks", "8"}, goodData().string());
    configure(huge.port());
    Logger::captureEnabled = true;
    NetworkService service;
    service.maxResponseBytes = 64 * 1024;
    int calls = 0;
    service.getSignatures(mailbox, [&](std::optional<SignatureDescriptor> descriptor) {
        ++calls;
        EXPECT_FALSE(descriptor);
    });
    queue.runUntilIdle();
    queue.advance(1s);
    queue.runUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(count("Error: response from server exceeds 65536 bytes, reading stopped"), 1);
    service.submitDeploymentLog(false, Logger::capturedLog);
    queue.runUntilIdle();
    Logger::captureEnabled = false;
    const auto received = wholeDeploymentLogs(huge.logFolder(), 1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_NE(received[0].find("reading stopped\n"), std::string::npos);
    expectKept();
    expectNextRunWorks(app, good->port(), good->logFolder());
}

TEST_F(NetworkFaultTest, BlackHoleAddress) {
    BlackHoleListener hole;
    if (!hole.full()) {
        GTEST_SKIP() << "the system answers connections beyond the backlog";
    }
    configure(hole.port());
    NetworkService service;
    service.connectTimeout = 300ms;
    int calls = 0;
    const auto start = std::chrono::steady_clock::now();
    service.getSignatures(mailbox, [&](std::optional<SignatureDescriptor> descriptor) {
        ++calls;
        EXPECT_FALSE(descriptor);
    });
    queue.runUntilIdle();
    service.submitDeploymentLog(false, "x\n");
    queue.runUntilIdle();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s); // each connect stops at its bound
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(count("Failed to connect to host: 127.0.0.1 error: Connection timed out"), 2) << logText();
    expectKept();
    expectNextRunWorks(app, good->port(), good->logFolder());
}

} // namespace
} // namespace varnoth::test
