#include "base/Logger.h"
#include "config/Config.h"
#include "server/NetworkService.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/SlapdServer.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

constexpr const char* configuredAddress = "configured.example.test";
constexpr const char* discoveredHost = "signatures.example.test";
constexpr const char* wrongPassword = "Wr0ng-Secr3t-5521";
const std::string signaturesEntry = SlapdServer::serviceConnectionPoint("Signatures", {discoveredHost});

// Finding the signature server's host in a real directory, and falling back to the configured address.
// Captures the log lines, as an update run does.
class DiscoveryTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        Logger::captureEnabled = true;
    }

    SlapdServer& startDirectory(SlapdServer::Options options) {
        slapd = std::make_unique<SlapdServer>(std::move(options));
        EXPECT_TRUE(slapd->start()) << slapd->error();
        return *slapd;
    }

    // The administrator's property-list file: a bind DN holds "=", which the text file cannot carry.
    void configure(const std::string& ldapServer, const std::string& user = "",
                   const std::string& password = "", int signatureServerPort = 5999) {
        const auto text = [](const char* key, const std::string& value) {
            return std::string("<key>") + key + "</key><string>" + value + "</string>\n";
        };
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
                  "<key>SignatureServerAutodetect</key><true/>\n" +
                      text("SignatureServerAddress", configuredAddress) +
                      "<key>SignatureServerPort</key><integer>" + std::to_string(signatureServerPort) +
                      "</integer>\n" + text("LDAPServer", ldapServer) + text("LDAPUser", user) +
                      text("LDAPPassword", password) + "</dict>\n</plist>\n");
        Config::setShared(nullptr);
    }

    // The host that getSignatures chose; the query itself stays queued on the manual main queue.
    std::string chosenHost() {
        NetworkService service;
        service.getSignatures("someone@example.test", [](std::optional<SignatureDescriptor>) {});
        EXPECT_TRUE(service.tcpClient);
        return service.tcpClient ? service.tcpClient->address() : "";
    }

    bool logged(const std::string& line) const {
        const auto lines = logLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    std::size_t linesContaining(const std::string& text) const {
        const auto lines = logLines();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
    void expectNeverLogged(const std::string& secret) const {
        EXPECT_EQ(logText().find(secret), std::string::npos) << secret;
        EXPECT_EQ(Logger::capturedLog.find(secret), std::string::npos) << secret;
    }

    std::unique_ptr<SlapdServer> slapd;
};

TEST_F(DiscoveryTest, AnonymousLookupFindsTheServiceConnectionPoint) {
    configure(startDirectory({.entries = signaturesEntry}).url());

    NetworkService service;
    EXPECT_EQ(service.getServiceDNSName(), std::nullopt) << "no naming context yet";
    EXPECT_EQ(linesContaining("LDAP"), 0u) << "nothing to log without a naming context";
    service.getDefaultNamingContext();
    EXPECT_EQ(service.getServiceDNSName(), discoveredHost);
    EXPECT_TRUE(logged("defaultNamingContext found on LDAP: dc=example,dc=com"));
    EXPECT_TRUE(logged("serviceDNSName found on LDAP: signatures.example.test"));

    EXPECT_EQ(chosenHost(), discoveredHost);
}

TEST_F(DiscoveryTest, ConfiguredAccountBindsItsPasswordIsNeverLoggedAndNoDirectoryFallsBack) {
    auto& directory = startDirectory({.anonymousRead = false, .entries = signaturesEntry});

    // Without the account the tree below the root entry is hidden.
    configure(directory.url());
    EXPECT_EQ(chosenHost(), configuredAddress);
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    Config::shared().logSettings();
    EXPECT_EQ(chosenHost(), discoveredHost);
    configure(directory.url(), SlapdServer::bindDN, wrongPassword);
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_TRUE(logged(
        "Error: Failed to get defaultNamingContext from LDAP server: message(\"Invalid credentials\")"));
    EXPECT_EQ(linesContaining("serviceDNSName"), 1u)
        << "only the successful run finds it; failures stop early";
    // Over ldap:// the password travels in clear: one warning in each run that sends one.
    EXPECT_EQ(linesContaining("Warning: the directory password travels unencrypted over ldap://"), 2u);
    expectNeverLogged(SlapdServer::bindPassword);
    expectNeverLogged(wrongPassword);

    clearLog();
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    directory.stop();
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_TRUE(
        logged("Error: Failed to get defaultNamingContext from LDAP server: message(\"Can't contact LDAP "
               "server\")"));
    EXPECT_EQ(linesContaining("serviceDNSName"), 0u) << "the second lookup needs no directory";

    // An empty server setting means ldaps://localhost without credentials: nothing listens there in tests.
    clearLog();
    configure("", SlapdServer::bindDN, wrongPassword);
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_EQ(linesContaining("Error: Failed to get defaultNamingContext from LDAP server: message("), 1u);
    expectNeverLogged(wrongPassword);
}

TEST_F(DiscoveryTest, NoUsableServiceConnectionPointFallsBackSilently) {
    // Two hosts in one entry are no answer; an entry without the keyword is no match.
    configure(
        startDirectory(
            {.entries =
                 SlapdServer::serviceConnectionPoint("Ambiguous", {"one.example.test", "two.example.test"}) +
                 "dn: cn=Unrelated,dc=example,dc=com\nobjectClass: serviceConnectionPoint\ncn: Unrelated\n"
                 "keywords: something else\nserviceDNSName: unrelated.example.test\n\n"})
            .url());
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_EQ(linesContaining("serviceDNSName"), 0u);
    EXPECT_EQ(linesContaining("Error"), 0u);

    // A value far longer than any host name is refused, with its own line.
    clearLog();
    configure(
        startDirectory({.entries = SlapdServer::serviceConnectionPoint("Huge", {std::string(70000, 'h')})})
            .url());
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_TRUE(logged("Error: serviceDNSName from LDAP server refused: 70000 bytes, more than 65536"));

    // A directory whose root entry names no context: nothing to search below.
    clearLog();
    configure(startDirectory({.defaultNamingContext = "", .entries = signaturesEntry}).url());
    EXPECT_EQ(chosenHost(), configuredAddress);
    EXPECT_EQ(linesContaining("LDAP"), 0u);
}

TEST_F(DiscoveryTest, DiscoveredHostServesTheWholeExchange) {
    ServerProcess signatureServer;
    configure(startDirectory({.anonymousRead = false,
                              .entries = SlapdServer::serviceConnectionPoint("Signatures", {"127.0.0.1"})})
                  .url(),
              SlapdServer::bindDN, SlapdServer::bindPassword, signatureServer.port());

    NetworkService service;
    std::vector<std::optional<SignatureDescriptor>> answers;
    service.getSignatures("anna.berg@example.com", [&](std::optional<SignatureDescriptor> descriptor) {
        answers.push_back(std::move(descriptor));
    });
    queue.runUntilIdle();
    queue.advance(std::chrono::seconds(1));
    queue.runUntilIdle();
    ASSERT_EQ(answers.size(), 1u);
    ASSERT_TRUE(answers[0]);
    EXPECT_EQ(answers[0]->additionalSignatures.count("Legal notice"), 1u);
    for (const std::string line :
         {"serviceDNSName found on LDAP: 127.0.0.1", "Successfully connected to host: 127.0.0.1",
          "Parsed signature successfully for anna.berg@example.com"}) {
        EXPECT_TRUE(logged(line)) << line;
    }

    // The deployment log the server receives holds the whole exchange, and not the password.
    service.submitDeploymentLog(true, Logger::capturedLog);
    queue.runUntilIdle();
    const auto files = ServerProcess::waitForFiles(signatureServer.logFolder(), 1);
    ASSERT_EQ(files.size(), 1u);
    const std::string received = readWholeFile(files[0]);
    EXPECT_NE(received.find("serviceDNSName found on LDAP: 127.0.0.1"), std::string::npos) << received;
    EXPECT_EQ(received.find(SlapdServer::bindPassword), std::string::npos);
    expectNeverLogged(SlapdServer::bindPassword);
}

} // namespace
} // namespace varnoth::test
