#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/ServerProcess.h"

#include "config/Config.h"
#include "platform/Platform.h"

#include <ctime>
#include <gmock/gmock.h>
#include <thread>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using Switches = std::vector<std::string>;
using LineMatchers = std::vector<testing::Matcher<std::string>>;
using namespace testing;

// Wall time that a test may fix, with real monotonic time for the read and connect bounds (socket
// reads take real time, which the virtual main queue does not see).
class TestClock final : public Clock {
public:
    std::chrono::system_clock::time_point now() const override {
        return wall ? *wall : std::chrono::system_clock::now();
    }
    std::chrono::steady_clock::time_point steadyNow() const override {
        return std::chrono::steady_clock::now();
    }
    std::optional<std::chrono::system_clock::time_point> wall;
};

const std::string anna = "anna.berg@example.com";
const std::string timedOut = "Error: reading server response timed out";
const std::string connected = "Successfully connected to host: 127.0.0.1";
const std::string sent = "Successfully sent query to: 127.0.0.1";
const std::string received = "Successfully received response from: 127.0.0.1";

class NetworkServiceTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        Platform::Ports ports = Platform::ports();
        ports.clock = &clock;
        Platform::install(ports);
    }

    void useServer(int port, const std::string& host = "127.0.0.1") {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  "SignatureServerAddress=" + host + "\nSignatureServerPort=" + std::to_string(port) + "\n");
        Config::setShared(nullptr);
        Config::shared();
        clearLog();
    }

    // The demo server with the given fault switches, or answering every query with a fixed text.
    std::unique_ptr<ServerProcess> startServer(Switches switches = {},
                                               const std::optional<std::string>& answer = {}) {
        if (answer) {
            writeFile(root() / "answer.txt", *answer);
            switches.insert(switches.end(), {"--answer-file", (root() / "answer.txt").string()});
        }
        auto server = std::make_unique<ServerProcess>(switches);
        useServer(server->port());
        return server;
    }

    void getSignatures(const std::string& email) {
        clearLog();
        completions = 0;
        result.reset();
        service.getSignatures(email, [this](std::optional<SignatureDescriptor> outcome) {
            ++completions;
            result = std::move(outcome);
        });
    }

    // Runs one whole exchange: the query step, then the receive step one second later.
    void exchange(const std::string& email = anna) {
        getSignatures(email);
        queue.runUntilIdle();
        queue.advance(1s);
    }

    TestClock clock;
    NetworkService service;
    int completions = 0;
    std::optional<SignatureDescriptor> result;
};

TEST_F(NetworkServiceTest, QueryGoesOutAsExactBytesAndItsAnswerIsReadOneSecondLater) {
    auto server = startServer();
    getSignatures(anna);
    EXPECT_TRUE(logLines().empty()); // nothing happens before the main queue runs
    queue.runUntilIdle();
    EXPECT_EQ(logLines(), (Lines{connected, sent}));
    queue.advance(999ms);
    EXPECT_EQ(completions, 0);
    queue.advance(1ms);
    ASSERT_EQ(completions, 1);

    const auto requests = ServerProcess::waitForFiles(server->recordFolder(), 1);
    ASSERT_EQ(requests.size(), 1u);
    const std::string bytes = readWholeFile(requests[0]);
    EXPECT_EQ(
        bytes,
        utf16::encode("##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?><Request "
                      "Type=\"GetSignatures\" Version=\"1.1.0\" Source=\"DeploymentAgent\"><EmailAddress>" +
                      anna + "</EmailAddress></Request>##!! DATA BLOCK END !!##"));

    // The demo set's group deployment, with text that needs surrogate pairs on the wire.
    ASSERT_TRUE(result);
    EXPECT_NE(result->defaultSignature->find("Viele Grüße – 東京 – 😀"), std::string::npos);
    EXPECT_NE(result->additionalSignatures.at("Tokyo office – 東京").find("東京都千代田区"),
              std::string::npos);
    EXPECT_EQ(service.deployIdentifier, "group:Sales/" + anna);
    EXPECT_THAT(logLines(), AllOf(Contains(received), Contains("Parsed signature successfully for " + anna)));

    // An unknown mailbox gets an answer without settings, which is a successful parse.
    exchange("nobody@example.com");
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->noSetting);
    EXPECT_THAT(logLines(), ElementsAre(connected, sent, received,
                                        "Warning: There are no signatures defined for the user.",
                                        "Parsed signature successfully for nobody@example.com"));
}

TEST_F(NetworkServiceTest, AnswerInManyChunksCutAtOddOffsetsOrArrivingLateIsReadWhole) {
    for (const Switches& switches :
         {Switches{"--chunks", "40", "--chunk-pause", "5"}, Switches{"--delay", "300"}}) {
        SCOPED_TRACE(switches[0]);
        auto server = startServer(switches);
        exchange();
        ASSERT_TRUE(result);
        EXPECT_EQ(result->additionalSignatures.size(), 2u);
        EXPECT_NE(result->defaultSignature->find("😀"), std::string::npos);
    }
}

// --- failed exchanges: each ends with its line and a completion without a descriptor

TEST_F(NetworkServiceTest, ConnectErrorsEndTheExchangeAndDropTheDeploymentLog) {
    useServer(LoopbackListener::closedPort());
    exchange();
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(queue.pendingCount(), 0u);
    service.submitDeploymentLog(true, "x");
    queue.runUntilIdle();
    const std::string refused = "Failed to connect to host: 127.0.0.1 error: Connection refused";
    EXPECT_EQ(logLines(), (Lines{refused, "Submitting deployment log", refused}));

    useServer(5757, "host.invalid");
    exchange();
    EXPECT_EQ(completions, 1);
    ASSERT_EQ(logLines().size(), 1u);
    EXPECT_EQ(logLines()[0].rfind("Failed to connect to host: host.invalid error: ", 0), 0u) << logLines()[0];
}

TEST_F(NetworkServiceTest, ConnectThatGetsNoAnswerTimesOut) {
    // A listener whose accept queue is full drops further connection requests unanswered.
    LoopbackListener listener(0);
    std::vector<std::unique_ptr<TCPClient>> fillers;
    for (int i = 0; i < 3; ++i) {
        fillers.push_back(std::make_unique<TCPClient>("127.0.0.1", listener.port()));
        (void)fillers.back()->connect(200ms);
    }
    useServer(listener.port());
    service.connectTimeout = 300ms;
    const auto started = std::chrono::steady_clock::now();
    exchange();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(logLines(), Lines{"Failed to connect to host: 127.0.0.1 error: Connection timed out"});
}

struct FailedExchange {
    const char* title;
    LineMatchers lines;
    Switches switches = {};                 // of the demo server
    std::optional<std::string> answer = {}; // instead of the demo answer
    std::string email = anna;
    std::size_t cap = NetworkService::defaultMaxResponseBytes;
};

TEST_F(NetworkServiceTest, EachFailedSendReadOrParseEndsTheExchangeWithItsLines) {
    const std::string unsupported = "Error: Unsupported response from server: ";
    const std::string broken = "<Response><Identifier>x</Identifier><DeploymentData><DefaultSignature>1"
                               "</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature>"
                               "</DeploymentData><Broken></Response>";
    const std::vector<FailedExchange> cases{
        {"peer resets while the query is sent",
         LineMatchers{connected, AnyOf("Query server: 127.0.0.1 error: Connection reset by peer",
                                       "Query server: 127.0.0.1 error: Broken pipe")},
         Switches{"--close-after-accept"}, std::nullopt, std::string(8 * 1024 * 1024, 'a')},
        {"peer never reads the query",
         LineMatchers{connected, "Query server: 127.0.0.1 error: Connection timed out"},
         Switches{"--never-answer"}, std::nullopt, std::string(32 * 1024 * 1024, 'a')},
        // The second half of the marker only comes after the (shortened) read bound has passed.
        {"end marker split across chunks", LineMatchers{connected, sent, timedOut},
         Switches{"--split-end-marker", "--chunk-pause", "3000"}},
        {"no end marker", LineMatchers{connected, sent, timedOut}, Switches{"--no-end-marker"}},
        {"not UTF-16", LineMatchers{connected, sent, "Error: No response from server"},
         Switches{"--invalid-utf16"}},
        {"only the end marker", LineMatchers{connected, sent, unsupported + "##!! DATA BLOCK END !!##"},
         Switches(), "##!! DATA BLOCK END !!##"},
        {"no start marker",
         LineMatchers{connected, sent, unsupported + "<Response/>##!! DATA BLOCK END !!##"}, Switches(),
         "<Response/>##!! DATA BLOCK END !!##"},
        {"larger than the cap",
         LineMatchers{connected, sent, "Error: response from server exceeds 1000 bytes, reading stopped"},
         Switches(), std::nullopt, anna, 1000},
        {"document the parser rejects",
         LineMatchers{
             connected, sent, received, "Warning: no <DeploymentInformation> found in response",
             "Warning: no <DeploymentDataSource> or <DeploymentDataSourceName> found in response",
             "Remove other signatures set to false in global deployment options",
             AllOf(StartsWith("Error: failed to parse XML error: "), EndsWith(" for response: " + broken)),
             "Error: Parsing signature failed for " + anna, broken},
         Switches(), "##!! DATA BLOCK START !!##" + broken + "##!! DATA BLOCK END !!##"},
    };
    service.readTimeout = 500ms;
    for (const FailedExchange& test : cases) {
        SCOPED_TRACE(test.title);
        auto server = startServer(test.switches, test.answer);
        service.maxResponseBytes = test.cap;
        getSignatures(test.email);
        service.tcpClient->sendTimeout = 300ms;
        queue.runUntilIdle();
        const auto started = std::chrono::steady_clock::now();
        queue.advance(1s); // the receive step, which must keep to its bound
        EXPECT_LT(std::chrono::steady_clock::now() - started, 2500ms);
        EXPECT_EQ(completions, 1);
        EXPECT_EQ(result, std::nullopt);
        EXPECT_THAT(logLines(), ElementsAreArray(test.lines));
    }
}

TEST_F(NetworkServiceTest, SilentOrClosedPeerEndsWithTheTimeOutWhileTheProcessorIdles) {
    service.readTimeout = 500ms;
    for (const char* fault : {"--never-answer", "--close-after-accept"}) {
        SCOPED_TRACE(fault);
        ServerProcess server({fault});
        service.tcpClient = std::make_unique<TCPClient>("127.0.0.1", server.port());
        ASSERT_EQ(service.tcpClient->connect(5), std::nullopt);
        std::this_thread::sleep_for(100ms); // a closing server has closed by now
        clearLog();
        const auto started = std::chrono::steady_clock::now();
        const std::clock_t processor = std::clock();
        EXPECT_EQ(service.readResponse(), std::nullopt);
        const auto took = std::chrono::steady_clock::now() - started;
        EXPECT_GE(took, 500ms);
        EXPECT_LT(took, 1500ms);
        EXPECT_LT(static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC, 0.2);
        EXPECT_EQ(logLines(), Lines{timedOut});
    }
}

TEST_F(NetworkServiceTest, StepsOfADroppedServiceDoNothing) {
    auto server = startServer();
    auto dropped = std::make_unique<NetworkService>();
    dropped->getSignatures(anna, [this](std::optional<SignatureDescriptor>) { ++completions; });
    dropped.reset();
    queue.runUntilIdle();
    queue.advance(2s);
    EXPECT_EQ(completions, 0);
    EXPECT_TRUE(logLines().empty());
}

// --- the deployment log

TEST_F(NetworkServiceTest, DeploymentLogGoesToTheSameServerByteForByte) {
    auto server = startServer();
    exchange();
    ASSERT_TRUE(result);
    clearLog();
    setEnvironment("TZ", "XXX-2");
    tzset();
    // 2026-07-14 21:30:00.999 UTC: both times show the same whole second.
    clock.wall = std::chrono::system_clock::from_time_t(1784064600) + 999ms;
    service.submitDeploymentLog(true, "a < b & c > d\n&amp; \"q\" 'a'\n");
    EXPECT_EQ(logLines(), Lines{"Submitting deployment log"});
    queue.runUntilIdle();
    EXPECT_EQ(logLines(), (Lines{"Submitting deployment log", connected, sent}));
    const std::string expected =
        "##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?>"
        "<Request Type=\"SubmitDeploymentLog\" Version=\"1.2.0\" Source=\"DeploymentAgent\">"
        "group:Sales/anna.berg@example.com<DeploymentInformation><DeploymentDataSource>Group"
        "</DeploymentDataSource><DeploymentDataSourceName>Sales</DeploymentDataSourceName>"
        "</DeploymentInformation><ExecutableFullFileName>Varnoth Brelvane Agent</ExecutableFullFileName>"
        "<ExecutableVersion>1.0.0.1</ExecutableVersion><Result>Success</Result>"
        "<DeploymentLog>a &lt; b &amp; c &gt; d\n&amp;amp; \"q\" 'a'\n</DeploymentLog>"
        "<DateTimeUtc>2026-07-14T21:30:00</DateTimeUtc><DateTimeLocal>2026-07-14T23:30:00</DateTimeLocal>"
        "</Request>##!! DATA BLOCK END !!##";
    auto logs = ServerProcess::waitForFiles(server->logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(readWholeFile(logs[0]), expected);
    const auto requests = ServerProcess::waitForFiles(server->recordFolder(), 2);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(readWholeFile(requests[1]), utf16::encode(expected));
    // The computer moved; nobody told the C library.
    setEnvironment("TZ", "YYY+5");
    EXPECT_EQ(deploymentTimes(*clock.wall).local, "2026-07-14T16:30:00");

    // A service that never queried sends to the configured server. Without identifier and deployment
    // information the body starts with the executable's name; missing versions leave the dot.
    Platform::Ports ports = Platform::ports();
    ports.bundle.shortVersion.clear();
    ports.bundle.version.clear();
    Platform::install(ports);
    NetworkService fresh;
    fresh.submitDeploymentLog(false, "");
    queue.runUntilIdle();
    logs = ServerProcess::waitForFiles(server->logFolder(), 2);
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_NE(
        readWholeFile(logs[1]).find("Source=\"DeploymentAgent\"><ExecutableFullFileName>Varnoth Brelvane "
                                    "Agent</ExecutableFullFileName><ExecutableVersion>.</ExecutableVersion>"
                                    "<Result>Failure</Result><DeploymentLog></DeploymentLog>"),
        std::string::npos);
}

} // namespace
} // namespace varnoth::test
