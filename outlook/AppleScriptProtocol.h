#pragma once

#include "platform/ScriptHost.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// The thirteen operations of the Outlook script class "OutlookScriptObj", sent to one script object.
// Text operations give nothing when the message failed and empty text when the script returned none;
// the other operations give whether the message was delivered. A message that fails with an
// AppleScript error number is logged with it, so a refused automation (-1743) or an Outlook that does
// not understand the message (-1708) stays apart from a missing signature; lastFailure() keeps it.
class AppleScriptProtocol {
public:
    static constexpr const char* className = "OutlookScriptObj";
    // The signatures that the apply operations make the defaults; the script uses the same names.
    static constexpr const char* defaultNewSignatureName = "Default New Email Signature";
    static constexpr const char* defaultReplySignatureName = "Default Reply Forward Email Signature";

    // The messages as the script object receives them, in declaration order.
    struct Selector {
        static constexpr std::string_view getDefaultAccount = "getDefaultAccount";
        static constexpr std::string_view getSignature = "getSignature:";
        static constexpr std::string_view applySignaturesFor = "applySignaturesFor:";
        static constexpr std::string_view applyDefaultNewSignatureFor = "applyDefaultNewSignatureFor:";
        static constexpr std::string_view applyDefaultReplySignatureFor = "applyDefaultReplySignatureFor:";
        static constexpr std::string_view applyNoneSignaturesFor = "applyNoneSignaturesFor:";
        static constexpr std::string_view applyNoneDefaultNewSignatureFor =
            "applyNoneDefaultNewSignatureFor:";
        static constexpr std::string_view applyNoneDefaultReplySignatureFor =
            "applyNoneDefaultReplySignatureFor:";
        static constexpr std::string_view deleteSignatures = "deleteSignatures";
        static constexpr std::string_view deleteSignature = "deleteSignature:";
        static constexpr std::string_view createSignature = "createSignature:content:";
        static constexpr std::string_view getVersion = "getVersion";
        // The names of Outlook's signatures, one per line.
        static constexpr std::string_view getSignatureNames = "getSignatureNames";
    };
    static constexpr std::array<std::string_view, 13> selectors = {
        Selector::getDefaultAccount,
        Selector::getSignature,
        Selector::applySignaturesFor,
        Selector::applyDefaultNewSignatureFor,
        Selector::applyDefaultReplySignatureFor,
        Selector::applyNoneSignaturesFor,
        Selector::applyNoneDefaultNewSignatureFor,
        Selector::applyNoneDefaultReplySignatureFor,
        Selector::deleteSignatures,
        Selector::deleteSignature,
        Selector::createSignature,
        Selector::getVersion,
        Selector::getSignatureNames,
    };
    // How many text arguments the selector takes: one per colon.
    static std::size_t argumentCount(std::string_view selector);
    static bool isSelector(std::string_view selector);

    explicit AppleScriptProtocol(std::unique_ptr<ScriptObject> object);

    std::optional<std::string> getDefaultAccount();
    std::optional<std::string> getSignature(const std::string& name);
    bool applySignaturesFor(const std::string& account);
    bool applyDefaultNewSignatureFor(const std::string& account);
    bool applyDefaultReplySignatureFor(const std::string& account);
    bool applyNoneSignaturesFor(const std::string& account);
    bool applyNoneDefaultNewSignatureFor(const std::string& account);
    bool applyNoneDefaultReplySignatureFor(const std::string& account);
    bool deleteSignatures();
    bool deleteSignature(const std::string& name);
    bool createSignature(const std::string& name, const std::string& content);
    std::optional<std::string> getVersion();
    // Outlook's signature names; a name that holds a line break comes as its pieces.
    std::optional<std::vector<std::string>> getSignatureNames();

    // The last failed message's reply of this object; delivered when none failed.
    const ScriptReply& lastFailure() const { return lastFailure_; }

private:
    std::optional<std::string> text(std::string_view selector, const std::vector<std::string>& arguments);
    bool deliver(std::string_view selector, const std::vector<std::string>& arguments);
    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments);

    std::unique_ptr<ScriptObject> object_;
    ScriptReply lastFailure_ = ScriptReply::nothing();
};

} // namespace varnoth
