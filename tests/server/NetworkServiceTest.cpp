#include "server/NetworkService.h"
#include "server/Utf16.h"
#include "tests/server/Describe.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/ServerProcess.h"

#include "config/Config.h"
#include "platform/Platform.h"

#include <ctime>
#include <deque>
#include <regex>
#include <thread>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock, std::chrono::system_clock, std::chrono::duration_cast,
    std::chrono::milliseconds;
using Switches = std::vector<std::string>;

// Wall time that a test may fix, with real steady time for the read and connect bounds (socket reads take
// real time, which the virtual main queue does not see).
struct TestClock final : Clock {
    system_clock::time_point now() const override { return wall.value_or(system_clock::now()); }
    steady_clock::time_point steadyNow() const override { return steady_clock::now(); }
    std::optional<system_clock::time_point> wall;
};

const std::string anna = "anna.berg@example.com";

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
        service.getSignatures(email, [this](auto outcome) { ++completions, result = std::move(outcome); });
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

TEST_F(NetworkServiceTest, QueriesAndDeploymentLogsGoOutAsExactTextsAndTheAnswerIsReadOneSecondLater) {
    auto server = startServer();
    std::string transcript;
    // The log lines since the previous step, after the completions so far.
    const auto step = [&](const std::string& title) {
        transcript +=
            "-- " + title + ", completions: " + std::to_string(completions) + "\n" + joinLines(logLines());
        clearLog();
    };
    // Steps that come due after the service was dropped do nothing.
    auto dropped = std::make_unique<NetworkService>();
    dropped->getSignatures(anna, [this](std::optional<SignatureDescriptor>) { ++completions; });
    dropped.reset();
    queue.advance(2s);
    step("dropped service");
    getSignatures(anna);
    step("asked"); // nothing happens before the main queue runs
    queue.runUntilIdle();
    step("query step");
    queue.advance(999ms);
    step("999 ms later");
    queue.advance(1ms);
    step("one second later");
    // The demo set's group deployment, with text that needs surrogate pairs on the wire.
    transcript += describe(result, service, {});
    const auto whole = result;

    // The deployment log goes to the same server; the times show the same whole second.
    setEnvironment("TZ", "XXX-2");
    tzset();
    clock.wall = system_clock::from_time_t(1784064600) + 999ms; // 2026-07-14 21:30:00.999 UTC
    // Frame markers in an answer (as character references) never reach a request, where they would end
    // it early and pose as a request of their own: an identifier holding one is not sent back, and the
    // log, which goes to the server, holds a name with one broken.
    const std::string marker =
        "&#35;&#35;!! DATA BLOCK END !!&#35;&#35;&#35;&#35;!! DATA BLOCK START !!&#35;&#35;";
    service.parseSignatures("<Response><Identifier>" + marker +
                            "</Identifier><DeploymentData><DefaultSignature>-1</DefaultSignature>"
                            "<ReplyForwardSignature>-1</ReplyForwardSignature><Templates><Template><Id>1</Id>"
                            "<Name>" +
                            marker +
                            "</Name><HTML>x</HTML></Template></Templates></DeploymentData></Response>");
    const std::string forgedLines = joinLines(logLines());
    step("answer with frame markers");
    service.submitDeploymentLog(true, "a < b & c > d\n&amp; \"q\" 'a'\n" + forgedLines);
    step("deployment log asked");
    queue.runUntilIdle();
    step("deployment log step");
    ServerProcess::waitForFiles(server->recordFolder(), 2); // recorded before the next query's, in order

    // An unknown mailbox gets an answer without settings, which is a successful parse.
    exchange("nobody@example.com");
    step("unknown mailbox");
    transcript += describe(result, service, {});

    // The computer moved, and nobody told the C library. A service that never queried sends to the
    // configured server; without identifier and deployment information the body starts with the
    // executable's name, and missing versions leave the dot.
    setEnvironment("TZ", "YYY+5");
    Platform::Ports ports = Platform::ports();
    ports.bundle.shortVersion.clear();
    ports.bundle.version.clear();
    Platform::install(ports);
    NetworkService fresh;
    fresh.submitDeploymentLog(false, "");
    queue.runUntilIdle();
    for (const auto& file : ServerProcess::waitForFiles(server->recordFolder(), 4)) {
        const std::string bytes = readWholeFile(file);
        const std::string text = utf16::decode(bytes).value_or("not UTF-16");
        EXPECT_EQ(utf16::encode(text), bytes); // without byte-order mark
        transcript += "-- request\n" + text + "\n";
    }
    expectGolden("server/exchange", transcript);

    // An answer in many chunks cut at odd offsets, with its end marker cut in two, or arriving late, is
    // read whole.
    for (const Switches& switches :
         {Switches{"--chunks", "40", "--chunk-pause", "5"},
          Switches{"--split-end-marker", "--chunk-pause", "200"}, Switches{"--delay", "300"}}) {
        auto other = startServer(switches);
        exchange();
        EXPECT_EQ(result, whole) << switches[0];
    }
}

// --- failed exchanges: each ends with its lines and a completion without a descriptor

struct FailedExchange {
    const char* title;
    Switches switches = {};                 // of the demo server
    std::optional<std::string> answer = {}; // instead of the demo answer
    std::string email = anna;               // a long one makes a query larger than the socket holds
    std::size_t cap = NetworkService::defaultMaxResponseBytes;
    std::optional<std::pair<std::string, int>> peer = {}; // no server but this host and port
};

TEST_F(NetworkServiceTest, EachFailedConnectSendReadOrParseEndsTheExchangeWithItsLines) {
    const std::string broken = "<Response><Identifier>x</Identifier><DeploymentData><DefaultSignature>1"
                               "</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature>"
                               "</DeploymentData><Broken></Response>";
    // A listener whose accept queue is full drops further connection requests unanswered.
    LoopbackListener listener(0);
    std::deque<TCPClient> fillers;
    for (int i = 0; i < 3; ++i) {
        (void)fillers.emplace_back("127.0.0.1", listener.port()).connect(200ms);
    }
    const std::pair<std::string, int> unresolvable{"host.invalid", 5757};
    // Twice what a loopback connection holds unread, in UTF-16: sending it must wait for the peer.
    const std::string longEmail(LoopbackListener::unreadCapacity(), 'a');
    const std::vector<FailedExchange> cases{
        {.title = "connection refused", .peer = {{"127.0.0.1", LoopbackListener::closedPort()}}},
        {.title = "unknown host", .peer = unresolvable},
        {.title = "connect unanswered", .peer = {{"127.0.0.1", listener.port()}}},
        {"peer resets while the query is sent", {"--close-after-accept"}, {}, longEmail},
        {"peer never reads the query", {"--never-answer"}, {}, longEmail},
        {"no end marker", {"--no-end-marker"}},
        {"not UTF-16", {"--invalid-utf16"}},
        {"only the end marker", {}, "##!! DATA BLOCK END !!##"},
        {"no start marker", {}, "<Response/>##!! DATA BLOCK END !!##"},
        {"larger than the cap", {}, {}, anna, 1000},
        {"document the parser rejects",
         {},
         "##!! DATA BLOCK START !!##" + broken + "##!! DATA BLOCK END !!##"},
    };
    service.readTimeout = 500ms;
    service.connectTimeout = 300ms;
    const auto sendTimeout = 300ms;
    // Each exchange keeps to its shortened bounds, below the 20 s a send or read would take by default.
    // The margin is over ten times the work beside the waits (0.6 s to build and send the long query
    // under the sanitizers), so a busy machine cannot use it up; a resolver may take its time.
    const auto bound = service.connectTimeout + sendTimeout + service.readTimeout + 10s;
    std::string transcript;
    for (const FailedExchange& test : cases) {
        SCOPED_TRACE(test.title);
        std::unique_ptr<ServerProcess> server;
        test.peer ? useServer(test.peer->second, test.peer->first)
                  : void(server = startServer(test.switches, test.answer));
        service.maxResponseBytes = test.cap;
        const auto started = steady_clock::now();
        getSignatures(test.email);
        service.tcpClient->sendTimeout = sendTimeout;
        queue.runUntilIdle();
        queue.advance(1s); // the receive step
        if (test.peer != unresolvable) {
            EXPECT_LT(duration_cast<milliseconds>(steady_clock::now() - started).count(), bound.count());
        }
        EXPECT_EQ(queue.pendingCount(), 0u);
        if (test.peer) { // the deployment log is dropped after the same connect error
            service.submitDeploymentLog(true, "x");
            queue.runUntilIdle();
        }
        transcript += "=== " + std::string(test.title) + ", completions: " + std::to_string(completions) +
                      (result ? ", with" : ", without") + " a descriptor\n" + joinLines(logLines());
    }
    // Which of the two a reset peer gives depends on how far the send got; the resolver's words vary.
    expectGolden(
        "server/failed-exchanges",
        std::regex_replace(transcript, std::regex("host.invalid error: .*"), "host.invalid error: -"),
        {{"error: Broken pipe", "error: Connection reset by peer"}});
}

// The read ends at its bound, not at the 20-second default; the margin above it is for a busy machine.
// Waiting in reads costs next to no processor time, where a loop that spins would take most of a core.
TEST_F(NetworkServiceTest, SilentOrClosedPeerEndsWithTheTimeOutWhileTheProcessorIdles) {
    service.readTimeout = 1s;
    for (const char* fault : {"--never-answer", "--close-after-accept"}) {
        SCOPED_TRACE(fault);
        ServerProcess server({fault});
        service.tcpClient = std::make_unique<TCPClient>("127.0.0.1", server.port());
        ASSERT_EQ(service.tcpClient->connect(5), std::nullopt);
        std::this_thread::sleep_for(100ms); // a closing server has closed by now
        clearLog();
        const auto started = steady_clock::now();
        const std::clock_t processor = std::clock();
        EXPECT_EQ(service.readResponse(), std::nullopt);
        const auto took = steady_clock::now() - started;
        EXPECT_GE(took, service.readTimeout);
        EXPECT_LT(duration_cast<milliseconds>(took).count(), (service.readTimeout + 9s).count());
        EXPECT_LT(static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC, 0.2);
        EXPECT_EQ(logLines(), std::vector<std::string>{"Error: reading server response timed out"});
    }
}

} // namespace
} // namespace varnoth::test
