#pragma once

#include "platform/ScriptHost.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// Outlook for Mac keeps a signature in its own HTML (it may wrap the text in a document and change line
// breaks and quotes), so getSignature: does not give back what createSignature:content: was given and
// every update would find both defaults changed. Wrapped around the script object of any script host,
// this remembers, per default signature and in the user defaults, the created content and a digest of
// the form Outlook returned when read back right after the creation; while getSignature: returns exactly
// that form, it answers with the created content. Any other form (a user's edit in Outlook) passes
// unchanged, so it is still put right; an Outlook that keeps the text as given behaves as without it.
// Only the two default signatures are remembered: they are the only ones an update compares.
class SignatureFormMemory final : public ScriptObject {
public:
    // The user-defaults key of a default signature's memory: an array of the created content and the
    // digest of Outlook's form of it.
    static std::string key(const std::string& signatureName);
    // SHA-256 of the text, as 64 lower-case hexadecimal digits.
    static std::string digest(std::string_view text);

    explicit SignatureFormMemory(std::unique_ptr<ScriptObject> object);

    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override;

private:
    void remember(const std::string& name, const std::string& content);
    std::optional<std::string> createdContent(const std::string& name, const std::string& form) const;

    std::unique_ptr<ScriptObject> object_;
};

} // namespace varnoth
