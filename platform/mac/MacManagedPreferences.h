#pragma once

#include "platform/ManagedPreferences.h"

#include <memory>

namespace varnoth {

// The managed preferences of the application's domain (the main bundle's identifier), as a configuration
// profile installs them: a key counts when NSUserDefaults says an administrator forces it, and its value
// is what the defaults then answer, which is the forced one.
//
// Ownership and threads: NSUserDefaults is shared by the process and safe from any thread; this object
// only retains it.
class MacManagedPreferences final : public ManagedPreferences {
public:
    // Nothing when the process has no standard user defaults.
    static std::unique_ptr<MacManagedPreferences> Create();
    ~MacManagedPreferences() override;

    std::optional<PreferenceValue> forced(const std::string& key) const override;

private:
    explicit MacManagedPreferences(void* defaults) : defaults_(defaults) {}
    void* defaults_; // NSUserDefaults*, retained
};

} // namespace varnoth
