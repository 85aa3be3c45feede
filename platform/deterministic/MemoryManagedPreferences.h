#pragma once

#include "platform/ManagedPreferences.h"

#include <map>

namespace varnoth {

// Managed preferences in memory: what the test forces.
class MemoryManagedPreferences final : public ManagedPreferences {
public:
    std::optional<PreferenceValue> forced(const std::string& key) const override {
        const auto found = values.find(key);
        return found != values.end() ? std::optional(found->second) : std::nullopt;
    }

    std::map<std::string, PreferenceValue> values;
};

} // namespace varnoth
