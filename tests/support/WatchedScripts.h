#pragma once

#include "outlook/AppleScriptProtocol.h"
#include "platform/ScriptHost.h"

#include <memory>
#include <string>
#include <vector>

namespace varnoth::test {

// Around a script host (the stand-in's, in the tests of whole runs): notes every message sent, its
// selector and first argument, and fails the creation of the signature named in failing.
class WatchedScripts final : public ScriptHost {
public:
    struct Sent {
        std::string selector, name;
    };

    explicit WatchedScripts(ScriptHost& inner) : inner_(inner) {}
    void loadScripts() override { inner_.loadScripts(); }
    std::unique_ptr<ScriptObject> makeObject(std::string_view className) override {
        auto object = inner_.makeObject(className);
        return object ? std::make_unique<Object>(*this, std::move(object)) : nullptr;
    }

    std::vector<Sent> sent;
    std::string failing;

private:
    class Object final : public ScriptObject {
    public:
        Object(WatchedScripts& host, std::unique_ptr<ScriptObject> inner)
            : host_(host), inner_(std::move(inner)) {}
        ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override {
            host_.sent.push_back({std::string(selector), arguments.empty() ? "" : arguments[0]});
            if (selector == AppleScriptProtocol::Selector::createSignature &&
                arguments.at(0) == host_.failing) {
                return ScriptReply::failed("failing on purpose");
            }
            return inner_->send(selector, arguments);
        }

    private:
        WatchedScripts& host_;
        std::unique_ptr<ScriptObject> inner_;
    };
    ScriptHost& inner_;
};

} // namespace varnoth::test
