#include "config/Config.h"

#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "base/TextValues.h"
#include "platform/Platform.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace varnoth {

namespace {

using Type = PreferenceValue::Type;
using Form = Config::Form;

std::unique_ptr<Config>& sharedInstance() {
    static std::unique_ptr<Config> instance;
    return instance;
}

// "is text, not a Boolean": what a value of the wrong type in a property list is.
std::string wrongType(const PreferenceValue& raw, const char* wanted) {
    static const std::map<std::string, const char*> others = {
        {"array", "an array"}, {"dictionary", "a dictionary"}, {"date", "a date"}, {"data", "data"}};
    const char* is = raw.type == Type::text      ? "text"
                     : raw.type == Type::boolean ? "a Boolean"
                     : raw.type == Type::integer ? "an integer"
                     : raw.type == Type::real    ? "a real number"
                     : others.count(raw.text)    ? others.at(raw.text)
                                                 : "data";
    return std::string("is ") + is + ", not " + wanted;
}

std::optional<bool> readFlag(const PreferenceValue& raw, Form form, std::string& why) {
    const bool propertyList = form != Form::text;
    if (propertyList) {
        if (raw.type == Type::boolean) {
            return raw.text == "true";
        }
        why = wrongType(raw, "a Boolean");
        return std::nullopt;
    }
    if (auto number = text::parseInteger<std::int64_t>(raw.text)) {
        return *number != 0;
    }
    why = "is not an integer";
    return std::nullopt;
}

std::optional<std::string> readText(const PreferenceValue& raw, Form form, std::string& why) {
    const bool propertyList = form != Form::text;
    if (propertyList && raw.type != Type::text) {
        why = wrongType(raw, "text");
        return std::nullopt;
    }
    return raw.text;
}

// Text in both forms: a bare number is hours, a number with a lower-case "m" minutes.
std::optional<float> readFrequency(const PreferenceValue& raw, Form form, std::string& why) {
    const bool propertyList = form != Form::text;
    if (propertyList && raw.type != Type::text) {
        why = wrongType(raw, "text");
        return std::nullopt;
    }
    std::string_view number = raw.text;
    float multiplier = 60;
    if (!number.empty() && number.back() == 'm') {
        number.remove_suffix(1);
        multiplier = 1;
    }
    if (auto parsed = text::parseFloat(number)) {
        return *parsed * multiplier;
    }
    why = "is not a number";
    return std::nullopt;
}

// A TCP port: an integer of 1 to 65535 (in a property list also a whole real number).
std::optional<std::int32_t> readPort(const PreferenceValue& raw, Form form, std::string& why) {
    const bool propertyList = form != Form::text;
    std::optional<double> number;
    if (propertyList && raw.type == Type::real) {
        double real = 0.5; // text that is no number is no whole one
        std::from_chars(raw.text.data(), raw.text.data() + raw.text.size(), real);
        if (real != std::floor(real)) {
            why = "is not a whole number";
            return std::nullopt;
        }
        number = real;
    } else if (propertyList && raw.type != Type::integer) {
        why = wrongType(raw, "an integer");
        return std::nullopt;
    } else if (auto integer = text::parseInteger<std::int64_t>(raw.text)) {
        number = static_cast<double>(*integer);
    } else if (!propertyList) {
        why = "is not an integer";
        return std::nullopt;
    }
    if (!number || *number < 1 || *number > 65535) { // a property list's integer beyond 64 bits too
        why = "is outside 1\u201365535";
        return std::nullopt;
    }
    return static_cast<std::int32_t>(*number);
}

// The address counts only when it is text; an empty one counts only in the property-list file, where it
// fixes the empty address.
std::optional<std::string> readAddress(const PreferenceValue& raw, Form form, std::string& why) {
    auto address = readText(raw, form, why);
    return address && (form == Form::propertyList || !address->empty()) ? address : std::nullopt;
}

// A refused text shows at most this much of itself.
std::string shortened(const std::string& text) {
    constexpr std::size_t limit = 64;
    return text.size() <= limit ? text : text.substr(0, limit) + "\u2026";
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

const std::vector<std::pair<std::string, PreferenceValue::Type>>& Config::keys() {
    static const std::vector<std::pair<std::string, Type>> all = {
        {"UpdateFrequency", Type::text},
        {"AllowConfigureDefaultSignatures", Type::boolean},
        {"ShowViewLogMenu", Type::boolean},
        {"ShowExitMenu", Type::boolean},
        {"ShowLaunchAtLogon", Type::boolean},
        {"SignatureServerAddress", Type::text},
        {"SignatureServerPort", Type::integer},
        {"ShowConfigurationMenu", Type::boolean},
        {"UserEmailAddress", Type::text},
        {"SignatureServerAutodetect", Type::boolean},
        {"LDAPUser", Type::text},
        {"LDAPPassword", Type::text},
        {"LDAPServer", Type::text},
        {"SuppressErrorMessages", Type::boolean},
    };
    return all;
}

Config::Config(const Locations& locations, const std::string& name) {
    const std::filesystem::path systemFolder = locations.systemFolder / locations.bundleName;
    const std::filesystem::path candidates[] = {
        systemFolder / (name + ".plist"),
        systemFolder / (name + ".txt"),
        locations.applicationSupportFolder / "Varnoth" / locations.bundleName / (name + ".txt"),
    };
    bool found = false;
    for (std::size_t index = 0; index < std::size(candidates) && !found; ++index) {
        const auto& path = candidates[index];
        Logger::log("Checking for configuration file: " + path.string());
        std::error_code error;
        if (!std::filesystem::exists(path, error)) {
            continue;
        }
        Logger::log("Using configuration file: " + path.string());
        usedFile_ = path;
        found = true;
        if (index == 0) {
            plistMode = true;
            loadPropertyList(path);
        } else if (!loadTextFile(path)) {
            Logger::log("Error: couldn't read config file, possibly no permission");
        }
    }
    if (!found) {
        Logger::log("Error: couldn't find config file");
    }
    // Taken once, as the file is: the settings stay those of the start.
    if (const ManagedPreferences* preferences = Platform::managedPreferences()) {
        for (const auto& [key, type] : keys()) {
            if (auto value = preferences->forced(key)) {
                managed_[key] = *value;
            }
        }
    }
}

Config::~Config() = default;

void Config::loadPropertyList(const std::filesystem::path& path) {
    std::string problem;
    plistSettings = PlistDictionary::load(path, problem);
    if (!plistSettings) {
        Logger::log("Error reading plist configuration: " + problem);
        std::printf("Error reading plist configuration %s: %s\n", path.c_str(), problem.c_str());
        std::fflush(stdout);
    }
}

bool Config::loadTextFile(const std::filesystem::path& path) {
    std::string content;
    const ConfigFile::Problem problem = ConfigFile::read(path, content);
    if (problem == ConfigFile::Problem::notRegular || problem == ConfigFile::Problem::tooLarge) {
        Logger::log("Error reading configuration file: " + ConfigFile::describe(problem, path));
        return true; // said; the defaults hold
    }
    if (problem != ConfigFile::Problem::none || !text::isValidUtf8(content)) {
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

// The managed value, else the file's, else the fallback; a refused value passes the choice on.
template <typename T>
Config::Choice<T> Config::choose(const std::string& key, T fallback, Reader<T> read) const {
    Choice<T> choice{std::move(fallback), Source::fallback, {}};
    auto attempt = [&](const std::optional<PreferenceValue>& raw, Form form, Source source) {
        std::string why;
        auto value = raw ? read(*raw, form, why) : std::nullopt;
        if (value) {
            choice.value = std::move(*value);
            choice.source = source;
        } else if (!why.empty()) {
            const bool quoted = raw->type != Type::other;
            choice.refused.push_back(
                std::string(source == Source::managed ? "the managed value " : "the value ") +
                (quoted ? "'" + shortened(raw->text) + "' " : "") + why);
        }
        return value.has_value();
    };
    const auto managed = managed_.find(key);
    if (attempt(managed != managed_.end() ? std::optional(managed->second) : std::nullopt, Form::managed,
                Source::managed)) {
        return choice;
    }
    std::optional<PreferenceValue> fromFile;
    if (plistMode) {
        fromFile = plistSettings ? plistSettings->value(key) : std::nullopt;
    } else if (auto found = settings.find(key); found != settings.end()) {
        fromFile = PreferenceValue{Type::text, found->second};
    }
    attempt(fromFile, plistMode ? Form::propertyList : Form::text, Source::file);
    return choice;
}

Config::Choice<bool> Config::flag(const std::string& key, bool fallback) const {
    return choose<bool>(key, fallback, readFlag);
}
Config::Choice<std::string> Config::text(const std::string& key) const {
    return choose<std::string>(key, "", readText);
}
Config::Choice<float> Config::frequency() const {
    return choose<float>("UpdateFrequency", 60, readFrequency);
}
Config::Choice<std::int32_t> Config::port() const {
    return choose<std::int32_t>("SignatureServerPort", 5757, readPort);
}

Config::Choice<std::string> Config::address() const {
    auto choice = choose<std::string>("UserEmailAddress", "", readAddress);
    if (choice.source == Source::fallback) {
        if (auto stored = Platform::userDefaults().string("UserEmailAddress")) {
            choice.value = *stored;
            choice.source = Source::user;
        }
    }
    return choice;
}

float Config::UpdateFrequency() const {
    return frequency().value;
}
bool Config::AllowConfigureDefaultSignatures() const {
    return flag("AllowConfigureDefaultSignatures", true).value;
}
bool Config::ShowViewLogMenu() const {
    return flag("ShowViewLogMenu", true).value;
}
bool Config::ShowExitMenu() const {
    return flag("ShowExitMenu", true).value;
}
bool Config::ShowLaunchAtLogon() const {
    return flag("ShowLaunchAtLogon", false).value;
}
bool Config::ShowConfigurationMenu() const {
    return flag("ShowConfigurationMenu", true).value;
}
bool Config::SignatureServerAutodetect() const {
    return flag("SignatureServerAutodetect", false).value;
}
bool Config::SuppressErrorMessages() const {
    return flag("SuppressErrorMessages", false).value;
}
std::string Config::SignatureServerAddress() const {
    return text("SignatureServerAddress").value;
}
std::string Config::LDAPUser() const {
    return text("LDAPUser").value;
}
std::string Config::LDAPPassword() const {
    return text("LDAPPassword").value;
}
std::string Config::LDAPServer() const {
    return text("LDAPServer").value;
}
std::int32_t Config::SignatureServerPort() const {
    return port().value;
}
std::string Config::UserEmailAddress() const {
    return address().value;
}

bool Config::UserEmailAddressEditable() const {
    if (address().source == Source::managed) {
        return false;
    }
    auto found = settings.find("UserEmailAddress");
    return found == settings.end() || found->second.empty();
}

std::optional<std::string> Config::fixedEmailAddress() const {
    if (!UserEmailAddressEditable() || !UserEmailAddress().empty()) {
        return UserEmailAddress();
    }
    return std::nullopt;
}

bool Config::knowsSignatureServer() const {
    return !SignatureServerAddress().empty() || SignatureServerAutodetect();
}

std::vector<Config::Setting> Config::effectiveSettings() const {
    std::vector<Setting> result;
    auto add = [&result](const std::string& key, const auto& choice, std::string value) {
        result.push_back(Setting{key, std::move(value), choice.source, choice.refused});
    };
    auto addFlag = [&](const std::string& key, bool fallback) {
        const auto choice = flag(key, fallback);
        add(key, choice, choice.value ? "true" : "false");
    };
    auto addText = [&](const std::string& key) {
        const auto choice = text(key);
        add(key, choice, choice.value);
    };
    const auto interval = frequency();
    add("UpdateFrequency", interval, text::shortestFloat(interval.value));
    addFlag("AllowConfigureDefaultSignatures", true);
    addFlag("ShowViewLogMenu", true);
    addFlag("ShowExitMenu", true);
    addFlag("ShowLaunchAtLogon", false);
    addText("SignatureServerAddress");
    const auto server = port();
    add("SignatureServerPort", server, std::to_string(server.value));
    addFlag("ShowConfigurationMenu", true);
    const auto mailbox = address();
    add("UserEmailAddress", mailbox, mailbox.value);
    addFlag("SignatureServerAutodetect", false);
    addText("LDAPUser");
    addText("LDAPPassword");
    addText("LDAPServer");
    addFlag("SuppressErrorMessages", false);
    return result;
}

std::string Config::refusalText(const Setting& setting) {
    std::string said;
    for (const auto& refused : setting.refused) {
        said += refused + "; ";
    }
    switch (setting.source) {
    case Source::managed:
        return said + "managed value used";
    case Source::file:
        return said + "file value used";
    case Source::user:
        return said + "the user's address used";
    case Source::fallback:
        break;
    }
    return said + "default used";
}

std::string Config::settingsText() const {
    auto flagText = [](bool value) { return value ? "true" : "false"; };
    return "\nUpdateFrequency: " + text::shortestFloat(UpdateFrequency()) +
           "\nAllowConfigureDefaultSignatures: " + flagText(AllowConfigureDefaultSignatures()) +
           "\nShowViewLogMenu: " + flagText(ShowViewLogMenu()) +
           "\nShowExitMenu: " + flagText(ShowExitMenu()) +
           "\nShowLaunchAtLogon: " + flagText(ShowLaunchAtLogon()) +
           "\nSignatureServerAddress: " + SignatureServerAddress() +
           "\nSignatureServerPort: " + std::to_string(SignatureServerPort()) +
           "\nShowConfigurationMenu: " + flagText(ShowConfigurationMenu()) +
           "\nUserEmailAddress: " + UserEmailAddress() +
           "\nSuppressErrorMessages: " + flagText(SuppressErrorMessages());
}

void Config::logSettings() const {
    Logger::log(settingsText());
    std::string managedKeys;
    const auto all = effectiveSettings();
    for (const auto& setting : all) {
        if (setting.source == Source::managed) {
            managedKeys += (managedKeys.empty() ? "" : ", ") + setting.key;
        }
    }
    if (!managedKeys.empty()) {
        Logger::log("Managed settings: " + managedKeys);
    }
    for (const auto& setting : all) {
        if (!setting.refused.empty()) {
            Logger::log("Warning: " + setting.key + ": " + refusalText(setting));
        }
    }
}

} // namespace varnoth
