#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// An Outlook-like signature store in a folder, for running the agent where there is no Outlook:
// signatures by name with their content, Outlook's version, its default account and, per account, the
// default signatures for new messages and for replies and forwards. A signature's content is kept byte
// for byte, or, in the "html" form, as an HTML editor such as Outlook for Mac's keeps it (htmlForm), so
// that what the agent reads back differs from what it created.
//
// Signatures are files under signatures/, named by the percent-encoded signature name; the other
// values live in the file "settings". Every write goes to a temporary file that is then renamed over
// the old one, so a crash never leaves half a signature, and changes hold a lock on the store so two
// writers do not lose each other's settings. Failures throw std::runtime_error.
class OutlookStandInStore {
public:
    static constexpr const char* defaultVersion = "16.80";
    // Override the stored values, so a demo can set them without touching the store.
    static constexpr const char* accountVariable = "VARNOTH_OUTLOOK_ACCOUNT";
    static constexpr const char* versionVariable = "VARNOTH_OUTLOOK_VERSION";
    static constexpr const char* formVariable = "VARNOTH_OUTLOOK_FORM";
    // The forms in which created content is kept.
    static constexpr const char* exactForm = "exact";
    static constexpr const char* htmlEditorForm = "html";

    struct Defaults {
        std::optional<std::string> newMessages;
        std::optional<std::string> repliesAndForwards;
    };

    // $XDG_DATA_HOME/Varnoth/Outlook (default ~/.local/share/Varnoth/Outlook).
    static std::filesystem::path defaultFolder();

    explicit OutlookStandInStore(std::filesystem::path folder);
    const std::filesystem::path& folder() const { return folder_; }

    // Nothing when there is no signature of that name.
    std::optional<std::string> signature(const std::string& name) const;
    // Sorted by name.
    std::vector<std::string> signatureNames() const;
    // Creates the signature, or sets the content of the existing one, which stays a default where it
    // was one. The content is kept in the store's form.
    void createSignature(const std::string& name, const std::string& content);
    // Deleting a signature that does not exist does nothing. A deleted signature is no longer
    // anybody's default.
    void deleteSignature(const std::string& name);
    void deleteSignatures();

    std::string version() const;
    void setVersion(const std::string& version);
    // Empty when none is set.
    std::string defaultAccount() const;
    void setDefaultAccount(const std::string& account);
    // exactForm (the default) or htmlEditorForm; setting any other text throws.
    std::string form() const;
    void setForm(const std::string& form);
    // The content as an HTML editor keeps it: a whole document around it unless it is one already, every
    // line break as CR LF, and straight double quotes outside the markup as "&quot;". Keeping a text in
    // this form twice changes nothing more.
    static std::string htmlForm(const std::string& content);

    // The state Outlook is in, which decides how the stand-in answers the script: "installed" (yes or
    // no), "mode" (classic or new) and "automation" (allowed or denied). The first choice of each is
    // the normal one and the value of a store that never set it.
    struct StateKey {
        const char* key;
        const char* normal;
        const char* other;
    };
    static constexpr StateKey stateKeys[] = {
        {"installed", "yes", "no"}, {"mode", "classic", "new"}, {"automation", "allowed", "denied"}};
    std::string state(const std::string& key) const;
    // Throws for a key or a value not in stateKeys.
    void setState(const std::string& key, const std::string& value);

    Defaults defaults(const std::string& account) const;
    // The accounts that have at least one default, sorted.
    std::vector<std::string> accountsWithDefaults() const;
    // Makes the named signature (which must exist) the account's default, or none for nothing.
    void setDefaultNewSignature(const std::string& account, const std::optional<std::string>& name);
    void setDefaultReplySignature(const std::string& account, const std::optional<std::string>& name);

    // A signature name as a file name and back: bytes other than letters, digits, "_", "-" and a
    // "." that is not the first character become %XX.
    static std::string encodeName(const std::string& name);
    static std::optional<std::string> decodeName(const std::string& fileName);

private:
    using Settings = std::vector<std::pair<std::string, std::string>>;

    std::filesystem::path signaturesFolder() const { return folder_ / "signatures"; }
    std::filesystem::path signaturePath(const std::string& name) const;
    Settings readSettings() const;
    void writeSettings(const Settings& settings) const;
    std::optional<std::string> setting(const std::string& key) const;
    void changeSetting(const std::string& key, const std::optional<std::string>& value) const;
    void setDefault(const char* kind, const std::string& account, const std::optional<std::string>& name);
    void writeAtomically(const std::filesystem::path& path, const std::string& content) const;

    std::filesystem::path folder_;
};

} // namespace varnoth
