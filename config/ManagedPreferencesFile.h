#pragma once

#include "platform/ManagedPreferences.h"

#include <filesystem>
#include <memory>

namespace varnoth {

class PlistDictionary;

// Managed preferences where the platform has none of its own (Linux): the property list
// "Managed Preferences/<bundle identifier>.plist" in the system configuration folder, which the
// administrator deploys as a profile would. Read at the first question, once; a missing file forces
// nothing, an unreadable one forces nothing and says so in the log.
class ManagedPreferencesFile final : public ManagedPreferences {
public:
    // Without a path, platformPath() at the first question, once the bundle is known.
    explicit ManagedPreferencesFile(std::filesystem::path path = {});
    ~ManagedPreferencesFile() override;

    // From the system configuration folder and the bundle identifier (Platform::bundle()).
    static std::filesystem::path platformPath();

    std::optional<PreferenceValue> forced(const std::string& key) const override;

private:
    mutable std::filesystem::path path_;
    mutable bool loaded_ = false;
    mutable std::unique_ptr<PlistDictionary> dictionary_;
};

} // namespace varnoth
