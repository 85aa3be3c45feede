#include "server/Framing.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

// One timer run against a misbehaving signature server, after a good run. Each fault's own lines are
// tested on the service (NetworkServiceTest); here the whole run must end with its failure (the golden
// holds the alert and every log line), report it when the server listens (the lines the server got, which
// keep a quoted answer escaped and cut), keep what the good run installed, and leave the next run working.
struct NetworkFault {
    const char* title;
    std::vector<std::string> switches; // of the demo server, or "refused" for a closed port
    std::string answer = {};           // instead of the demo answer, framed; empty: the demo's own
    bool reported = true;              // the failed run's deployment log reaches the faulty server
    // The run waits out the 20-second read bound, on a fast clock. The other faults' answers are read in
    // real time, so a busy machine cannot turn them into a time-out.
    bool timesOut = false;
};

class NetworkFaultTest : public RunTest {};

TEST_F(NetworkFaultTest, EveryFaultEndsTheRunKeepsTheSignaturesAndTheNextRunWorks) {
    const std::string start(framing::startMarker), end(framing::endMarker);
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>x</Identifier>";
    const std::vector<NetworkFault> faults{
        {"refused", {"refused"}, "", false},
        {"never answering", {"--never-answer"}, "", false, true},
        {"trickling", {"--chunks", "4000", "--chunk-pause", "1000"}, "", true, true},
        {"closing mid-answer", {"--no-end-marker"}, "", true, true},
        {"not UTF-16", {"--invalid-utf16"}},
        {"malformed XML",
         {},
         start + head +
             "<DeploymentData><DefaultSignature>1</DefaultSignature>"
             "<ReplyForwardSignature>2</ReplyForwardSignature><Templates><Template><Id>1</"
             "Id><HTML>&lt;p\x1B" +
             std::string(256 << 10, 'x') + end},
        // Nothing assigned means nothing to report.
        {"malformed before the signature ids", {}, start + "<Response><Identifier>x</Ident" + end, false},
    };
    startFromGoodRun();
    std::string transcript;
    for (const NetworkFault& fault : faults) {
        SCOPED_TRACE(fault.title);
        auto switches = fault.switches;
        if (!fault.answer.empty()) {
            writeFile(root() / "answer.xml", fault.answer);
            switches = {"--answer-file", (root() / "answer.xml").string()};
        }
        const auto faulty = switches == std::vector<std::string>{"refused"}
                                ? nullptr
                                : std::make_unique<ServerProcess>(switches, goodData().string());
        configure(faulty ? faulty->port() : LoopbackListener::closedPort());
        fault.timesOut ? runFaulty(app) : run(app);
        transcript += "=== " + std::string(fault.title) + "\n" + runTranscript(faulty.get(), fault.reported);
        expectKept();
        expectNextRunWorks(app, good->port(), good->logFolder());
        alerts.shown.clear();
        clearLog();
    }
    expectGolden("faults/network", transcript, {{root().string(), "ROOT"}});
}

} // namespace
} // namespace varnoth::test
