#include "tests/directory/DiscoveryTest.h"

#include "core/Config.h"
#include "core/Logger.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace varnoth::test {

void DiscoveryTest::SetUp() {
    AgentTest::SetUp();
    Logger::captureEnabled = true;
}

SlapdServer& DiscoveryTest::startDirectory(std::string entries, bool anonymousRead) {
    SlapdServer::Options options;
    options.entries = std::move(entries);
    options.anonymousRead = anonymousRead;
    slapd = std::make_unique<SlapdServer>(options);
    EXPECT_TRUE(slapd->start()) << slapd->error();
    return *slapd;
}

void DiscoveryTest::configure(const std::string& ldapServer, const std::string& user,
                              const std::string& password, int signatureServerPort) {
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

std::string DiscoveryTest::chosenHost(NetworkService& service) {
    service.getSignatures("someone@example.test", [](std::optional<SignatureDescriptor>) {});
    EXPECT_TRUE(service.tcpClient);
    return service.tcpClient ? service.tcpClient->address() : "";
}

bool DiscoveryTest::logged(const std::string& line) const {
    const auto lines = logLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::size_t DiscoveryTest::loggedLinesContaining(const std::string& text) const {
    const auto lines = logLines();
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

} // namespace varnoth::test

namespace varnoth {
namespace {

using test::DiscoveryTest;
using test::SlapdServer;

TEST_F(DiscoveryTest, AnonymousLookupFindsTheServiceConnectionPoint) {
    const auto& directory =
        startDirectory(SlapdServer::serviceConnectionPoint("Signatures", {discoveredHost}));
    configure(directory.url());

    NetworkService service;
    EXPECT_EQ(service.getServiceDNSName(), std::nullopt) << "no naming context yet";
    EXPECT_EQ(loggedLinesContaining("LDAP"), 0u) << "nothing to log without a naming context";

    service.getDefaultNamingContext();
    EXPECT_EQ(service.defaultNamingContext, SlapdServer::baseDN);
    EXPECT_EQ(service.getServiceDNSName(), discoveredHost);
    EXPECT_TRUE(logged("defaultNamingContext found on LDAP: dc=example,dc=com"));
    EXPECT_TRUE(logged("serviceDNSName found on LDAP: signatures.example.test"));

    // The port never comes from the directory.
    NetworkService run;
    EXPECT_EQ(chosenHost(run), discoveredHost);
    EXPECT_EQ(run.tcpClient->port(), 5999);
}

TEST_F(DiscoveryTest, ConfiguredAccountBindsAndItsPasswordIsNeverLogged) {
    const auto& directory =
        startDirectory(SlapdServer::serviceConnectionPoint("Signatures", {discoveredHost}), false);

    // Without the account the tree below the root entry is hidden.
    configure(directory.url());
    NetworkService anonymous;
    EXPECT_EQ(chosenHost(anonymous), configuredAddress);
    EXPECT_EQ(anonymous.defaultNamingContext, SlapdServer::baseDN);

    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    Config::shared().logSettings();
    NetworkService bound;
    EXPECT_EQ(chosenHost(bound), discoveredHost);

    configure(directory.url(), SlapdServer::bindDN, "Wr0ng-Secr3t-5521");
    NetworkService refused;
    EXPECT_EQ(chosenHost(refused), configuredAddress);
    EXPECT_TRUE(logged(
        "Error: Failed to get defaultNamingContext from LDAP server: message(\"Invalid credentials\")"));
    EXPECT_EQ(loggedLinesContaining("serviceDNSName"), 1u)
        << "only the successful run finds it; failures stop early";

    for (const std::string secret : {SlapdServer::bindPassword, "Wr0ng-Secr3t-5521"}) {
        EXPECT_EQ(logText().find(secret), std::string::npos);
        EXPECT_EQ(Logger::capturedLog.find(secret), std::string::npos);
    }
}

TEST_F(DiscoveryTest, DirectoryDownFallsBackToTheConfiguredAddress) {
    auto& directory = startDirectory(SlapdServer::serviceConnectionPoint("Signatures", {discoveredHost}));
    configure(directory.url(), SlapdServer::bindDN, SlapdServer::bindPassword);
    directory.stop();

    NetworkService service;
    EXPECT_EQ(chosenHost(service), configuredAddress);
    EXPECT_EQ(service.defaultNamingContext, std::nullopt);
    EXPECT_TRUE(
        logged("Error: Failed to get defaultNamingContext from LDAP server: message(\"Can't contact LDAP "
               "server\")"));
    EXPECT_EQ(loggedLinesContaining("serviceDNSName"), 0u) << "the second lookup needs no directory";
}

TEST_F(DiscoveryTest, NoUsableServiceConnectionPointFallsBackSilently) {
    // Two hosts in one entry are no answer; an entry without the keyword is no match.
    std::string entries =
        SlapdServer::serviceConnectionPoint("Ambiguous", {"one.example.test", "two.example.test"});
    entries += "dn: cn=Unrelated,dc=example,dc=com\nobjectClass: serviceConnectionPoint\ncn: Unrelated\n"
               "keywords: something else\nserviceDNSName: unrelated.example.test\n\n";
    const auto& directory = startDirectory(entries);
    configure(directory.url());

    NetworkService service;
    EXPECT_EQ(chosenHost(service), configuredAddress);
    EXPECT_EQ(service.defaultNamingContext, SlapdServer::baseDN);
    EXPECT_EQ(loggedLinesContaining("serviceDNSName"), 0u);
    EXPECT_EQ(loggedLinesContaining("Error"), 0u);

    // A directory whose root entry names no context: nothing to search below.
    SlapdServer::Options bare;
    bare.defaultNamingContext = "";
    bare.entries = SlapdServer::serviceConnectionPoint("Signatures", {discoveredHost});
    SlapdServer withoutContext(bare);
    ASSERT_TRUE(withoutContext.start()) << withoutContext.error();
    configure(withoutContext.url());
    NetworkService unnamed;
    EXPECT_EQ(chosenHost(unnamed), configuredAddress);
    EXPECT_EQ(unnamed.defaultNamingContext, std::nullopt);
    EXPECT_EQ(loggedLinesContaining("LDAP"), 1u) << "only the first directory's context";
}

TEST_F(DiscoveryTest, EmptyServerSettingMeansLocalDirectoryWithoutCredentials) {
    configure("", SlapdServer::bindDN, "L0cal-Secr3t-7310");
    NetworkService service;
    EXPECT_EQ(chosenHost(service), configuredAddress);
    // The error comes from the attempt on ldaps://localhost: nothing listens there in the tests.
    EXPECT_EQ(loggedLinesContaining("Error: Failed to get defaultNamingContext from LDAP server: message("),
              1u);
    EXPECT_EQ(logText().find("L0cal-Secr3t-7310"), std::string::npos);
    EXPECT_EQ(Logger::capturedLog.find("L0cal-Secr3t-7310"), std::string::npos);
}

} // namespace
} // namespace varnoth
