#pragma once

#include "directory/LDAP.h"
#include "server/SignatureDescriptor.h"
#include "server/TCPClient.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varnoth {

// The signature server client of one update run: asks for the signature set of one mailbox and
// reports the run's log back. The steps of an exchange run on the main queue; a step that comes due
// after the service was dropped does nothing (and the completion of that exchange is not called).
class NetworkService {
public:
    using Completion = std::function<void(std::optional<SignatureDescriptor>)>;

    static constexpr std::size_t readLength = 102400;
    static constexpr std::size_t defaultMaxResponseBytes = 64 * 1024 * 1024;
    static constexpr std::size_t maxDirectoryValueBytes = 64 * 1024;

    NetworkService();
    ~NetworkService();
    NetworkService(const NetworkService&) = delete;
    NetworkService& operator=(const NetworkService&) = delete;

    // Chooses the host (directory discovery when configured, else SignatureServerAddress) and the
    // port (SignatureServerPort), builds a new client and schedules the query. The completion is
    // called once, later, on the main queue: with the descriptor, or with nothing on any failure.
    void getSignatures(const std::string& email, Completion completion);

    // Reports the run's log lines with "Success" or "Failure"; the outcome only shows in the log file.
    // Without a client from getSignatures, one is built from SignatureServerAddress and
    // SignatureServerPort.
    void submitDeploymentLog(bool success, const std::string& log);

    // Reads the framed answer from tcpClient and returns its unframed text, or nothing (logged).
    std::optional<std::string> readResponse();

    // Parses an unframed answer and keeps its deployment identification in the two fields below.
    std::optional<SignatureDescriptor> parseSignatures(const std::string& text);

    std::unique_ptr<TCPClient> tcpClient;
    std::string deployIdentifier;
    std::string deployInformation;
    std::optional<std::string> defaultNamingContext;

    // Bounds of the exchange; tests shorten them.
    std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};
    std::chrono::milliseconds readTimeout{std::chrono::seconds(20)};
    std::size_t maxResponseBytes = defaultMaxResponseBytes;

    // Directory discovery of the server's host name.
    void getDefaultNamingContext();
    std::optional<std::string> getServiceDNSName();

private:
    // The directory as LDAPServer, LDAPUser and LDAPPassword name it; throws as LDAP does.
    std::unique_ptr<LDAP> openDirectory();
    // The first value of the attribute what, from one search; nothing (logged) on failure.
    std::optional<std::string> discover(const char* what, const std::string& base, const std::string& filter,
                                        LDAP::Scope scope);
    void querySignatures(const std::string& email, Completion completion);
    void receiveSignatures(const std::string& email, Completion completion);
    void sendDeploymentLog(const std::string& body);
    // Runs a step on the main queue, after the delay, unless the service is gone by then.
    void schedule(std::chrono::milliseconds delay, std::function<void(NetworkService&)> step);
    // Connects tcpClient and sends the request; false (logged) on failure.
    bool connectAndSend(const std::string& request);

    std::shared_ptr<NetworkService*> self_;
    bool passwordWarningGiven_ = false;
};

} // namespace varnoth
