#pragma once

#include "config/ConfigFile.h"
#include "config/PlistDictionary.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// The administrator's configuration: one file, read once per process, answering every setting by its
// key with a fixed default. A value the administrator forces as a managed preference wins over the file;
// only UserEmailAddress may also come from the user's own preferences.
class Config {
public:
    struct Locations {
        std::filesystem::path systemFolder;             // /Library/Varnoth (macOS), /etc/Varnoth (Linux)
        std::filesystem::path applicationSupportFolder; // the user's Application Support folder
        std::string bundleName;
    };

    // The form a raw value arrives in: a managed preference, the property-list file or the text file.
    enum class Form { managed, propertyList, text };
    // Where a setting's value came from.
    enum class Source { managed, file, user, fallback };

    // One setting as the agent uses it: its value in the log's form, where it came from, and the values
    // it refused on the way ("the value '2h' is not a number").
    struct Setting {
        std::string key;
        std::string value;
        Source source = Source::fallback;
        std::vector<std::string> refused;
    };

    static constexpr const char* baseName = "Varnoth Brelvane Agent";
    // A larger configuration file, or a property list nested deeper, is not read (the defaults hold).
    static constexpr std::size_t maxFileBytes = ConfigFile::maxBytes;
    static constexpr std::size_t maxPlistDepth = PlistDictionary::maxDepth;
    // The timer's bounds in minutes: a smaller interval would hammer the server, a larger one no desktop
    // timer holds.
    static constexpr float minimumUpdateFrequency = 1;
    static constexpr float maximumUpdateFrequency = 24 * 24 * 60;

    // The process-wide configuration, read from the platform's locations on first use.
    static Config& shared();
    // Replaces the shared configuration; nothing makes the next shared() read the files anew.
    static void setShared(std::unique_ptr<Config> config);
    static Locations platformLocations();
    // Every key with the type a property list or a managed preference gives it, in declaration order.
    static const std::vector<std::pair<std::string, PreferenceValue::Type>>& keys();

    explicit Config(const Locations& locations, const std::string& name = baseName);
    ~Config();
    Config(const Config&) = delete;
    Config& operator=(const Config&) = delete;

    float UpdateFrequency() const;
    bool AllowConfigureDefaultSignatures() const;
    bool ShowViewLogMenu() const;
    bool ShowExitMenu() const;
    bool ShowLaunchAtLogon() const;
    std::string SignatureServerAddress() const;
    std::int32_t SignatureServerPort() const;
    bool ShowConfigurationMenu() const;
    std::string UserEmailAddress() const;
    bool SignatureServerAutodetect() const;
    std::string LDAPUser() const;
    std::string LDAPPassword() const;
    std::string LDAPServer() const;
    bool SuppressErrorMessages() const;

    // False when the administrator fixes the address, in the text file or as a managed preference.
    bool UserEmailAddressEditable() const;
    // The address a run asks for when the administrator fixes one or the user chose one; none when
    // Outlook's default account decides.
    std::optional<std::string> fixedEmailAddress() const;
    // Whether a run knows where to look for the signature server: an address, or the directory.
    bool knowsSignatureServer() const;

    // The effective settings as one log entry of eleven lines (never the directory settings), then a
    // line naming the managed settings, if any, and a warning for each refused value.
    void logSettings() const;
    std::string settingsText() const;
    // Every key, in declaration order.
    std::vector<Setting> effectiveSettings() const;
    // What is said of a refused value: "the value '2h' is not a number; default used".
    static std::string refusalText(const Setting& setting);

    // The file that was read, when one was found.
    const std::optional<std::filesystem::path>& usedFile() const { return usedFile_; }

    std::map<std::string, std::string> settings;
    bool plistMode = false;

private:
    template <typename T> struct Choice {
        T value;
        Source source = Source::fallback;
        std::vector<std::string> refused;
    };
    // Reads one raw value; nothing for a value that does not count, with the reason in `why` when it is
    // refused.
    template <typename T>
    using Reader = std::optional<T> (*)(const PreferenceValue& raw, Form form, std::string& why);

    void loadPropertyList(const std::filesystem::path& path);
    bool loadTextFile(const std::filesystem::path& path);

    template <typename T> Choice<T> choose(const std::string& key, T fallback, Reader<T> read) const;
    Choice<bool> flag(const std::string& key, bool fallback) const;
    Choice<std::string> text(const std::string& key) const;
    Choice<float> frequency() const;
    Choice<std::int32_t> port() const;
    Choice<std::string> address() const;

    std::unique_ptr<PlistDictionary> plistSettings;  // the root dictionary of a property-list file
    std::map<std::string, PreferenceValue> managed_; // what the administrator forced, taken at construction
    std::optional<std::filesystem::path> usedFile_;
};

} // namespace varnoth
