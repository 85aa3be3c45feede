#pragma once

#include "directory/LDAP.h"
#include "platform/Clock.h"
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
// reports the run's log back. The steps of an exchange run on the main queue; their blocking calls (the
// connect, the send, the read, the directory searches) run on the platform's worker, and what they found
// is logged and decided on the main queue again. A step that comes due after the service was dropped does
// nothing (and the completion of that exchange is not called).
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

    // Calls next on the main queue once no step of an exchange is queued or under way (at once when none
    // is): the deployment log has then been sent.
    void whenIdle(std::function<void()> next);

    // Parses an unframed answer and keeps its deployment identification in the two fields below.
    std::optional<SignatureDescriptor> parseSignatures(const std::string& text);

    std::shared_ptr<TCPClient> tcpClient; // shared with the blocking call under way
    std::string deployIdentifier;
    std::string deployInformation;
    std::optional<std::string> defaultNamingContext;

    // Bounds of the exchange; tests shorten them.
    std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};
    std::chrono::milliseconds readTimeout{std::chrono::seconds(20)};
    std::size_t maxResponseBytes = defaultMaxResponseBytes;

    // Directory discovery of the server's host name, on the calling thread.
    void getDefaultNamingContext();
    std::optional<std::string> getServiceDNSName();

private:
    struct Directory;
    struct Lookup;
    struct Received;

    // The directory as LDAPServer, LDAPUser and LDAPPassword name it, ready to be opened anywhere.
    Directory directory();
    // One search for the attribute what: blocking, and without a log line, so it may run on the worker.
    static Lookup lookUp(const Directory& directory, const char* what, const std::string& base,
                         const std::string& filter, LDAP::Scope scope);
    // The value found, or nothing; logged either way.
    static std::optional<std::string> reportLookup(const char* what, const Lookup& lookup);
    // Discovery on the worker: the naming context, the service connection point, then the host.
    void discoverHost(std::function<void(NetworkService&, std::string)> then);
    void querySignatures(const std::string& email, Completion completion);
    void receiveSignatures(const std::string& email, Completion completion);
    void sendDeploymentLog(const std::string& body);
    // Connects tcpClient and sends the request on the worker, logging each step; then with whether both
    // worked.
    void connectAndSend(std::string request, std::function<void(NetworkService&, bool)> then);
    // The blocking part of readResponse, and what the main thread makes of its outcome.
    static Received receive(TCPClient& client, const Clock& clock, std::chrono::milliseconds timeout,
                            std::size_t maxBytes);
    std::optional<std::string> unframeReceived(Received received) const;

    // Runs a step on the main queue, after the delay, unless the service is gone by then.
    void schedule(std::chrono::milliseconds delay, std::function<void(NetworkService&)> step);
    // Runs work on the platform's worker, then the step with its result on the main queue, unless the
    // service is gone by then.
    template <typename Result>
    void offMain(std::function<Result()> work, std::function<void(NetworkService&, Result)> step);
    // Runs a due step and counts it done.
    static void runStep(const std::weak_ptr<NetworkService*>& weak,
                        const std::function<void(NetworkService&)>& step);

    std::shared_ptr<NetworkService*> self_;
    bool passwordWarningGiven_ = false;
    int pendingSteps_ = 0;
    std::function<void()> whenIdle_;
};

} // namespace varnoth
