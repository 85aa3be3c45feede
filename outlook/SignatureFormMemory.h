#pragma once

#include "platform/ScriptHost.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// Outlook for Mac keeps a signature in its own HTML (it may wrap the text in a document and change line
// breaks and quotes), so getSignature: does not give back what createSignature:content: was given and
// every update would find every signature changed. Wrapped around the script object of any script host,
// this remembers, per created signature and in the user defaults, the length and SHA-256 digest of the
// created content and of the form Outlook returned when read back right after the creation: only those,
// as a signature may be large and the user defaults are read whole at every start. While Outlook returns
// exactly that form and the server's content is the one created, the signature holds that content; any
// other form (a user's edit in Outlook) or content (a changed template) is compared as it is, so it is
// still put right. What a later deleted signature left behind stays: it can only ever match that same
// content in that same form.
class SignatureFormMemory final : public ScriptObject {
public:
    // The user-defaults key of a signature's memory: an array of the created content's length
    // and digest, then the length and digest of Outlook's form of it (lengths as decimal text).
    static std::string key(const std::string& signatureName);
    // SHA-256 of the text, as 64 lower-case hexadecimal digits.
    static std::string digest(std::string_view text);
    // Whether Outlook's form of the named signature is the one it returned when content was created.
    static bool holds(const std::string& name, const std::string& form, const std::string& content);

    explicit SignatureFormMemory(std::unique_ptr<ScriptObject> object);

    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override;

private:
    void remember(const std::string& name, const std::string& content);

    std::unique_ptr<ScriptObject> object_;
};

} // namespace varnoth
