#pragma once

#include <filesystem>
#include <string>

namespace varnoth {

// The application bundle's information values; a missing value is empty text.
struct BundleInfo {
    std::string name;         // CFBundleName
    std::string displayName;  // CFBundleDisplayName
    std::string identifier;   // CFBundleIdentifier
    std::string shortVersion; // CFBundleShortVersionString
    std::string version;      // CFBundleVersion
    std::filesystem::path resourcesFolder;
    std::filesystem::path executablePath;
};

} // namespace varnoth
