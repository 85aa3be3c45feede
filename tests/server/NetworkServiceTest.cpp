#include "server/NetworkService.h"
#include "server/Utf16.h"
#include "tests/server/ServerProcess.h"
#include "tests/support/AgentTest.h"

#include "core/Config.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// Wall time that a test may fix, with real monotonic time for the read and connect bounds (socket
// reads take real time, which the virtual main queue does not see).
class TestClock final : public Clock {
public:
    std::chrono::system_clock::time_point now() const override { return wall ? *wall : std::chrono::system_clock::now(); }
    std::chrono::steady_clock::time_point steadyNow() const override { return std::chrono::steady_clock::now(); }
    std::optional<std::chrono::system_clock::time_point> wall;
};

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A loopback port on which nothing listens.
int closedPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

const std::string anna = "anna.berg@example.com";

class NetworkServiceTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        Platform::Ports ports = Platform::ports();
        ports.clock = &clock;
        Platform::install(ports);
    }

    void useServer(int port, const std::string& host = "127.0.0.1", const std::string& extra = "") {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  "SignatureServerAddress=" + host + "\nSignatureServerPort=" + std::to_string(port) + "\n" + extra);
        Config::setShared(nullptr);
        Config::shared();
        clearLog();
    }

    // Runs one whole exchange: the query step, then the receive step one second later.
    void exchange(const std::string& email = anna) {
        service.getSignatures(email, [this](std::optional<SignatureDescriptor> outcome) {
            ++completions;
            result = std::move(outcome);
        });
        prepare();
        queue.runUntilIdle();
        queue.advance(1s);
    }

    std::function<void()> prepare = [] {};
    TestClock clock;
    NetworkService service;
    int completions = 0;
    std::optional<SignatureDescriptor> result;
};

Lines connected(const std::string& host = "127.0.0.1") {
    return {"Successfully connected to host: " + host, "Successfully sent query to: " + host};
}

Lines concat(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// --- a successful exchange ------------------------------------------------------------------------

TEST_F(NetworkServiceTest, RequestBytesAreExactlyTheFramedUtf16Request) {
    ServerProcess server;
    useServer(server.port());
    exchange();
    const auto files = ServerProcess::waitForFiles(server.recordFolder(), 1);
    ASSERT_EQ(files.size(), 1u);
    const std::string bytes = readWholeFile(files[0]);
    EXPECT_EQ(bytes.substr(0, 8), std::string("\x23\x00\x23\x00\x21\x00\x21\x00", 8));
    EXPECT_EQ(bytes, utf16::encode("##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?><Request "
                                   "Type=\"GetSignatures\" Version=\"1.1.0\" Source=\"DeploymentAgent\"><EmailAddress>" +
                                   anna + "</EmailAddress></Request>##!! DATA BLOCK END !!##"));
}

TEST_F(NetworkServiceTest, DemoMailboxGivesItsGroupDeploymentWithNonAsciiContent) {
    ServerProcess server;
    useServer(server.port());
    service.getSignatures(anna, [this](std::optional<SignatureDescriptor> outcome) {
        ++completions;
        result = std::move(outcome);
    });
    EXPECT_EQ(service.tcpClient->address(), "127.0.0.1");
    EXPECT_EQ(service.tcpClient->port(), server.port());
    EXPECT_TRUE(logLines().empty()); // nothing happens before the main queue runs
    queue.runUntilIdle();
    EXPECT_EQ(logLines(), connected());
    queue.advance(999ms);
    EXPECT_EQ(completions, 0);
    queue.advance(1ms);
    ASSERT_EQ(completions, 1);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->defaultSignatureAction, SignatureAction::change);
    EXPECT_EQ(result->replySignatureAction, SignatureAction::change);
    EXPECT_NE(result->defaultSignature->find("Viele Grüße – 東京 – 😀"), std::string::npos);
    EXPECT_NE(result->replySignature->find("Grüße – 東京 – 😀"), std::string::npos);
    ASSERT_EQ(result->additionalSignatures.size(), 2u);
    EXPECT_NE(result->additionalSignatures.at("Tokyo office – 東京").find("東京都千代田区"), std::string::npos);
    EXPECT_TRUE(result->additionalSignatures.count("Legal notice"));
    EXPECT_TRUE(result->removeOtherSignatures); // UseGlobalSettings with the global option true
    EXPECT_EQ(service.deployIdentifier, "group:Sales/" + anna);
    EXPECT_EQ(logLines(), concat(connected(), {"Successfully received response from: 127.0.0.1",
                                               "Using the deployment configuration specified for the group 'Sales'.",
                                               "Default new signature found on server", "New signature is: sales-new",
                                               "Default reply forward signature found on server",
                                               "Reply forward signature is: sales-reply", "Found signature: Legal notice",
                                               "Found signature: Tokyo office – 東京",
                                               "Remove other signatures set to true in global deployment options",
                                               "Remove other signatures for this account is: Use deployment options configuration",
                                               "Parsed signature successfully for " + anna}));
}

TEST_F(NetworkServiceTest, UnknownMailboxGetsTheNoSettingDescriptor) {
    ServerProcess server;
    useServer(server.port());
    exchange("nobody@example.com");
    ASSERT_EQ(completions, 1);
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->noSetting);
    const Lines lines = logLines();
    EXPECT_EQ(lines[lines.size() - 2], "Warning: There are no signatures defined for the user.");
    EXPECT_EQ(lines.back(), "Parsed signature successfully for nobody@example.com");
}

TEST_F(NetworkServiceTest, AnswerInManyChunksCutAtOddOffsetsIsReadWhole) {
    ServerProcess server({"--chunks", "40", "--chunk-pause", "5"});
    useServer(server.port());
    exchange();
    ASSERT_EQ(completions, 1);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->additionalSignatures.size(), 2u);
    EXPECT_NE(result->defaultSignature->find("😀"), std::string::npos);
}

TEST_F(NetworkServiceTest, AnswerThatArrivesAfterTheFirstReadsIsWaitedFor) {
    ServerProcess server({"--delay", "300"});
    useServer(server.port());
    exchange();
    ASSERT_EQ(completions, 1);
    EXPECT_TRUE(result && !result->noSetting);
}

TEST_F(NetworkServiceTest, MarkersAnywhereAreAllRemovedAndEveryUtf16DeclarationIsRewritten) {
    const std::string file = root() / "answer.txt";
    writeFile(file, "junk##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>I"
                    "##!! DATA BLOCK END !!##D</Identifier><DeploymentData><DefaultSignature>1</DefaultSignature>"
                    "<ReplyForwardSignature>##!! DATA BLOCK START !!##2</ReplyForwardSignature><Templates><Template><Id>1"
                    "</Id><Name>N</Name><HTML>&lt;meta encoding=\"utf-16\"&gt;</HTML></Template></Templates></DeploymentData>"
                    "</Response>##!! DATA BLOCK END !!##");
    ServerProcess server({"--answer-file", file});
    useServer(server.port());
    exchange();
    ASSERT_TRUE(result);
    EXPECT_EQ(service.deployIdentifier, "ID");
    EXPECT_EQ(result->defaultSignature, "<meta encoding=\"utf-8\">");
    EXPECT_EQ(result->replySignatureAction, SignatureAction::change);
}

// --- every failure of the exchange ----------------------------------------------------------------

TEST_F(NetworkServiceTest, RefusedConnectionIsAConnectError) {
    const int port = closedPort();
    useServer(port);
    exchange();
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), Lines{"Failed to connect to host: 127.0.0.1 error: Connection refused"});
    EXPECT_EQ(queue.pendingCount(), 0u);
}

TEST_F(NetworkServiceTest, ConnectThatGetsNoAnswerTimesOut) {
    // A listener whose accept queue is full drops further connection requests unanswered.
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 0);
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::vector<std::unique_ptr<TCPClient>> fillers;
    for (int i = 0; i < 3; ++i) {
        fillers.push_back(std::make_unique<TCPClient>("127.0.0.1", ntohs(address.sin_port)));
        (void)fillers.back()->connect(std::chrono::milliseconds(200));
    }
    useServer(ntohs(address.sin_port));
    service.connectTimeout = 300ms;
    const auto started = std::chrono::steady_clock::now();
    exchange();
    close(listener);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), Lines{"Failed to connect to host: 127.0.0.1 error: Connection timed out"});
}

TEST_F(NetworkServiceTest, UnknownAndEmptyHostNamesAreConnectErrors) {
    useServer(5757, "host.invalid");
    exchange();
    EXPECT_EQ(result, std::nullopt);
    const Lines lines = logLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("Failed to connect to host: host.invalid error: ", 0), 0u) << lines[0];
    EXPECT_GT(lines[0].size(), std::string("Failed to connect to host: host.invalid error: ").size());

    // Discovery is switched on but finds nothing (no directory here): the configured (empty) address is used.
    useServer(5757, "", "SignatureServerAutodetect=1\n");
    exchange();
    EXPECT_EQ(service.tcpClient->address(), "");
    EXPECT_EQ(logLines().back().rfind("Failed to connect to host:  error: ", 0), 0u) << logLines().back();
    EXPECT_EQ(completions, 2);
}

TEST_F(NetworkServiceTest, PeerThatResetsWhileWeSendIsASendError) {
    ServerProcess server({"--close-after-accept"});
    useServer(server.port());
    exchange(std::string(8 * 1024 * 1024, 'a') + "@example.com");
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    const Lines lines = logLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Successfully connected to host: 127.0.0.1");
    EXPECT_TRUE(lines[1] == "Query server: 127.0.0.1 error: Connection reset by peer" ||
                lines[1] == "Query server: 127.0.0.1 error: Broken pipe")
        << lines[1];
}

TEST_F(NetworkServiceTest, PeerThatNeverReadsMakesTheSendTimeOut) {
    ServerProcess server({"--never-answer"});
    useServer(server.port());
    prepare = [this] { service.tcpClient->sendTimeout = 300ms; };
    exchange(std::string(32 * 1024 * 1024, 'a'));
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(logLines(), concat({"Successfully connected to host: 127.0.0.1"}, {"Query server: 127.0.0.1 error: Connection timed out"}));
}

TEST_F(NetworkServiceTest, SilentPeerEndsWithTheTimeOutWhileTheProcessorIdles) {
    ServerProcess server({"--never-answer"});
    useServer(server.port());
    service.readTimeout = 600ms;
    const auto started = std::chrono::steady_clock::now();
    const double processor = processorSeconds();
    exchange();
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_GE(took, 600ms);
    EXPECT_LT(took, 1500ms);
    EXPECT_LT(processorSeconds() - processor, 0.2);
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), concat(connected(), {"Error: reading server response timed out"}));
}

TEST_F(NetworkServiceTest, ClosedPeerEndsWithTheTimeOutWithoutSpinning) {
    ServerProcess server({"--close-after-accept"});
    service.tcpClient = std::make_unique<TCPClient>("127.0.0.1", server.port());
    ASSERT_EQ(service.tcpClient->connect(5), std::nullopt);
    std::this_thread::sleep_for(100ms); // the server has closed by now
    service.readTimeout = 500ms;
    const auto started = std::chrono::steady_clock::now();
    const double processor = processorSeconds();
    EXPECT_EQ(service.readResponse(), std::nullopt);
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_GE(took, 500ms);
    EXPECT_LT(took, 1500ms);
    EXPECT_LT(processorSeconds() - processor, 0.2);
    EXPECT_EQ(logLines(), Lines{"Error: reading server response timed out"});
}

TEST_F(NetworkServiceTest, EndMarkerSplitAcrossChunksDoesNotEndTheRead) {
    ServerProcess server({"--split-end-marker", "--chunk-pause", "3000"});
    useServer(server.port());
    service.readTimeout = 500ms;
    const auto started = std::chrono::steady_clock::now();
    exchange();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2500ms);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), concat(connected(), {"Error: reading server response timed out"}));
}

TEST_F(NetworkServiceTest, AnswerWithoutEndMarkerTimesOut) {
    ServerProcess server({"--no-end-marker"});
    useServer(server.port());
    service.readTimeout = 400ms;
    exchange();
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines().back(), "Error: reading server response timed out");
}

TEST_F(NetworkServiceTest, BytesThatAreNotUtf16AreNoResponse) {
    ServerProcess server({"--invalid-utf16"});
    useServer(server.port());
    exchange();
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), concat(connected(), {"Error: No response from server"}));
}

TEST_F(NetworkServiceTest, AnswerWithoutStartMarkerIsUnsupported) {
    ServerProcess server({"--no-start-marker"});
    useServer(server.port());
    exchange("nobody@example.com");
    EXPECT_EQ(result, std::nullopt);
    const Lines lines = logLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].rfind("Error: Unsupported response from server: <?xml version=\"1.0\" encoding=\"utf-16\"?><Response>", 0), 0u)
        << lines[2];
    EXPECT_EQ(lines[2].substr(lines[2].size() - 35), "</Response>##!! DATA BLOCK END !!##");
}

TEST_F(NetworkServiceTest, AnswerOfOnlyTheEndMarkerIsUnsupported) {
    const std::string file = root() / "answer.txt";
    writeFile(file, "##!! DATA BLOCK END !!##");
    ServerProcess server({"--answer-file", file});
    useServer(server.port());
    exchange();
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), concat(connected(), {"Error: Unsupported response from server: ##!! DATA BLOCK END !!##"}));
}

TEST_F(NetworkServiceTest, RejectedDocumentIsAParseFailureWithTheAnswerLogged) {
    const std::string file = root() / "answer.txt";
    const std::string document = "<Response><Identifier>x</Identifier><DeploymentData><DefaultSignature>1</DefaultSignature>"
                                 "<ReplyForwardSignature>2</ReplyForwardSignature></DeploymentData><Broken></Response>";
    writeFile(file, "##!! DATA BLOCK START !!##" + document + "##!! DATA BLOCK END !!##");
    ServerProcess server({"--answer-file", file});
    useServer(server.port());
    exchange("x@example.com");
    ASSERT_EQ(completions, 1);
    EXPECT_EQ(result, std::nullopt);
    const Lines lines = logLines();
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[lines.size() - 3].rfind("Error: failed to parse XML error: ", 0), 0u);
    EXPECT_EQ(lines[lines.size() - 3].substr(lines[lines.size() - 3].find(" for response: ")), " for response: " + document);
    EXPECT_EQ(lines[lines.size() - 2], "Error: Parsing signature failed for x@example.com");
    EXPECT_EQ(lines.back(), document);
}

TEST_F(NetworkServiceTest, AnswerLargerThanTheCapIsAbandoned) {
    ServerProcess server;
    useServer(server.port());
    service.maxResponseBytes = 1000;
    exchange();
    EXPECT_EQ(result, std::nullopt);
    EXPECT_EQ(logLines(), concat(connected(), {"Error: response from server exceeds 1000 bytes, reading stopped"}));
}

TEST_F(NetworkServiceTest, StepsOfADroppedServiceDoNothing) {
    ServerProcess server;
    useServer(server.port());
    auto dropped = std::make_unique<NetworkService>();
    dropped->getSignatures(anna, [this](std::optional<SignatureDescriptor>) { ++completions; });
    dropped.reset();
    queue.runUntilIdle();
    queue.advance(2s);
    EXPECT_EQ(completions, 0);
    EXPECT_TRUE(logLines().empty());
}

// --- the deployment log ----------------------------------------------------------------------------

class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) {
            saved_ = old;
        }
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        if (saved_) {
            setenv("TZ", saved_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    std::optional<std::string> saved_;
};

TEST_F(NetworkServiceTest, DeploymentLogGoesToTheSameServerByteForByte) {
    ServerProcess server;
    useServer(server.port());
    exchange();
    ASSERT_TRUE(result);
    clearLog();

    TimeZone zone("XXX-2");
    clock.wall = std::chrono::system_clock::from_time_t(1784064600); // 2026-07-14 21:30:00 UTC
    service.submitDeploymentLog(true, "a < b & c > d\n&amp;\n");
    EXPECT_EQ(logLines(), Lines{"Submitting deployment log"});
    queue.runUntilIdle();
    EXPECT_EQ(logLines(), concat({"Submitting deployment log"}, connected()));

    const std::string expected =
        "##!! DATA BLOCK START !!##<?xml version=\"1.0\" encoding=\"utf-16\"?><Request Type=\"SubmitDeploymentLog\" "
        "Version=\"1.2.0\" Source=\"DeploymentAgent\">group:Sales/anna.berg@example.com<DeploymentInformation>"
        "<DeploymentDataSource>Group</DeploymentDataSource><DeploymentDataSourceName>Sales</DeploymentDataSourceName>"
        "</DeploymentInformation><ExecutableFullFileName>Varnoth Brelvane Agent</ExecutableFullFileName>"
        "<ExecutableVersion>1.0.0.1</ExecutableVersion><Result>Success</Result><DeploymentLog>a &lt; b &amp; c &gt; d\n"
        "&amp;amp;\n</DeploymentLog><DateTimeUtc>2026-07-14T21:30:00</DateTimeUtc><DateTimeLocal>2026-07-14T23:30:00"
        "</DateTimeLocal></Request>##!! DATA BLOCK END !!##";
    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(readWholeFile(logs[0]), expected);
    const auto requests = ServerProcess::waitForFiles(server.recordFolder(), 2);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(readWholeFile(requests[1]), utf16::encode(expected));
}

TEST_F(NetworkServiceTest, DeploymentLogWithoutAnEarlierQueryUsesTheConfiguredServer) {
    ServerProcess server;
    useServer(server.port());
    Platform::Ports ports = Platform::ports();
    ports.bundle.shortVersion.clear();
    ports.bundle.version.clear();
    Platform::install(ports);
    service.submitDeploymentLog(false, "");
    queue.runUntilIdle();
    const auto logs = ServerProcess::waitForFiles(server.logFolder(), 1);
    ASSERT_EQ(logs.size(), 1u);
    const std::string text = readWholeFile(logs[0]);
    EXPECT_NE(text.find("Source=\"DeploymentAgent\"><ExecutableFullFileName>Varnoth Brelvane Agent</ExecutableFullFileName>"
                        "<ExecutableVersion>.</ExecutableVersion><Result>Failure</Result><DeploymentLog></DeploymentLog>"),
              std::string::npos)
        << text;
}

TEST_F(NetworkServiceTest, DeploymentLogThatCannotConnectIsDropped) {
    useServer(closedPort());
    service.submitDeploymentLog(true, "x");
    queue.runUntilIdle();
    EXPECT_EQ(logLines(), (Lines{"Submitting deployment log", "Failed to connect to host: 127.0.0.1 error: Connection refused"}));
}

} // namespace
} // namespace varnoth::test
