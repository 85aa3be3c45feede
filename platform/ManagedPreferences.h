#pragma once

#include "platform/PreferenceValue.h"

#include <optional>
#include <string>

namespace varnoth {

// The values an administrator forces for the agent's preferences domain: a configuration profile's
// managed preferences on macOS, a property list in the system configuration folder elsewhere. They win
// over the configuration file and over the user's own preferences.
class ManagedPreferences {
public:
    virtual ~ManagedPreferences() = default;
    // The value forced for the key; nothing when the administrator forces none.
    virtual std::optional<PreferenceValue> forced(const std::string& key) const = 0;
    bool isForced(const std::string& key) const { return forced(key).has_value(); }
};

} // namespace varnoth
