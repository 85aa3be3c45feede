#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace varnoth {

// The administrator's configuration: one file, read once per process, answering every setting by its
// key with a fixed default. Only UserEmailAddress may also come from the user's own preferences.
class Config {
public:
    struct Locations {
        std::filesystem::path systemFolder;             // /Library/Varnoth (macOS), /etc/Varnoth (Linux)
        std::filesystem::path applicationSupportFolder; // the user's Application Support folder
        std::string bundleName;
    };

    static constexpr const char* baseName = "Varnoth Brelvane Agent";
    // A larger configuration file, or a property list nested deeper, is not read (the defaults hold).
    static constexpr std::size_t maxFileBytes = 1024 * 1024;
    static constexpr std::size_t maxPlistDepth = 32;

    // The process-wide configuration, read from the platform's locations on first use.
    static Config& shared();
    // Replaces the shared configuration; nothing makes the next shared() read the files anew.
    static void setShared(std::unique_ptr<Config> config);
    static Locations platformLocations();

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

    bool UserEmailAddressEditable() const;

    // The effective settings as one log entry of eleven lines; never the directory settings.
    void logSettings() const;
    std::string settingsText() const;

    // The file that was read, when one was found.
    const std::optional<std::filesystem::path>& usedFile() const { return usedFile_; }

    std::map<std::string, std::string> settings;
    bool plistMode = false;

private:
    class PlistDictionary;

    void loadPropertyList(const std::filesystem::path& path);
    bool loadTextFile(const std::filesystem::path& path);

    std::optional<std::string> textValue(const std::string& key) const;
    bool boolValue(const std::string& key, bool fallback) const;

    std::unique_ptr<PlistDictionary> plistSettings; // the root dictionary of a property-list file
    std::optional<std::filesystem::path> usedFile_;
};

} // namespace varnoth
