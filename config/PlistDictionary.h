#pragma once

#include "platform/PreferenceValue.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace varnoth {

// The root dictionary of a property-list file (XML or binary), whose values are read by key.
class PlistDictionary {
public:
    // A property list nested deeper is not read: libplist's parsers recurse once per level.
    static constexpr std::size_t maxDepth = 32;

    // The file's dictionary; nothing, with the problem in Foundation's words, when the file cannot be
    // read or holds no dictionary.
    static std::unique_ptr<PlistDictionary> load(const std::filesystem::path& path, std::string& problem);

    ~PlistDictionary();
    PlistDictionary(const PlistDictionary&) = delete;
    PlistDictionary& operator=(const PlistDictionary&) = delete;

    std::optional<PreferenceValue> value(const std::string& key) const;

private:
    explicit PlistDictionary(void* root) : root_(root) {}
    void* root_; // plist_t, owned
};

} // namespace varnoth
