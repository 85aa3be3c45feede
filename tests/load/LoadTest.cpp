#include "server/Framing.h"
#include "server/SignatureDocuments.h"
#include "server/TCPClient.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <atomic>
#include <fstream>
#include <latch>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

constexpr int agents = 200;

// The peak resident memory (VmHWM, kB) of this process's child running the demo server, or -1.
long serverPeakKilobytes() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string pid, name, state;
        long parent = 0;
        if (!(stat >> pid >> name >> state >> parent) || parent != getpid() ||
            name.find("varnoth-signatu") == std::string::npos) {
            continue;
        }
        std::ifstream status(entry.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmHWM:", 0) == 0) {
                return std::stol(line.substr(6));
            }
        }
    }
    return -1;
}

// One agent's exchange as the agent makes it: connect, send the query, read the framed answer within
// the read bound, then connect again and send the deployment log.
struct AgentRun {
    std::string mailbox;
    std::string answerBytes;
    std::string error;

    void run(int port) {
        TCPClient client("127.0.0.1", port);
        if (const auto failure = client.connect(10)) {
            error = "connect: " + failure->localizedDescription;
            return;
        }
        if (const auto failure = client.send(makeSignaturesRequest(mailbox))) {
            error = "send: " + failure->localizedDescription;
            return;
        }
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::size_t chunkStart = answerBytes.size();
            if (client.readAppending(answerBytes, 102400, -1) > 0 &&
                framing::chunkHoldsEndMarker(answerBytes, chunkStart)) {
                break;
            }
        }
        DeploymentLogContent content;
        content.deployIdentifier = "ID-" + mailbox;
        content.bundleName = "Varnoth Brelvane Agent";
        content.success = true;
        content.log = "2026-01-01 00:00:00  Parsed signature successfully for " + mailbox + "\n";
        content.times = deploymentTimes(std::chrono::system_clock::now());
        if (client.connect(10) || client.send(makeDeploymentLogRequest(makeDeploymentLogBody(content)))) {
            error = "deployment log not sent";
        }
    }
};

class LoadTest : public AgentTest {};

TEST_F(LoadTest, TwoHundredAgentsAtOnceGetTheirOwnAnswersAndEveryLogIsStored) {
    // A data set with one mailbox per agent, each with a signature of its own.
    std::string mapping = "[global]\nremove-other-signatures = false\n";
    for (int i = 0; i < agents; ++i) {
        const std::string n = std::to_string(i);
        writeFile(root() / "data/templates" / ("agent" + n + ".html"),
                  "<p>Agent " + n + " \u2013 Gr\u00FC\u00DFe</p>");
        mapping += "[mailbox agent" + n + "@example.com]\ndefault = keep\nreply = keep\nadditional = Sig " +
                   n + " | agent" + n + ".html\n";
    }
    writeFile(root() / "data/signatures.conf", mapping);
    ServerProcess server({}, (root() / "data").string());
    const long idle = serverPeakKilobytes();
    ASSERT_GT(idle, 0);

    std::vector<AgentRun> runs(agents);
    std::latch start(agents);
    std::vector<std::thread> threads;
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < agents; ++i) {
        runs[i].mailbox = "agent" + std::to_string(i) + "@example.com";
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            runs[i].run(server.port());
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto elapsed = std::chrono::steady_clock::now() - began;
    EXPECT_LT(elapsed, 40s);

    for (int i = 0; i < agents; ++i) {
        SCOPED_TRACE(runs[i].mailbox);
        ASSERT_EQ(runs[i].error, "");
        const auto text = utf16::decode(runs[i].answerBytes);
        ASSERT_TRUE(text);
        DeploymentFields fields;
        const auto descriptor = parseSignatureAnswer(framing::unframe(*text), fields);
        ASSERT_TRUE(descriptor);
        const std::string n = std::to_string(i);
        const std::unordered_map<std::string, std::string> expected{
            {"Sig " + n, "<p>Agent " + n + " \u2013 Gr\u00FC\u00DFe</p>"}};
        EXPECT_EQ(descriptor->additionalSignatures, expected);
        EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::dontchange);
    }

    // Every agent's log is stored, whole, once.
    const auto files = ServerProcess::waitForFiles(server.logFolder(), agents);
    ASSERT_EQ(files.size(), static_cast<std::size_t>(agents));
    std::vector<int> seen(agents, 0);
    for (const auto& file : files) {
        const std::string report = readWholeFile(file);
        ASSERT_NE(report.find("</Request>" + std::string(framing::endMarker)), std::string::npos) << file;
        const auto at = report.find("<DeploymentLog>");
        ASSERT_NE(at, std::string::npos);
        const auto mailboxAt = report.find("for agent", at);
        ASSERT_NE(mailboxAt, std::string::npos);
        ++seen[std::stoi(report.substr(mailboxAt + 9))];
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), agents);

    // The server's memory stays bounded: a connection's buffers go with the connection.
    const long peak = serverPeakKilobytes();
    RecordProperty("server_peak_kB", static_cast<int>(peak));
    RecordProperty("server_idle_kB", static_cast<int>(idle));
    EXPECT_LT(peak - idle, 96 * 1024) << "peak " << peak << " kB, idle " << idle << " kB";
}

} // namespace
} // namespace varnoth::test
