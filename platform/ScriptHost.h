#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// What one message to a script object gave back.
struct ScriptReply {
    // False when the message failed: the object has no such operation, or the script failed,
    // crashed or ran past its time limit. The caller treats that as its operation's failure.
    bool delivered = false;
    // The returned text (UTF-8); nothing when the operation returns nothing.
    std::optional<std::string> text;
    // Why the message failed. An AppleScript error ends in its number, as "(error -1743)".
    std::string error;

    // The AppleScript error number the failure names; 0 when it names none.
    int errorNumber() const {
        const auto at = error.rfind("(error ");
        if (at == std::string::npos) {
            return 0;
        }
        try {
            return std::stoi(error.substr(at + 7));
        } catch (const std::exception&) {
            return 0;
        }
    }

    static ScriptReply failed(std::string why) { return {false, std::nullopt, std::move(why)}; }
    static ScriptReply nothing() { return {true, std::nullopt, {}}; }
    static ScriptReply withText(std::string text) { return {true, std::move(text), {}}; }
};

// An instance of a script class. It lives for one message (or the two messages of one operation)
// and is released afterwards.
class ScriptObject {
public:
    virtual ~ScriptObject() = default;
    // Sends one message, named by its selector ("createSignature:content:"), with zero, one or two
    // text arguments, and blocks until the script has answered.
    virtual ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) = 0;
};

// Runs the script classes that ship as resources of the application bundle.
class ScriptHost {
public:
    virtual ~ScriptHost() = default;
    // (Re)loads the bundle's scripts so that their classes can be found by name.
    virtual void loadScripts() = 0;
    // A fresh instance of the named class; nothing when the bundle holds no such class.
    virtual std::unique_ptr<ScriptObject> makeObject(std::string_view className) = 0;
};

} // namespace varnoth
