#include "config/ConfigReport.h"

#include "base/Logger.h"
#include "base/TextValues.h"

#include <array>
#include <map>
#include <span>

#include <cctype>

namespace varnoth {

namespace {

constexpr std::array logEntryKeys = {"UpdateFrequency",     "AllowConfigureDefaultSignatures",
                                     "ShowViewLogMenu",     "ShowExitMenu",
                                     "ShowLaunchAtLogon",   "SignatureServerAddress",
                                     "SignatureServerPort", "ShowConfigurationMenu",
                                     "UserEmailAddress",    "SuppressErrorMessages"};
constexpr std::array discoveryKeys = {"SignatureServerAutodetect", "LDAPServer", "LDAPUser", "LDAPPassword"};

bool startsWithTimestamp(std::string_view line) {
    static constexpr std::string_view shape = "dddd-dd-dd dd:dd:dd  ";
    if (line.size() < shape.size()) {
        return false;
    }
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const bool digit = std::isdigit(static_cast<unsigned char>(line[i])) != 0;
        if (shape[i] == 'd' ? !digit : line[i] != shape[i]) {
            return false;
        }
    }
    return true;
}

// Splits captured log text into its messages; a line without a timestamp continues the message before.
std::vector<std::string> messages(const std::string& captured) {
    std::vector<std::string> result;
    std::size_t start = 0;
    while (start < captured.size()) {
        std::size_t end = captured.find('\n', start);
        if (end == std::string::npos) {
            end = captured.size();
        }
        const std::string_view line(captured.data() + start, end - start);
        if (startsWithTimestamp(line)) {
            result.emplace_back(line.substr(Logger::timestampLength));
        } else if (!result.empty()) {
            result.back() += '\n';
            result.back() += line;
        }
        start = end + 1;
    }
    return result;
}

} // namespace

ConfigReport::ConfigReport(const Config::Locations& locations) {
    // The search lines are caught through the log's capture while the lines themselves go nowhere, so
    // an administrator's check adds nothing to the user's log.
    const std::filesystem::path logFile = Logger::logFilePath();
    const bool wasCapturing = Logger::captureEnabled;
    std::string captured;
    std::swap(captured, Logger::capturedLog);
    Logger::setLogFilePath("/dev/null");
    Logger::captureEnabled = true;

    config_ = std::make_unique<Config>(locations);

    searchLines_ = messages(Logger::capturedLog);
    Logger::capturedLog = std::move(captured);
    Logger::captureEnabled = wasCapturing;
    Logger::setLogFilePath(logFile);
}

bool ConfigReport::fileRead() const {
    if (!config_->usedFile()) {
        return false;
    }
    for (const auto& line : searchLines_) {
        if (line.starts_with("Error")) {
            return false;
        }
    }
    return true;
}

std::string ConfigReport::line(const Config::Setting& setting) {
    static const char* const sources[] = {"managed", "file", "user", "default"};
    std::string value = setting.value, note = sources[static_cast<int>(setting.source)];
    if (setting.key == "UpdateFrequency") {
        // The interval the timer really takes, within its bounds (NaN too).
        float used = text::parseFloat(value).value_or(Config::minimumUpdateFrequency);
        if (!(used >= Config::minimumUpdateFrequency)) {
            used = Config::minimumUpdateFrequency;
            note += "; " + value + " raised to the shortest interval";
        } else if (used > Config::maximumUpdateFrequency) {
            used = Config::maximumUpdateFrequency;
            note += "; " + value + " lowered to the longest interval";
        }
        value = text::shortestFloat(used) + " minutes";
    } else if (setting.key == "LDAPPassword") {
        value = value.empty() ? "empty" : "set, not shown";
    }
    return setting.key + ": " + value + " (" +
           (setting.refused.empty() ? note : Config::refusalText(setting)) + ")";
}

std::vector<std::string> ConfigReport::settingLines() const {
    std::map<std::string, Config::Setting> settings;
    for (auto& setting : config_->effectiveSettings()) {
        settings[setting.key] = std::move(setting);
    }
    std::vector<std::string> lines;
    for (const auto& keys :
         {std::span<const char* const>(logEntryKeys), std::span<const char* const>(discoveryKeys)}) {
        for (const char* key : keys) {
            lines.push_back(line(settings.at(key)));
        }
    }
    return lines;
}

std::string ConfigReport::text() const {
    std::string report;
    for (const auto& line : searchLines_) {
        report += line + "\n";
    }
    report += "\nConfiguration file: ";
    if (!config_->usedFile()) {
        report += "none found, every setting has its default";
    } else {
        report += config_->usedFile()->string();
        report += config_->plistMode ? " (property list)" : " (text)";
        if (!fileRead()) {
            report += ", not readable: every setting has its default";
        }
    }
    std::string managed;
    for (const auto& setting : config_->effectiveSettings()) {
        if (setting.source == Config::Source::managed) {
            managed += (managed.empty() ? "" : ", ") + setting.key;
        }
    }
    report += "\nManaged settings: " + (managed.empty() ? "none" : managed);
    report += "\n\nEffective settings, each with its source (managed, file, user or default):";
    const auto lines = settingLines();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        // Discovery settings are not part of the log's entry; the password is only said to be there.
        report += (i == logEntryKeys.size() ? "\n\nDirectory discovery:\n" : "\n") + lines[i];
    }
    report += "\n\nLog file: " + Logger::logFilePath().string() + "\n";
    return report;
}

} // namespace varnoth
