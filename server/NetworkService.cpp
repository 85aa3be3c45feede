#include "server/NetworkService.h"

#include "base/Logger.h"
#include "base/TextValues.h"
#include "config/Config.h"
#include "directory/LDAP.h"
#include "platform/Platform.h"
#include "platform/Termination.h"
#include "server/Framing.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"

#include <algorithm>

namespace varnoth {

NetworkService::NetworkService() : self_(std::make_shared<NetworkService*>(this)) {}

NetworkService::~NetworkService() = default;

// What a directory search needs, taken from the configuration on the main thread.
struct NetworkService::Directory {
    std::string url;
    std::shared_ptr<LDAP::Login> login; // none: anonymous over TLS to the local directory
};

// The outcome of one directory search: the value, or why there is none.
struct NetworkService::Lookup {
    std::optional<std::string> value;
    std::optional<std::string> error;
};

// The outcome of reading an answer: its text, or why reading stopped.
struct NetworkService::Received {
    enum class Ending { complete, timedOut, stopped, tooLarge } ending = Ending::complete;
    std::optional<std::string> text; // the decoded answer, when complete and valid UTF-16
};

void NetworkService::runStep(const std::weak_ptr<NetworkService*>& weak,
                             const std::function<void(NetworkService&)>& step) {
    NetworkService* service = nullptr;
    if (const auto self = weak.lock()) {
        service = *self;
    } else {
        return;
    }
    step(*service);
    // The step may have dropped the service (a completion that ends the run's owner).
    if (weak.expired() || --service->pendingSteps_ > 0 || !service->whenIdle_) {
        return;
    }
    const auto next = std::move(service->whenIdle_);
    service->whenIdle_ = nullptr;
    next();
}

void NetworkService::whenIdle(std::function<void()> next) {
    if (pendingSteps_ == 0) {
        next();
        return;
    }
    whenIdle_ = std::move(next);
}

void NetworkService::schedule(std::chrono::milliseconds delay, std::function<void(NetworkService&)> step) {
    ++pendingSteps_;
    auto task = [weak = std::weak_ptr<NetworkService*>(self_), step = std::move(step)] {
        runStep(weak, step);
    };
    if (delay.count() == 0) {
        Platform::mainQueue().post(std::move(task));
    } else {
        Platform::mainQueue().postAfter(delay, std::move(task));
    }
}

template <typename Result>
void NetworkService::offMain(std::function<Result()> work,
                             std::function<void(NetworkService&, Result)> step) {
    ++pendingSteps_;
    auto result = std::make_shared<std::optional<Result>>();
    Platform::worker().run([work = std::move(work), result] { result->emplace(work()); },
                           [weak = std::weak_ptr<NetworkService*>(self_), step = std::move(step), result] {
                               runStep(weak,
                                       [&](NetworkService& service) { step(service, std::move(**result)); });
                           });
}

void NetworkService::getSignatures(const std::string& email, Completion completion) {
    auto query = [email, completion = std::move(completion)](NetworkService& service,
                                                             std::string host) mutable {
        if (host.empty()) {
            host = Config::shared().SignatureServerAddress();
        }
        service.tcpClient = std::make_shared<TCPClient>(host, Config::shared().SignatureServerPort());
        service.schedule(std::chrono::milliseconds(0),
                         [email, completion = std::move(completion)](NetworkService& service) mutable {
                             service.querySignatures(email, std::move(completion));
                         });
    };
    if (Config::shared().SignatureServerAutodetect()) {
        discoverHost(std::move(query));
    } else {
        query(*this, "");
    }
}

void NetworkService::connectAndSend(std::string request, std::function<void(NetworkService&, bool)> then) {
    const std::shared_ptr<TCPClient> client = tcpClient;
    offMain<std::optional<TCPError>>(
        [client, timeout = connectTimeout] { return client->connect(timeout); },
        [client, request = std::move(request),
         then = std::move(then)](NetworkService& service, std::optional<TCPError> error) mutable {
            if (error) {
                Logger::log("Failed to connect to host: " + client->address() +
                            " error: " + error->localizedDescription);
                then(service, false);
                return;
            }
            Logger::log("Successfully connected to host: " + client->address());
            service.offMain<std::optional<TCPError>>(
                [client, request = std::move(request)] { return client->send(request); },
                [client, then = std::move(then)](NetworkService& service, std::optional<TCPError> error) {
                    if (error) {
                        Logger::log("Query server: " + client->address() +
                                    " error: " + error->localizedDescription);
                        then(service, false);
                        return;
                    }
                    Logger::log("Successfully sent query to: " + client->address());
                    then(service, true);
                });
        });
}

void NetworkService::querySignatures(const std::string& email, Completion completion) {
    connectAndSend(makeSignaturesRequest(email),
                   [email, completion = std::move(completion)](NetworkService& service, bool sent) mutable {
                       if (!sent) {
                           completion(std::nullopt);
                           return;
                       }
                       service.schedule(std::chrono::seconds(1),
                                        [email, completion = std::move(completion)](NetworkService& service) {
                                            service.receiveSignatures(email, completion);
                                        });
                   });
}

void NetworkService::receiveSignatures(const std::string& email, Completion completion) {
    offMain<Received>(
        [client = tcpClient, clock = &Platform::clock(), timeout = readTimeout, maxBytes = maxResponseBytes] {
            return receive(*client, *clock, timeout, maxBytes);
        },
        [email, completion = std::move(completion)](NetworkService& service, Received received) {
            const std::optional<std::string> text = service.unframeReceived(std::move(received));
            if (!text) {
                completion(std::nullopt);
                return;
            }
            Logger::log("Successfully received response from: " + service.tcpClient->address());
            std::optional<SignatureDescriptor> descriptor = service.parseSignatures(*text);
            if (!descriptor) {
                Logger::log("Error: Parsing signature failed for " + email);
                Logger::log(Logger::quoted(*text));
                completion(std::nullopt);
                return;
            }
            Logger::log("Parsed signature successfully for " + email);
            completion(std::move(descriptor));
        });
}

std::optional<std::string> NetworkService::readResponse() {
    return unframeReceived(receive(*tcpClient, Platform::clock(), readTimeout, maxResponseBytes));
}

NetworkService::Received NetworkService::receive(TCPClient& client, const Clock& clock,
                                                 std::chrono::milliseconds timeout, std::size_t maxBytes) {
    const auto start = clock.steadyNow();
    std::string buffer;
    for (;;) {
        if (Termination::requested()) {
            return {Received::Ending::stopped, {}};
        }
        if (clock.steadyNow() - start > timeout) {
            return {Received::Ending::timedOut, {}};
        }
        const std::size_t chunkStart = buffer.size();
        if (client.readAppending(buffer, readLength, -1) == 0) {
            continue;
        }
        if (buffer.size() > maxBytes) {
            return {Received::Ending::tooLarge, {}};
        }
        if (framing::chunkHoldsEndMarker(buffer, chunkStart)) {
            break;
        }
    }
    std::optional<std::string> text = utf16::decode(buffer);
    std::string().swap(buffer);
    return {Received::Ending::complete, std::move(text)};
}

std::optional<std::string> NetworkService::unframeReceived(Received received) const {
    switch (received.ending) {
    case Received::Ending::timedOut:
        Logger::log("Error: reading server response timed out");
        return std::nullopt;
    case Received::Ending::stopped:
        Logger::log("Error: reading server response stopped: the agent is exiting");
        return std::nullopt;
    case Received::Ending::tooLarge:
        Logger::log("Error: response from server exceeds " + std::to_string(maxResponseBytes) +
                    " bytes, reading stopped");
        return std::nullopt;
    case Received::Ending::complete:
        break;
    }
    std::optional<std::string>& text = received.text;
    if (!text) {
        Logger::log("Error: No response from server");
        return std::nullopt;
    }
    if (text->find(framing::startMarker) == std::string::npos ||
        text->find(framing::endMarker) == std::string::npos) {
        Logger::log("Error: Unsupported response from server: " + Logger::quoted(*text));
        return std::nullopt;
    }
    return framing::unframe(std::move(*text));
}

std::optional<SignatureDescriptor> NetworkService::parseSignatures(const std::string& text) {
    DeploymentFields fields{deployIdentifier, deployInformation};
    std::optional<SignatureDescriptor> descriptor = parseSignatureAnswer(text, fields);
    deployIdentifier = std::move(fields.deployIdentifier);
    deployInformation = std::move(fields.deployInformation);
    return descriptor;
}

void NetworkService::submitDeploymentLog(bool success, const std::string& log) {
    const BundleInfo& bundle = Platform::bundle();
    DeploymentLogContent content;
    content.times = deploymentTimes(Platform::clock().now());
    content.deployIdentifier = deployIdentifier;
    content.deployInformation = deployInformation;
    content.bundleName = bundle.name;
    content.shortVersion = bundle.shortVersion;
    content.bundleVersion = bundle.version;
    content.success = success;
    content.log = log;
    std::string body = makeDeploymentLogBody(content);
    Logger::log("Submitting deployment log");
    schedule(std::chrono::milliseconds(0),
             [body = std::move(body)](NetworkService& service) { service.sendDeploymentLog(body); });
}

void NetworkService::sendDeploymentLog(const std::string& body) {
    if (!tcpClient) {
        // The run never asked for signatures (it had no address): report to the configured server.
        Config& config = Config::shared();
        tcpClient =
            std::make_shared<TCPClient>(config.SignatureServerAddress(), config.SignatureServerPort());
    }
    connectAndSend(makeDeploymentLogRequest(body), [](NetworkService&, bool) {});
}

// ---------------------------------------------------------------------------------------------
// Directory discovery of the server's host name: the directory's naming context, then the service
// connection point below it. When they find nothing, getSignatures falls back to
// SignatureServerAddress. Keep them together at the end of this file.
// ---------------------------------------------------------------------------------------------

NetworkService::Directory NetworkService::directory() {
    // A fresh connection per lookup. Without a configured server the local directory is asked over
    // TLS, anonymously; otherwise the bind is LDAPUser's (anonymous when it and LDAPPassword are empty).
    const Config& config = Config::shared();
    const std::string server = config.LDAPServer();
    if (server.empty()) {
        return {"ldaps://localhost", nullptr};
    }
    const std::string password = config.LDAPPassword();
    // LDAPServer may list several URLs, blanks or commas between them; the password goes to whichever
    // answers first, so any ldap:// among them may carry it in clear.
    bool clearText = false;
    for (std::size_t start = server.find_first_not_of(" \t,"); start != std::string::npos;) {
        const std::size_t end = std::min(server.find_first_of(" \t,", start), server.size());
        const std::string_view url = std::string_view(server).substr(start, end - start);
        clearText = clearText || text::lowercased(url.substr(0, url.find("://"))) == "ldap";
        start = server.find_first_not_of(" \t,", end);
    }
    if (!password.empty() && !passwordWarningGiven_ && clearText) {
        passwordWarningGiven_ = true;
        Logger::log("Warning: the directory password travels unencrypted over ldap://; use an ldaps:// "
                    "address in LDAPServer to protect it");
    }
    return {server, std::make_shared<LDAP::Login>(config.LDAPUser(), password)};
}

NetworkService::Lookup NetworkService::lookUp(const Directory& directory, const char* what,
                                              const std::string& base, const std::string& filter,
                                              LDAP::Scope scope) {
    try {
        // Opening binds, so it belongs to the blocking part too.
        LDAP session(directory.url, directory.login, Iconv::CodePage::UTF8);
        return {LDAP::firstText(session.search(base, filter, scope, {what}, "")), std::nullopt};
    } catch (const std::exception& error) {
        return {std::nullopt, error.what()};
    }
}

std::optional<std::string> NetworkService::reportLookup(const char* what, const Lookup& lookup) {
    if (lookup.error) {
        Logger::log(std::string("Error: Failed to get ") + what + " from LDAP server: " + *lookup.error);
        return std::nullopt;
    }
    const std::optional<std::string>& value = lookup.value;
    if (!value) {
        return std::nullopt;
    }
    // A host name or a naming context is short; anything this long is not one.
    if (value->size() > maxDirectoryValueBytes) {
        Logger::log(std::string("Error: ") + what +
                    " from LDAP server refused: " + std::to_string(value->size()) + " bytes, more than " +
                    std::to_string(maxDirectoryValueBytes));
        return std::nullopt;
    }
    Logger::log(std::string(what) + " found on LDAP: " + Logger::quoted(*value));
    return value;
}

namespace {

// The signature server publishes itself under this fixed keyword.
const std::string serviceFilter =
    "(&(objectClass=serviceConnectionPoint)(keywords=5d0c7a2e-3f41-4b8e-9a6d-1c2e7f9b0a31))";

} // namespace

void NetworkService::getDefaultNamingContext() {
    if (auto value = reportLookup("defaultNamingContext", lookUp(directory(), "defaultNamingContext", "",
                                                                 "(objectclass=*)", LDAP::Scope::BASE))) {
        defaultNamingContext = std::move(value);
    }
}

std::optional<std::string> NetworkService::getServiceDNSName() {
    if (!defaultNamingContext) {
        return std::nullopt;
    }
    return reportLookup("serviceDNSName", lookUp(directory(), "serviceDNSName", *defaultNamingContext,
                                                 serviceFilter, LDAP::Scope::SUBTREE));
}

void NetworkService::discoverHost(std::function<void(NetworkService&, std::string)> then) {
    offMain<Lookup>(
        [directory = directory()] {
            return lookUp(directory, "defaultNamingContext", "", "(objectclass=*)", LDAP::Scope::BASE);
        },
        [then = std::move(then)](NetworkService& service, Lookup lookup) {
            if (auto value = reportLookup("defaultNamingContext", lookup)) {
                service.defaultNamingContext = std::move(value);
            }
            if (!service.defaultNamingContext) {
                then(service, "");
                return;
            }
            service.offMain<Lookup>(
                [directory = service.directory(), base = *service.defaultNamingContext] {
                    return lookUp(directory, "serviceDNSName", base, serviceFilter, LDAP::Scope::SUBTREE);
                },
                [then](NetworkService& service, Lookup lookup) {
                    then(service, reportLookup("serviceDNSName", lookup).value_or(""));
                });
        });
}

} // namespace varnoth
