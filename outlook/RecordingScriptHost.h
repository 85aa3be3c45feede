#pragma once

#include "outlook/AppleScriptProtocol.h"
#include "platform/ScriptHost.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace varnoth {

// A script host that plays Outlook in memory and records every message sent to its objects, in order.
// By default getVersion answers `version`, getDefaultAccount `account`, the signature operations work
// on `signatures`, and the apply operations are accepted. Tests may make messages fail, fix a reply
// per selector, or take the script away altogether.
class RecordingScriptHost final : public ScriptHost {
public:
    struct Message {
        std::string selector;
        std::vector<std::string> arguments;
        bool operator==(const Message&) const = default;
    };

    // false: the bundle holds no script, so no object can be made and nothing is sent.
    bool scriptAvailable = true;
    std::string version = "16.80";
    std::string account = "user@example.com";
    std::map<std::string, std::string> signatures;
    // Messages with these selectors fail (as a crashed, timed-out or unknown operation does).
    std::set<std::string, std::less<>> failing;
    // Fixed replies by selector; they win over the in-memory Outlook.
    std::map<std::string, ScriptReply, std::less<>> replies;
    // Consulted before everything else when set; return nothing to fall through.
    std::function<std::optional<ScriptReply>(const Message&)> responder;

    std::vector<Message> messages;
    int loads = 0;
    int objectsMade = 0;

    void fail(std::string_view selector) { failing.emplace(selector); }
    void answer(std::string_view selector, std::string text) {
        replies[std::string(selector)] = ScriptReply::withText(std::move(text));
    }
    // The selectors of the recorded messages, in order.
    std::vector<std::string> selectors() const {
        std::vector<std::string> result;
        for (const auto& message : messages) {
            result.push_back(message.selector);
        }
        return result;
    }

    void loadScripts() override { ++loads; }

    std::unique_ptr<ScriptObject> makeObject(std::string_view className) override {
        if (!scriptAvailable || className != AppleScriptProtocol::className) {
            return nullptr;
        }
        ++objectsMade;
        return std::make_unique<Object>(*this);
    }

private:
    class Object final : public ScriptObject {
    public:
        explicit Object(RecordingScriptHost& host) : host_(host) {}
        ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override {
            return host_.receive({std::string(selector), arguments});
        }

    private:
        RecordingScriptHost& host_;
    };

    ScriptReply receive(Message message) {
        messages.push_back(message);
        if (responder) {
            if (auto reply = responder(message)) {
                return *reply;
            }
        }
        if (failing.count(message.selector) != 0) {
            return ScriptReply::failed("failing on purpose");
        }
        if (auto fixed = replies.find(message.selector); fixed != replies.end()) {
            return fixed->second;
        }
        using Selector = AppleScriptProtocol::Selector;
        const auto& selector = message.selector;
        const auto& arguments = message.arguments;
        if (!AppleScriptProtocol::isSelector(selector) ||
            arguments.size() != AppleScriptProtocol::argumentCount(selector)) {
            return ScriptReply::failed("unrecognized selector");
        }
        if (selector == Selector::getVersion || selector == Selector::getDefaultAccount) {
            return ScriptReply::withText(selector == Selector::getVersion ? version : account);
        }
        if (selector == Selector::getSignature) {
            return ScriptReply::withText(signatures.count(arguments[0]) ? signatures[arguments[0]] : "");
        }
        if (selector == Selector::getSignatureNames) {
            std::string names;
            for (const auto& [name, content] : signatures) {
                names += name + "\n";
            }
            return ScriptReply::withText(names);
        }
        if (selector == Selector::createSignature) {
            signatures[arguments[0]] = arguments[1];
        } else if (selector == Selector::deleteSignature) {
            signatures.erase(arguments[0]);
        } else if (selector == Selector::deleteSignatures) {
            signatures.clear();
        }
        return ScriptReply::nothing();
    }
};

} // namespace varnoth
