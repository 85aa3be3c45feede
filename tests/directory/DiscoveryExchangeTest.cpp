#include "tests/directory/DiscoveryTest.h"

#include "core/Logger.h"
#include "tools/signature-server/SignatureServer.h"
#include "tools/signature-server/SocketServer.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <thread>
#include <unistd.h>

namespace varnoth {
namespace {

using test::DiscoveryTest;
using test::SlapdServer;

// The demo signature server on a loopback port, serving the example data set from a thread.
class DemoSignatureServer {
public:
    explicit DemoSignatureServer(const std::filesystem::path& logFolder)
        : handler_(options(logFolder)), sockets_(handler_, "127.0.0.1", 0) {
        if (pipe(stop_) != 0) {
            throw std::runtime_error("no pipe");
        }
        serving_ = std::thread([this] { sockets_.run(stop_[0]); });
    }
    ~DemoSignatureServer() {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = write(stop_[1], &byte, 1);
        serving_.join();
        close(stop_[0]);
        close(stop_[1]);
    }
    std::uint16_t port() const { return sockets_.port(); }

private:
    static signatureserver::ServerOptions options(const std::filesystem::path& logFolder) {
        signatureserver::ServerOptions options;
        options.dataFolder = VARNOTH_EXAMPLES_DIR;
        options.logFolder = logFolder;
        return options;
    }

    signatureserver::SignatureServer handler_;
    signatureserver::SocketServer sockets_;
    int stop_[2] = {-1, -1};
    std::thread serving_;
};

TEST_F(DiscoveryTest, DiscoveredHostServesTheWholeExchange) {
    const auto deploymentLogs = root() / "deployment-logs";
    std::filesystem::create_directories(deploymentLogs);
    DemoSignatureServer signatureServer(deploymentLogs);
    const auto& directory =
        startDirectory(SlapdServer::serviceConnectionPoint("Signatures", {"127.0.0.1"}), false);
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword, signatureServer.port());

    NetworkService service;
    std::optional<SignatureDescriptor> answer;
    int calls = 0;
    service.getSignatures("anna.berg@example.com", [&](std::optional<SignatureDescriptor> descriptor) {
        ++calls;
        answer = std::move(descriptor);
    });
    queue.runUntilIdle();
    queue.advance(std::chrono::seconds(1));
    queue.runUntilIdle();

    ASSERT_EQ(calls, 1);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->additionalSignatures.count("Legal notice"), 1u);
    const auto lines = logLines();
    for (const std::string line :
         {"serviceDNSName found on LDAP: 127.0.0.1", "Successfully connected to host: 127.0.0.1",
          "Parsed signature successfully for anna.berg@example.com"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
    }

    // The deployment log the server receives holds the whole exchange, and not the password.
    service.submitDeploymentLog(true, Logger::capturedLog);
    queue.runUntilIdle();
    std::string received;
    for (int attempt = 0; attempt < 200 && received.empty(); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
        for (const auto& file : std::filesystem::directory_iterator(deploymentLogs)) {
            std::ifstream in(file.path(), std::ios::binary);
            received.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
    }
    EXPECT_NE(received.find("serviceDNSName found on LDAP: 127.0.0.1"), std::string::npos) << received;
    EXPECT_EQ(received.find(SlapdServer::bindPassword), std::string::npos);
    EXPECT_EQ(logText().find(SlapdServer::bindPassword), std::string::npos);
}

} // namespace
} // namespace varnoth
