#include "config/Config.h"

#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "base/TextValues.h"
#include "config/PlistDepth.h"
#include "platform/Platform.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace varnoth {

// Owns the root dictionary of a property-list configuration.
class Config::PlistDictionary {
public:
    explicit PlistDictionary(plist_t root) : root_(root) {}
    ~PlistDictionary() { plist_free(root_); }
    PlistDictionary(const PlistDictionary&) = delete;
    PlistDictionary& operator=(const PlistDictionary&) = delete;

    plist_t item(const std::string& key) const { return plist_dict_get_item(root_, key.c_str()); }

    std::optional<std::string> text(const std::string& key) const {
        plist_t node = item(key);
        if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
            return std::nullopt;
        }
        // By pointer and length: libplist's copying getter aborts on a string holding a NUL byte,
        // which a property list can carry.
        uint64_t length = 0;
        const char* value = plist_get_string_ptr(node, &length);
        return value != nullptr ? std::string(value, static_cast<std::size_t>(length)) : std::string();
    }

    std::optional<bool> boolean(const std::string& key) const {
        plist_t node = item(key);
        if (node == nullptr || plist_get_node_type(node) != PLIST_BOOLEAN) {
            return std::nullopt;
        }
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }

    // A number that a 32-bit integer holds exactly; anything else is the wrong type.
    std::optional<std::int32_t> int32(const std::string& key) const {
        plist_t node = item(key);
        if (node == nullptr) {
            return std::nullopt;
        }
        if (plist_get_node_type(node) == PLIST_UINT) {
            uint64_t raw = 0;
            plist_get_uint_val(node, &raw);
            const auto value = static_cast<std::int64_t>(raw); // negative integers arrive two's complement
            if (value < INT32_MIN || value > INT32_MAX || (value < 0 && !holdsNegative(node, value))) {
                return std::nullopt;
            }
            return static_cast<std::int32_t>(value);
        }
        if (plist_get_node_type(node) == PLIST_REAL) {
            double value = 0;
            plist_get_real_val(node, &value);
            if (value >= INT32_MIN && value <= INT32_MAX &&
                static_cast<double>(static_cast<std::int32_t>(value)) == value) {
                return static_cast<std::int32_t>(value);
            }
        }
        return std::nullopt;
    }

private:
    // -1 and 18446744073709551615 arrive with the same 64 bits; libplist tells them apart only when
    // comparing nodes, so the node is compared with one that it made from the negative number's text.
    static bool holdsNegative(plist_t node, std::int64_t value) {
        const std::string xml =
            "<plist version=\"1.0\"><integer>" + std::to_string(value) + "</integer></plist>";
        plist_t probe = nullptr;
        plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &probe);
        const bool same = probe != nullptr && plist_compare_node_value(node, probe) != 0;
        plist_free(probe);
        return same;
    }

    plist_t root_;
};

namespace {

std::unique_ptr<Config>& sharedInstance() {
    static std::unique_ptr<Config> instance;
    return instance;
}

const char* const incorrectFormat =
    "The data couldn\u2019t be read because it isn\u2019t in the correct format.";

enum class FileProblem { none, unopenable, notRegular, tooLarge };

// Reads the whole configuration file into content. Only a regular file of at most
// Config::maxFileBytes is read, opened without blocking: a FIFO or a device at the path would
// otherwise hang or exhaust every start.
FileProblem readWholeFile(const std::filesystem::path& path, std::string& content) {
    const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return FileProblem::unopenable;
    }
    struct stat status {};
    FileProblem problem = FileProblem::none;
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        problem = FileProblem::notRegular;
    } else if (static_cast<std::uintmax_t>(status.st_size) > Config::maxFileBytes) {
        problem = FileProblem::tooLarge;
    } else {
        content.resize(static_cast<std::size_t>(status.st_size));
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t count = ::read(file, content.data() + done, content.size() - done);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break; // shorter than it was: the rest is gone
            }
            done += static_cast<std::size_t>(count);
        }
        content.resize(done);
    }
    ::close(file);
    return problem;
}

std::string describe(FileProblem problem, const std::filesystem::path& path) {
    const std::string name = "The file \u201c" + path.filename().string() + "\u201d";
    switch (problem) {
    case FileProblem::unopenable:
        return name + " couldn\u2019t be opened because you don\u2019t have permission to view it.";
    case FileProblem::notRegular:
        return name + " isn\u2019t a regular file.";
    case FileProblem::tooLarge:
        return name + " is larger than " + std::to_string(Config::maxFileBytes) + " bytes.";
    case FileProblem::none:
        break;
    }
    return {};
}

} // namespace

Config& Config::shared() {
    auto& instance = sharedInstance();
    if (!instance) {
        instance = std::make_unique<Config>(platformLocations());
    }
    return *instance;
}

void Config::setShared(std::unique_ptr<Config> config) {
    sharedInstance() = std::move(config);
}

Config::Locations Config::platformLocations() {
    return Locations{PlatformPaths::systemConfigFolder(), PlatformPaths::applicationSupportFolder(),
                     Platform::bundle().name};
}

Config::Config(const Locations& locations, const std::string& name) {
    const std::filesystem::path systemFolder = locations.systemFolder / locations.bundleName;
    const std::filesystem::path candidates[] = {
        systemFolder / (name + ".plist"),
        systemFolder / (name + ".txt"),
        locations.applicationSupportFolder / "Varnoth" / locations.bundleName / (name + ".txt"),
    };
    for (std::size_t index = 0; index < std::size(candidates); ++index) {
        const auto& path = candidates[index];
        Logger::log("Checking for configuration file: " + path.string());
        std::error_code error;
        if (!std::filesystem::exists(path, error)) {
            continue;
        }
        Logger::log("Using configuration file: " + path.string());
        usedFile_ = path;
        if (index == 0) {
            plistMode = true;
            loadPropertyList(path);
        } else if (!loadTextFile(path)) {
            Logger::log("Error: couldn't read config file, possibly no permission");
        }
        return;
    }
    Logger::log("Error: couldn't find config file");
}

Config::~Config() = default;

void Config::loadPropertyList(const std::filesystem::path& path) {
    std::string content;
    std::string problem = describe(readWholeFile(path, content), path);
    if (problem.empty() && !PlistDepth::within(content, maxPlistDepth)) {
        // libplist's parsers recurse once per level and would end the process.
        problem = "The property list nests deeper than " + std::to_string(maxPlistDepth) + " levels.";
    }
    if (problem.empty() && !content.empty()) {
        plist_t root = nullptr;
        plist_from_memory(content.data(), static_cast<uint32_t>(content.size()), &root);
        if (root != nullptr && plist_get_node_type(root) == PLIST_DICT) {
            plistSettings = std::make_unique<PlistDictionary>(root);
            return;
        }
        plist_free(root);
    }
    if (problem.empty()) {
        problem = incorrectFormat;
    }
    Logger::log("Error reading plist configuration: " + problem);
    std::printf("Error reading plist configuration %s: %s\n", path.c_str(), problem.c_str());
    std::fflush(stdout);
}

bool Config::loadTextFile(const std::filesystem::path& path) {
    std::string content;
    const FileProblem problem = readWholeFile(path, content);
    if (problem == FileProblem::notRegular || problem == FileProblem::tooLarge) {
        Logger::log("Error reading configuration file: " + describe(problem, path));
        return true; // said; the defaults hold
    }
    if (problem != FileProblem::none || !text::isValidUtf8(content)) {
        return false;
    }
    // Editors on Windows start UTF-8 files with a byte-order mark, which would become part of the first key.
    if (content.rfind("\xEF\xBB\xBF", 0) == 0) {
        content.erase(0, 3);
    }
    std::size_t start = 0;
    while (start <= content.size()) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos) {
            end = content.size();
        }
        const std::string_view line(content.data() + start, end - start);
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos && line.find('=', equals + 1) == std::string_view::npos) {
            settings[std::string(text::trimmed(line.substr(0, equals)))] =
                std::string(text::trimmed(line.substr(equals + 1)));
        }
        start = end + 1;
    }
    return true;
}

std::optional<std::string> Config::textValue(const std::string& key) const {
    if (plistMode) {
        return plistSettings ? plistSettings->text(key) : std::nullopt;
    }
    auto found = settings.find(key);
    if (found == settings.end()) {
        return std::nullopt;
    }
    return found->second;
}

bool Config::boolValue(const std::string& key, bool fallback) const {
    if (plistMode) {
        auto value = plistSettings ? plistSettings->boolean(key) : std::nullopt;
        return value.value_or(fallback);
    }
    auto found = settings.find(key);
    if (found == settings.end()) {
        return fallback;
    }
    auto number = text::parseInteger<std::int64_t>(found->second);
    return number ? *number != 0 : fallback;
}

float Config::UpdateFrequency() const {
    constexpr float fallback = 60;
    auto value = textValue("UpdateFrequency");
    if (!value) {
        return fallback;
    }
    std::string_view number = *value;
    float multiplier = 60;
    if (!number.empty() && number.back() == 'm') {
        number.remove_suffix(1);
        multiplier = 1;
    }
    auto parsed = text::parseFloat(number);
    return parsed ? *parsed * multiplier : fallback;
}

bool Config::AllowConfigureDefaultSignatures() const {
    return boolValue("AllowConfigureDefaultSignatures", true);
}
bool Config::ShowViewLogMenu() const {
    return boolValue("ShowViewLogMenu", true);
}
bool Config::ShowExitMenu() const {
    return boolValue("ShowExitMenu", true);
}
bool Config::ShowLaunchAtLogon() const {
    return boolValue("ShowLaunchAtLogon", false);
}
bool Config::ShowConfigurationMenu() const {
    return boolValue("ShowConfigurationMenu", true);
}
bool Config::SignatureServerAutodetect() const {
    return boolValue("SignatureServerAutodetect", false);
}
bool Config::SuppressErrorMessages() const {
    return boolValue("SuppressErrorMessages", false);
}

std::string Config::SignatureServerAddress() const {
    return textValue("SignatureServerAddress").value_or("");
}
std::string Config::LDAPUser() const {
    return textValue("LDAPUser").value_or("");
}
std::string Config::LDAPPassword() const {
    return textValue("LDAPPassword").value_or("");
}
std::string Config::LDAPServer() const {
    return textValue("LDAPServer").value_or("");
}

std::int32_t Config::SignatureServerPort() const {
    constexpr std::int32_t fallback = 5757;
    if (plistMode) {
        auto value = plistSettings ? plistSettings->int32("SignatureServerPort") : std::nullopt;
        return value.value_or(fallback);
    }
    auto found = settings.find("SignatureServerPort");
    if (found == settings.end()) {
        return fallback;
    }
    return text::parseInteger<std::int32_t>(found->second).value_or(fallback);
}

std::string Config::UserEmailAddress() const {
    if (plistMode) {
        if (auto value = plistSettings ? plistSettings->text("UserEmailAddress") : std::nullopt) {
            return *value;
        }
    } else if (auto found = settings.find("UserEmailAddress");
               found != settings.end() && !found->second.empty()) {
        return found->second;
    }
    return Platform::userDefaults().string("UserEmailAddress").value_or("");
}

bool Config::UserEmailAddressEditable() const {
    auto found = settings.find("UserEmailAddress");
    return found == settings.end() || found->second.empty();
}

std::string Config::settingsText() const {
    auto flag = [](bool value) { return value ? "true" : "false"; };
    return "\nUpdateFrequency: " + text::shortestFloat(UpdateFrequency()) +
           "\nAllowConfigureDefaultSignatures: " + flag(AllowConfigureDefaultSignatures()) +
           "\nShowViewLogMenu: " + flag(ShowViewLogMenu()) + "\nShowExitMenu: " + flag(ShowExitMenu()) +
           "\nShowLaunchAtLogon: " + flag(ShowLaunchAtLogon()) +
           "\nSignatureServerAddress: " + SignatureServerAddress() +
           "\nSignatureServerPort: " + std::to_string(SignatureServerPort()) +
           "\nShowConfigurationMenu: " + flag(ShowConfigurationMenu()) +
           "\nUserEmailAddress: " + UserEmailAddress() +
           "\nSuppressErrorMessages: " + flag(SuppressErrorMessages());
}

void Config::logSettings() const {
    Logger::log(settingsText());
}

} // namespace varnoth
