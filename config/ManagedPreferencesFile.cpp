#include "config/ManagedPreferencesFile.h"

#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "config/PlistDictionary.h"
#include "platform/Platform.h"

namespace varnoth {

ManagedPreferencesFile::ManagedPreferencesFile(std::filesystem::path path) : path_(std::move(path)) {}

ManagedPreferencesFile::~ManagedPreferencesFile() = default;

std::filesystem::path ManagedPreferencesFile::platformPath() {
    return PlatformPaths::systemConfigFolder() / "Managed Preferences" /
           (Platform::bundle().identifier + ".plist");
}

std::optional<PreferenceValue> ManagedPreferencesFile::forced(const std::string& key) const {
    if (!loaded_) {
        loaded_ = true;
        if (path_.empty()) {
            path_ = platformPath();
        }
        std::error_code error;
        if (std::filesystem::exists(path_, error)) {
            std::string problem;
            dictionary_ = PlistDictionary::load(path_, problem);
            if (!dictionary_) {
                Logger::log("Error reading managed preferences: " + problem);
            }
        }
    }
    return dictionary_ ? dictionary_->value(key) : std::nullopt;
}

} // namespace varnoth
