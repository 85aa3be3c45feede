#include "server/SignatureDocuments.h"

#include "base/Logger.h"
#include "base/TextValues.h"
#include "server/Framing.h"
#include "server/Utf16.h"

#include <algorithm>
#include <ctime>
#include <initializer_list>
#include <pugixml.hpp>

namespace varnoth {

namespace {

// All direct character data of the element; none when there is no element or no character data. A
// character reference to a surrogate or beyond U+10FFFF becomes U+FFFD: Outlook would keep such a text in
// another form, so a default holding it would never compare equal, nor a signature so named be deleted.
std::optional<std::string> textOf(const pugi::xml_node& element) {
    if (!element) {
        return std::nullopt;
    }
    std::string text;
    for (const pugi::xml_node& child : element.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            text += child.value();
        }
    }
    if (text.empty()) {
        return std::nullopt;
    }
    return utf16::wellFormed(std::move(text));
}

// The first element reached by following the names one at a time from the document.
pugi::xml_node lookup(const pugi::xml_document& document, std::initializer_list<const char*> path) {
    pugi::xml_node node = document;
    for (const char* name : path) {
        node = node.child(name);
    }
    return node;
}

SignatureAction actionFor(const std::string& id, const char* what) {
    const std::string prefix = std::string("Default ") + what + " signature id set to ";
    if (id == "-1") {
        Logger::log(prefix + "-1: Don't change");
        return SignatureAction::dontchange;
    }
    if (id == "0") {
        Logger::log(prefix + "0: None");
        return SignatureAction::clear;
    }
    return SignatureAction::change;
}

constexpr std::size_t maxTemplates = 500;

std::string parseErrorDescription(const pugi::xml_parse_result& result) {
    return std::string(result.description()) + " at offset " + std::to_string(result.offset);
}

} // namespace

std::string asciiLowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
    });
    return text;
}

std::string makeSignaturesRequest(const std::string& emailAddress) {
    return framing::frameRequest("GetSignatures", "1.1.0",
                                 "<EmailAddress>" + emailAddress + "</EmailAddress>");
}

std::string makeDeploymentLogRequest(const std::string& body) {
    return framing::frameRequest("SubmitDeploymentLog", "1.2.0", body);
}

std::optional<SignatureDescriptor> parseSignatureAnswer(const std::string& text, DeploymentFields& fields) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed =
        // Blanks are character data: <DefaultSignature> </DefaultSignature> holds an id of one blank.
        document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_ws_pcdata,
                             pugi::encoding_utf8);

    const auto defaultId = textOf(lookup(document, {"Response", "DeploymentData", "DefaultSignature"}));
    const auto replyId = textOf(lookup(document, {"Response", "DeploymentData", "ReplyForwardSignature"}));
    if (!defaultId || !replyId) {
        Logger::log("Error: DefaultSignature or ReplyForwardSignature missing");
        return SignatureDescriptor::noSettingDescriptor();
    }

    const auto identifier = textOf(lookup(document, {"Response", "Identifier"}));
    if (!identifier) {
        Logger::log("Warning: There are no signatures defined for the user.");
        return SignatureDescriptor::noSettingDescriptor();
    }
    // Both go back to the server as they came, in the deployment log's request: a frame marker in
    // either would end that request early and pose as a request of its own.
    if (framing::holdsMarker(*identifier)) {
        Logger::log("Error: the deployment identifier holds a frame marker; it is not sent back");
        fields.deployIdentifier.clear();
    } else {
        fields.deployIdentifier = *identifier;
    }

    // The deployment information goes back to the server as it came, so it is cut from the text.
    constexpr std::string_view openTag = "<DeploymentInformation>";
    constexpr std::string_view closeTag = "</DeploymentInformation>";
    const std::size_t open = text.find(openTag);
    const std::size_t close = text.find(closeTag);
    const bool found = open != std::string::npos && close != std::string::npos && close >= open;
    if (found && framing::holdsMarker(std::string_view(text).substr(open, close - open))) {
        Logger::log("Error: <DeploymentInformation> holds a frame marker; it is not sent back");
        fields.deployInformation.clear();
    } else if (found) {
        fields.deployInformation = text.substr(open, close + closeTag.size() - open);
    } else {
        Logger::log("Warning: no <DeploymentInformation> found in response");
    }

    const auto source =
        textOf(lookup(document, {"Response", "DeploymentInformation", "DeploymentDataSource"}));
    const auto sourceName =
        textOf(lookup(document, {"Response", "DeploymentInformation", "DeploymentDataSourceName"}));
    if (source && sourceName) {
        Logger::log("Using the deployment configuration specified for the " +
                    Logger::quoted(text::lowercased(*source)) + " '" + Logger::quoted(*sourceName) + "'.");
    } else {
        Logger::log("Warning: no <DeploymentDataSource> or <DeploymentDataSourceName> found in response");
    }

    SignatureDescriptor descriptor;
    descriptor.defaultSignatureAction = actionFor(*defaultId, "new");
    descriptor.replySignatureAction = actionFor(*replyId, "reply forward");
    descriptor.defaultSignature = std::string();
    descriptor.replySignature = std::string();

    const pugi::xml_node templates = lookup(document, {"Response", "DeploymentData", "Templates"});
    std::size_t templateCount = 0;
    for (const pugi::xml_node& item : templates.children("Template")) {
        // Each one costs a log line and an Outlook operation: a runaway answer is cut short.
        if (++templateCount > maxTemplates) {
            Logger::log("Error: response from server holds more than " + std::to_string(maxTemplates) +
                        " templates; the others are ignored");
            break;
        }
        std::string name = textOf(item.child("Name")).value_or("");
        std::string content = textOf(item.child("HTML")).value_or("");
        const auto id = textOf(item.child("Id"));
        const bool isDefault = id && *id == *defaultId;
        const bool isReply = id && *id == *replyId;
        if (isDefault) {
            Logger::log("Default new signature found on server");
            Logger::log("New signature is: " + Logger::quoted(name));
            descriptor.defaultSignature = content;
        }
        if (isReply) {
            Logger::log("Default reply forward signature found on server");
            Logger::log("Reply forward signature is: " + Logger::quoted(name));
            descriptor.replySignature = std::move(content);
        }
        if (!isDefault && !isReply) {
            Logger::log("Found signature: " + Logger::quoted(name));
            descriptor.additionalSignatures.insert_or_assign(std::move(name), std::move(content));
        }
    }

    const auto globalText =
        textOf(lookup(document, {"Response", "ApplicationSettings", "RemoveOtherSignatures"}));
    const bool global = globalText && text::lowercased(*globalText) == "true";
    Logger::log(std::string("Remove other signatures set to ") + (global ? "true" : "false") +
                " in global deployment options");

    const std::string account =
        textOf(lookup(document, {"Response", "DeploymentData", "RemoveOtherSignatures"})).value_or("");
    descriptor.removeOtherSignatures = global;
    if (account == "RemoveOtherSignatures") {
        descriptor.removeOtherSignatures = true;
        Logger::log("Remove other signatures for this account is: Remove all signatures not deployed");
    } else if (account == "PreseveOtherSignatures") {
        descriptor.removeOtherSignatures = false;
        Logger::log("Remove other signatures for this account is: Do not remove other signatures");
    } else if (account == "UseGlobalSettings") {
        Logger::log("Remove other signatures for this account is: Use deployment options configuration");
    }

    if (!parsed) {
        Logger::log("Error: failed to parse XML error: " + parseErrorDescription(parsed) +
                    " for response: " + Logger::quoted(text));
        return std::nullopt;
    }
    return descriptor;
}

std::string escapeDeploymentLog(std::string_view log) {
    std::string text = text::replaceAll(std::string(log), "&", "&amp;");
    text = text::replaceAll(std::move(text), ">", "&gt;");
    return text::replaceAll(std::move(text), "<", "&lt;");
}

DeploymentTimes deploymentTimes(std::chrono::system_clock::time_point instant) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(instant);
    const auto format = [](const std::tm& parts) {
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
        return std::string(text);
    };
    std::tm utc{};
    std::tm local{};
    gmtime_r(&seconds, &utc);
    tzset(); // the computer's zone may have changed while the agent runs
    localtime_r(&seconds, &local);
    return {format(utc), format(local)};
}

std::string makeDeploymentLogBody(const DeploymentLogContent& content) {
    std::string body;
    body.reserve(content.log.size() + content.deployInformation.size() + 512);
    body += content.deployIdentifier;
    body += content.deployInformation;
    body += "<ExecutableFullFileName>" + content.bundleName + "</ExecutableFullFileName>";
    body +=
        "<ExecutableVersion>" + content.shortVersion + "." + content.bundleVersion + "</ExecutableVersion>";
    body += std::string("<Result>") + (content.success ? "Success" : "Failure") + "</Result>";
    body += "<DeploymentLog>" + escapeDeploymentLog(content.log) + "</DeploymentLog>";
    body += "<DateTimeUtc>" + content.times.utc + "</DateTimeUtc>";
    body += "<DateTimeLocal>" + content.times.local + "</DateTimeLocal>";
    return body;
}

} // namespace varnoth
