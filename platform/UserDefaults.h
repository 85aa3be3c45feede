#pragma once

#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// The user's own preferences of the agent (NSUserDefaults on macOS, QSettings elsewhere).
class UserDefaults {
public:
    virtual ~UserDefaults() = default;
    // The text stored under the key; nothing when the key is missing or holds no text.
    virtual std::optional<std::string> string(const std::string& key) const = 0;
    virtual void setString(const std::string& key, const std::string& value) = 0;
    // The array stored under the key; nothing when it is missing, no array, or any element is no text.
    virtual std::optional<std::vector<std::string>> stringArray(const std::string& key) const = 0;
    virtual void setStringArray(const std::string& key, const std::vector<std::string>& value) = 0;
    // The Boolean stored under the key; nothing when the key is missing or holds no Boolean. A store
    // without types of its own keeps the texts "true" and "false", as these defaults do.
    virtual std::optional<bool> boolean(const std::string& key) const {
        const auto value = string(key);
        return value == "true" ? std::optional(true) : value == "false" ? std::optional(false) : std::nullopt;
    }
    virtual void setBoolean(const std::string& key, bool value) { setString(key, value ? "true" : "false"); }
};

} // namespace varnoth
