#pragma once

#include "server/NetworkService.h"
#include "tests/directory/SlapdServer.h"
#include "tests/support/AgentTest.h"

#include <memory>
#include <string>

namespace varnoth::test {

// Finding the signature server's host in a real directory, and falling back to the configured address.
// Captures the log lines, as an update run does.
class DiscoveryTest : public AgentTest {
protected:
    static constexpr const char* configuredAddress = "configured.example.test";
    static constexpr const char* discoveredHost = "signatures.example.test";

    void SetUp() override;

    // Starts a directory whose tree holds the given extra entries.
    SlapdServer& startDirectory(std::string entries, bool anonymousRead = true);

    // The administrator's property-list file: a bind DN holds "=", which the text file cannot carry.
    void configure(const std::string& ldapServer, const std::string& user = "",
                   const std::string& password = "", int signatureServerPort = 5999);

    // The host that getSignatures chose; the query itself stays queued on the manual main queue.
    std::string chosenHost(NetworkService& service);

    bool logged(const std::string& line) const;
    std::size_t loggedLinesContaining(const std::string& text) const;

    std::unique_ptr<SlapdServer> slapd;
};

} // namespace varnoth::test
