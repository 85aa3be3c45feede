#include "outlook/AppleScriptProtocol.h"

#include "base/Logger.h"

#include <algorithm>
#include <exception>

namespace varnoth {

std::size_t AppleScriptProtocol::argumentCount(std::string_view selector) {
    return static_cast<std::size_t>(std::count(selector.begin(), selector.end(), ':'));
}

bool AppleScriptProtocol::isSelector(std::string_view selector) {
    return std::find(selectors.begin(), selectors.end(), selector) != selectors.end();
}

AppleScriptProtocol::AppleScriptProtocol(std::unique_ptr<ScriptObject> object) : object_(std::move(object)) {}

std::optional<std::string> AppleScriptProtocol::text(std::string_view selector,
                                                     const std::vector<std::string>& arguments) {
    const ScriptReply reply = send(selector, arguments);
    if (!reply.delivered) {
        return std::nullopt;
    }
    // A script that returns no string at all is read as empty text.
    return reply.text.value_or(std::string());
}

bool AppleScriptProtocol::deliver(std::string_view selector, const std::vector<std::string>& arguments) {
    return send(selector, arguments).delivered;
}

ScriptReply AppleScriptProtocol::send(std::string_view selector, const std::vector<std::string>& arguments) {
    // Whatever goes wrong on the far side is that operation's failure; the agent carries on.
    ScriptReply reply;
    try {
        reply = object_->send(selector, arguments);
    } catch (const std::exception& error) {
        reply = ScriptReply::failed(error.what());
    }
    if (!reply.delivered) {
        lastFailure_ = reply;
        if (reply.errorNumber() != 0) {
            Logger::log("Outlook script " + std::string(selector) +
                        " failed: " + Logger::quoted(reply.error));
        }
    }
    return reply;
}

std::optional<std::string> AppleScriptProtocol::getDefaultAccount() {
    return text(Selector::getDefaultAccount, {});
}

std::optional<std::string> AppleScriptProtocol::getSignature(const std::string& name) {
    return text(Selector::getSignature, {name});
}

bool AppleScriptProtocol::applySignaturesFor(const std::string& account) {
    return deliver(Selector::applySignaturesFor, {account});
}

bool AppleScriptProtocol::applyDefaultNewSignatureFor(const std::string& account) {
    return deliver(Selector::applyDefaultNewSignatureFor, {account});
}

bool AppleScriptProtocol::applyDefaultReplySignatureFor(const std::string& account) {
    return deliver(Selector::applyDefaultReplySignatureFor, {account});
}

bool AppleScriptProtocol::applyNoneSignaturesFor(const std::string& account) {
    return deliver(Selector::applyNoneSignaturesFor, {account});
}

bool AppleScriptProtocol::applyNoneDefaultNewSignatureFor(const std::string& account) {
    return deliver(Selector::applyNoneDefaultNewSignatureFor, {account});
}

bool AppleScriptProtocol::applyNoneDefaultReplySignatureFor(const std::string& account) {
    return deliver(Selector::applyNoneDefaultReplySignatureFor, {account});
}

bool AppleScriptProtocol::deleteSignatures() {
    return deliver(Selector::deleteSignatures, {});
}

bool AppleScriptProtocol::deleteSignature(const std::string& name) {
    return deliver(Selector::deleteSignature, {name});
}

bool AppleScriptProtocol::createSignature(const std::string& name, const std::string& content) {
    return deliver(Selector::createSignature, {name, content});
}

std::optional<std::string> AppleScriptProtocol::getVersion() {
    return text(Selector::getVersion, {});
}

std::optional<std::vector<std::string>> AppleScriptProtocol::getSignatureNames() {
    const auto listing = text(Selector::getSignatureNames, {});
    if (!listing) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    std::size_t start = 0;
    for (std::size_t end; start < listing->size(); start = end + 1) {
        end = std::min(listing->find('\n', start), listing->size());
        // Outlook's scripting may end lines with CR LF; an empty line names nothing.
        std::string name = listing->substr(start, end - start);
        if (!name.empty() && name.back() == '\r') {
            name.pop_back();
        }
        if (!name.empty()) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

} // namespace varnoth
