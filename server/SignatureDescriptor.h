#pragma once

#include <optional>
#include <string>
#include <unordered_map>

namespace varnoth {

// What to do with one of Outlook's default signatures.
enum class SignatureAction {
    undefined,  // nothing is known (the answer held no setting)
    change,     // set it to the signature the server assigned
    clear,      // set it to none (server id "0")
    dontchange, // leave it as it is (server id "-1")
};

// The signature server's answer for one mailbox.
struct SignatureDescriptor {
    std::optional<std::string> defaultSignature; // HTML of the default new-message signature
    std::optional<std::string> replySignature;   // HTML of the default reply/forward signature
    SignatureAction defaultSignatureAction = SignatureAction::undefined;
    SignatureAction replySignatureAction = SignatureAction::undefined;
    std::unordered_map<std::string, std::string> additionalSignatures; // name to HTML
    bool removeOtherSignatures = false;
    bool noSetting = false; // the answer held no signature setting for the user

    // The shape of an answer without a setting for the user.
    static SignatureDescriptor noSettingDescriptor() {
        SignatureDescriptor descriptor;
        descriptor.noSetting = true;
        return descriptor;
    }

    bool operator==(const SignatureDescriptor&) const = default;
};

} // namespace varnoth
