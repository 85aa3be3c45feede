#pragma once

#include "outlook/AppleScriptProtocol.h"
#include "outlook/OutlookState.h"
#include "server/SignatureDescriptor.h"

#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// The agent's way into Outlook: wraps the bundle's Outlook script and logs every operation's outcome.
// Handlers are short-lived (one update run, one click on the apply dialog's configure button); each
// construction reloads the scripts and logs Outlook's version. No operation throws: each writes its
// own log line and reports failure by its result.
class OutlookHandler {
public:
    static constexpr const char* newSignatureName = AppleScriptProtocol::defaultNewSignatureName;
    static constexpr const char* replySignatureName = AppleScriptProtocol::defaultReplySignatureName;
    // The most a signature's content may hold, in bytes of UTF-8; Outlook is given nothing larger.
    static constexpr std::size_t maxSignatureBytes = 1 << 20;

    // Outlook's default account as the first successful getDefaultAccount of the process returned it.
    // Never refreshed afterwards: a changed default account is seen after a restart. Tests reset it.
    static inline std::optional<std::string> defaultAccount;

    // Loads the scripts, logs the version line and learns the default account while it is unknown.
    // When the system already knows that Outlook is missing or its automation refused, or a message
    // fails with a number that names a cause, none of that is logged: blocker() names the cause.
    OutlookHandler();

    // What keeps this handler's operations from working, learnt once: the construction's findings,
    // else one reading message that needs Outlook's signature scripting. A refusal while the user's
    // preferences start Outlook in new mode counts as the new mode, which the user must leave anyway.
    OutlookState::Blocker blocker();

    std::optional<std::string> getVersion();
    std::optional<std::string> getDefaultAccount();

    // A fresh script object for one operation, which remembers Outlook's own form of a default signature
    // it creates (SignatureFormMemory); nothing when the script class cannot be found.
    std::optional<AppleScriptProtocol> makeScriptObject();

    // True when Outlook's default differs from the content (or cannot be read) and must be written.
    bool defaultNewSignatureNeedsUpdate(const std::string& content);
    bool defaultReplySignatureNeedsUpdate(const std::string& content);
    // True when the script received the signature. Content above maxSignatureBytes is refused with an
    // "Error: " line, as is a name of the two defaults given to createSignature or deleteSignature: those
    // signatures are the agent's own, whatever a server's template is called.
    bool createDefaultNewSignature(const std::string& content);
    bool createDefaultReplySignature(const std::string& content);
    void deleteDefaultNewSignature();
    void deleteDefaultReplySignature();
    bool createSignature(const std::string& name, const std::string& content);
    // Creates the signature only when Outlook's differs from the content (compared as the defaults are);
    // true when Outlook holds it afterwards.
    bool updateSignature(const std::string& name, const std::string& content);
    void deleteSignature(const std::string& name);
    void deleteSignatures();
    // Deletes every signature of Outlook whose name is not one of the kept ones, letter case aside.
    void deleteSignaturesExcept(const std::vector<std::string>& kept);
    // Makes the default signatures Outlook's defaults for the default account, as the two actions say;
    // only change and clear lead to a message. False without a script object or an account, or when a
    // message failed (every message of the actions is still sent).
    bool applyDefaultSignatures(SignatureAction newAction, SignatureAction replyAction);

    // Equal when the two texts are canonically equivalent Unicode (the same NFD form); nothing else is
    // normalised. Texts that are not UTF-8 are compared byte for byte.
    static bool canonicallyEqual(const std::string& first, const std::string& second);
    // Whether Outlook's current text of the signature is the content as the agent wrote it: canonically
    // equal, or Outlook's own form of it. Empty text is a signature Outlook does not have.
    static bool holdsWritten(const std::string& name, const std::string& current, const std::string& content);
    // The signatures "remove other signatures" leaves: the deployment's own, and the defaults it keeps.
    static std::vector<std::string> deploymentSignatures(const SignatureDescriptor& descriptor);
    // Those of Outlook's names that no kept name stands for, letter case aside: Outlook finds a
    // signature by its name without regard to case, so a kept name keeps every one it would take for it.
    static std::vector<std::string> othersThan(const std::vector<std::string>& names,
                                               const std::vector<std::string>& kept);

private:
    // Takes the cause a failed message of the script names; true when there is one.
    bool noteBlocker(const AppleScriptProtocol& script);
    bool needsUpdate(const std::string& name, const std::string& content, const std::string& successPrefix,
                     const std::string& readError);
    bool create(const std::string& name, const std::string& content);
    // False only when Outlook answers that it has no such signature (or an empty one).
    bool isInOutlook(const std::string& name);
    // Deletes the default signature if Outlook has it, logging what became of the subject.
    void deleteDefault(const std::string& name, const std::string& subject);
    static bool refusedName(const std::string& name, const char* action);
    static bool refusedContent(const std::string& name, const std::string& content);

    OutlookState::Blocker blocker_ = OutlookState::Blocker::none;
    bool probed_ = false;
    const std::string newEmailDesc = newSignatureName;
    const std::string replyEmailDesc = replySignatureName;
};

} // namespace varnoth
