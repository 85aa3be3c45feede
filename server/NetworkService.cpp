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

void NetworkService::schedule(std::chrono::milliseconds delay, std::function<void(NetworkService&)> step) {
    auto task = [weak = std::weak_ptr<NetworkService*>(self_), step = std::move(step)] {
        if (const auto self = weak.lock()) {
            step(**self);
        }
    };
    if (delay.count() == 0) {
        Platform::mainQueue().post(std::move(task));
    } else {
        Platform::mainQueue().postAfter(delay, std::move(task));
    }
}

void NetworkService::getSignatures(const std::string& email, Completion completion) {
    Config& config = Config::shared();
    std::string host;
    if (config.SignatureServerAutodetect()) {
        getDefaultNamingContext();
        host = getServiceDNSName().value_or("");
    }
    if (host.empty()) {
        host = config.SignatureServerAddress();
    }
    tcpClient = std::make_unique<TCPClient>(host, config.SignatureServerPort());
    schedule(std::chrono::milliseconds(0),
             [email, completion = std::move(completion)](NetworkService& service) mutable {
                 service.querySignatures(email, std::move(completion));
             });
}

bool NetworkService::connectAndSend(const std::string& request) {
    if (const auto error = tcpClient->connect(connectTimeout)) {
        Logger::log("Failed to connect to host: " + tcpClient->address() +
                    " error: " + error->localizedDescription);
        return false;
    }
    Logger::log("Successfully connected to host: " + tcpClient->address());
    if (const auto error = tcpClient->send(request)) {
        Logger::log("Query server: " + tcpClient->address() + " error: " + error->localizedDescription);
        return false;
    }
    Logger::log("Successfully sent query to: " + tcpClient->address());
    return true;
}

void NetworkService::querySignatures(const std::string& email, Completion completion) {
    if (!connectAndSend(makeSignaturesRequest(email))) {
        completion(std::nullopt);
        return;
    }
    schedule(std::chrono::seconds(1),
             [email, completion = std::move(completion)](NetworkService& service) mutable {
                 service.receiveSignatures(email, std::move(completion));
             });
}

void NetworkService::receiveSignatures(const std::string& email, Completion completion) {
    const std::optional<std::string> text = readResponse();
    if (!text) {
        completion(std::nullopt);
        return;
    }
    Logger::log("Successfully received response from: " + tcpClient->address());
    std::optional<SignatureDescriptor> descriptor = parseSignatures(*text);
    if (!descriptor) {
        Logger::log("Error: Parsing signature failed for " + email);
        Logger::log(Logger::quoted(*text));
        completion(std::nullopt);
        return;
    }
    Logger::log("Parsed signature successfully for " + email);
    completion(std::move(descriptor));
}

std::optional<std::string> NetworkService::readResponse() {
    Clock& clock = Platform::clock();
    const auto start = clock.steadyNow();
    std::string buffer;
    for (;;) {
        if (clock.steadyNow() - start > readTimeout) {
            Logger::log("Error: reading server response timed out");
            return std::nullopt;
        }
        if (Termination::requested()) {
            Logger::log("Error: reading server response stopped: the agent is exiting");
            return std::nullopt;
        }
        const std::size_t chunkStart = buffer.size();
        if (tcpClient->readAppending(buffer, readLength, -1) == 0) {
            continue;
        }
        if (buffer.size() > maxResponseBytes) {
            Logger::log("Error: response from server exceeds " + std::to_string(maxResponseBytes) +
                        " bytes, reading stopped");
            return std::nullopt;
        }
        if (framing::chunkHoldsEndMarker(buffer, chunkStart)) {
            break;
        }
    }

    std::optional<std::string> text = utf16::decode(buffer);
    std::string().swap(buffer);
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
            std::make_unique<TCPClient>(config.SignatureServerAddress(), config.SignatureServerPort());
    }
    connectAndSend(makeDeploymentLogRequest(body));
}

// ---------------------------------------------------------------------------------------------
// Directory discovery of the server's host name: the directory's naming context, then the service
// connection point below it. When they find nothing, getSignatures falls back to
// SignatureServerAddress. Keep them together at the end of this file.
// ---------------------------------------------------------------------------------------------

std::unique_ptr<LDAP> NetworkService::openDirectory() {
    // A fresh connection per lookup. Without a configured server the local directory is asked over
    // TLS, anonymously; otherwise the bind is LDAPUser's (anonymous when it and LDAPPassword are empty).
    const Config& config = Config::shared();
    const std::string server = config.LDAPServer();
    if (server.empty()) {
        return std::make_unique<LDAP>("ldaps://localhost", nullptr, Iconv::CodePage::UTF8);
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
    return std::make_unique<LDAP>(server, std::make_shared<LDAP::Login>(config.LDAPUser(), password),
                                  Iconv::CodePage::UTF8);
}

std::optional<std::string> NetworkService::discover(const char* what, const std::string& base,
                                                    const std::string& filter, LDAP::Scope scope) {
    try {
        const auto value = LDAP::firstText(openDirectory()->search(base, filter, scope, {what}, ""));
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
    } catch (const std::exception& error) {
        Logger::log(std::string("Error: Failed to get ") + what + " from LDAP server: " + error.what());
        return std::nullopt;
    }
}

void NetworkService::getDefaultNamingContext() {
    if (auto value = discover("defaultNamingContext", "", "(objectclass=*)", LDAP::Scope::BASE)) {
        defaultNamingContext = std::move(value);
    }
}

std::optional<std::string> NetworkService::getServiceDNSName() {
    if (!defaultNamingContext) {
        return std::nullopt;
    }
    // The signature server publishes itself under this fixed keyword.
    return discover("serviceDNSName", *defaultNamingContext,
                    "(&(objectClass=serviceConnectionPoint)(keywords=5d0c7a2e-3f41-4b8e-9a6d-1c2e7f9b0a31))",
                    LDAP::Scope::SUBTREE);
}

} // namespace varnoth
