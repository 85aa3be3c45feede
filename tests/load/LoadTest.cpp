#include "server/Framing.h"
#include "server/SignatureDocuments.h"
#include "server/TCPClient.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <latch>
#include <thread>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// Two hundred agents' exchanges at once against one demo server, each as the agent makes it: the query,
// the framed answer read to its end marker, then the deployment log on a new connection. Each gets its
// own mailbox's answer, every log is stored once, and the server then exits cleanly on SIGTERM.
class LoadTest : public AgentTest {};

TEST_F(LoadTest, TwoHundredAgentsAtOnceGetTheirOwnAnswersAndEveryLogIsStored) {
    constexpr int agents = 200;
    const auto data = root() / "data";
    std::string mapping = "[global]\nremove-other-signatures = false\n";
    for (int i = 0; i < agents; ++i) {
        const std::string n = std::to_string(i);
        writeFile(data / "templates" / ("agent" + n + ".html"),
                  "<p>Agent " + n + " \u2013 Gr\u00FC\u00DFe</p>");
        mapping += "[mailbox agent" + n + "@example.com]\ndefault = keep\nreply = keep\nadditional = Sig " +
                   n + " | agent" + n + ".html\n";
    }
    writeFile(data / "signatures.conf", mapping);
    ServerProcess server({}, data.string());
    // A failed send leaves the answer empty, or the server without the agent's log: both fail.
    std::latch start(agents);
    std::vector<std::thread> threads;
    for (int i = 0; i < agents; ++i) {
        threads.emplace_back([&, n = std::to_string(i)] {
            const std::string mailbox = "agent" + n + "@example.com";
            start.arrive_and_wait();
            TCPClient client("127.0.0.1", server.port());
            std::string answer;
            const bool sent = !client.connect(10) && !client.send(makeSignaturesRequest(mailbox));
            for (const auto deadline = std::chrono::steady_clock::now() + 60s;
                 sent && std::chrono::steady_clock::now() < deadline;) {
                const std::size_t chunkStart = answer.size();
                if (client.readAppending(answer, 102400, -1) > 0 &&
                    framing::chunkHoldsEndMarker(answer, chunkStart)) {
                    break;
                }
            }
            DeploymentFields fields;
            const auto descriptor =
                parseSignatureAnswer(framing::unframe(utf16::decode(answer).value_or("")), fields);
            EXPECT_EQ(descriptor.value_or(SignatureDescriptor{}).additionalSignatures,
                      (std::unordered_map<std::string, std::string>{
                          {"Sig " + n, "<p>Agent " + n + " \u2013 Gr\u00FC\u00DFe</p>"}}))
                << n;
            DeploymentLogContent content;
            content.bundleName = "Varnoth Brelvane Agent";
            content.log = "2026-01-01 00:00:00  Parsed signature successfully for " + mailbox + "\n";
            content.times = deploymentTimes(std::chrono::system_clock::now());
            (void)(client.connect(10) ||
                   client.send(makeDeploymentLogRequest(makeDeploymentLogBody(content))));
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto files = ServerProcess::waitForFiles(server.logFolder(), agents);
    ASSERT_EQ(files.size(), static_cast<std::size_t>(agents));
    std::vector<int> seen(agents, 0);
    for (const auto& file : files) {
        const std::string report = readWholeFile(file);
        ASSERT_NE(report.find("</Request>" + std::string(framing::endMarker)), std::string::npos) << file;
        const auto mailboxAt = report.find("for agent", report.find("<DeploymentLog>"));
        ASSERT_NE(mailboxAt, std::string::npos);
        ++seen[std::stoi(report.substr(mailboxAt + 9))];
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), agents);
    EXPECT_EQ(server.stop(), 0);
}

} // namespace
} // namespace varnoth::test
