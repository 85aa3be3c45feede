#include "base/Logger.h"
#include "config/Config.h"
#include "server/NetworkService.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/ServerProcess.h"
#include "tests/support/SlapdServer.h"

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
        replacements.emplace_back(root().string(), "<root>");
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

    // The whole log, exactly: which lines a run writes, how often, and that no password is among them.
    void expectLog(const std::string& name) {
        expectGolden("directory/" + name, joinLines(logLines()), replacements);
        for (const char* secret : {SlapdServer::bindPassword, wrongPassword}) {
            EXPECT_EQ(Logger::capturedLog.find(secret), std::string::npos) << secret;
        }
    }

    std::vector<std::pair<std::string, std::string>> replacements;
    std::unique_ptr<SlapdServer> slapd;
};

TEST_F(DiscoveryTest, AnonymousLookupFindsTheServiceConnectionPoint) {
    configure(startDirectory({.entries = signaturesEntry}).url());
    NetworkService service;
    EXPECT_EQ(service.getServiceDNSName(), std::nullopt) << "no naming context yet, and nothing logged";
    service.getDefaultNamingContext();
    EXPECT_EQ(service.getServiceDNSName(), discoveredHost);
    EXPECT_EQ(chosenHost(), discoveredHost);
    expectLog("anonymous-lookup");
}

// Over ldap:// the password travels in clear: a warning in each run that sends one. Failures stop early
// and fall back; an empty server setting means ldaps://localhost, where nothing listens in tests.
TEST_F(DiscoveryTest, ConfiguredAccountBindsItsPasswordIsNeverLoggedAndNoDirectoryFallsBack) {
    auto& directory = startDirectory({.anonymousRead = false, .entries = signaturesEntry});
    configure(directory.url()); // without the account the tree below the root entry is hidden
    EXPECT_EQ(chosenHost(), configuredAddress);
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    Config::shared().logSettings();
    EXPECT_EQ(chosenHost(), discoveredHost);
    configure(directory.url(), SlapdServer::bindDN, wrongPassword);
    EXPECT_EQ(chosenHost(), configuredAddress);
    // In a list the password goes to whichever address answers: here the ldap:// one after the ldaps://.
    configure("ldaps://127.0.0.1:1, " + directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    EXPECT_EQ(chosenHost(), discoveredHost);
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    directory.stop();
    EXPECT_EQ(chosenHost(), configuredAddress);
    configure("ldaps://127.0.0.1:1", SlapdServer::bindDN, wrongPassword); // no warning: nothing in clear
    EXPECT_EQ(chosenHost(), configuredAddress);
    configure("", SlapdServer::bindDN, wrongPassword);
    EXPECT_EQ(chosenHost(), configuredAddress);
    expectLog("configured-account");
}

// Two hosts in one entry are no answer, an entry without the keyword is no match, a value far longer
// than any host name is refused, and a root entry naming no context leaves nothing to search.
TEST_F(DiscoveryTest, NoUsableServiceConnectionPointFallsBack) {
    const std::string unrelated =
        "dn: cn=Unrelated,dc=example,dc=com\nobjectClass: serviceConnectionPoint\n"
        "cn: Unrelated\nkeywords: something else\nserviceDNSName: unrelated.example.test\n\n";
    for (const SlapdServer::Options& options : std::vector<SlapdServer::Options>{
             {.entries =
                  SlapdServer::serviceConnectionPoint("Ambiguous", {"one.example.test", "two.example.test"}) +
                  unrelated},
             {.entries = SlapdServer::serviceConnectionPoint("Huge", {std::string(70000, 'h')})},
             {.defaultNamingContext = "", .entries = signaturesEntry}}) {
        configure(startDirectory(options).url());
        EXPECT_EQ(chosenHost(), configuredAddress);
    }
    expectLog("no-usable-entry");
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
    expectLog("whole-exchange");

    // The deployment log the server receives holds the whole exchange, and not the password.
    service.submitDeploymentLog(true, Logger::capturedLog);
    queue.runUntilIdle();
    const auto files = ServerProcess::waitForFiles(signatureServer.logFolder(), 1);
    ASSERT_EQ(files.size(), 1u);
    const std::string received = readWholeFile(files[0]);
    EXPECT_NE(received.find("serviceDNSName found on LDAP: 127.0.0.1"), std::string::npos) << received;
    EXPECT_EQ(received.find(SlapdServer::bindPassword), std::string::npos);
}

} // namespace
} // namespace varnoth::test
