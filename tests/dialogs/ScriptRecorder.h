#pragma once

#include "platform/ScriptHost.h"

#include <map>
#include <string>
#include <vector>

namespace varnoth::test {

// A script host whose Outlook script answers from a table and records every message it receives.
class ScriptRecorder final : public ScriptHost {
public:
    struct Message {
        std::string selector;
        std::vector<std::string> arguments;
        bool operator==(const Message&) const = default;
    };

    void loadScripts() override { ++loads; }
    std::unique_ptr<ScriptObject> makeObject(std::string_view className) override {
        if (!hasScript || className != "OutlookScriptObj") {
            return nullptr;
        }
        return std::make_unique<Object>(*this);
    }

    // The messages that change Outlook: everything but the two reading ones every handler sends.
    std::vector<Message> changes() const {
        std::vector<Message> result;
        for (const auto& message : messages) {
            if (message.selector != "getVersion" && message.selector != "getDefaultAccount") {
                result.push_back(message);
            }
        }
        return result;
    }

    bool hasScript = true;
    std::map<std::string, std::string, std::less<>> replies{{"getVersion", "16.89"},
                                                            {"getDefaultAccount", "jane@example.com"}};
    std::vector<Message> messages;
    int loads = 0;

private:
    class Object final : public ScriptObject {
    public:
        explicit Object(ScriptRecorder& host) : host_(host) {}
        ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override {
            host_.messages.push_back({std::string(selector), arguments});
            if (auto found = host_.replies.find(selector); found != host_.replies.end()) {
                return ScriptReply::withText(found->second);
            }
            return ScriptReply::nothing();
        }

    private:
        ScriptRecorder& host_;
    };
};

} // namespace varnoth::test
