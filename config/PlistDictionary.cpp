#include "config/PlistDictionary.h"

#include "config/ConfigFile.h"
#include "config/PlistDepth.h"

#include <charconv>
#include <plist/plist.h>

namespace varnoth {

namespace {

// -1 and 18446744073709551615 arrive with the same 64 bits; libplist tells them apart only when
// comparing nodes, so the node is compared with one that it made from the negative number's text.
bool holdsNegative(plist_t node, std::int64_t value) {
    const std::string xml = "<plist version=\"1.0\"><integer>" + std::to_string(value) + "</integer></plist>";
    plist_t probe = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &probe);
    const bool same = probe != nullptr && plist_compare_node_value(node, probe) != 0;
    plist_free(probe);
    return same;
}

} // namespace

std::unique_ptr<PlistDictionary> PlistDictionary::load(const std::filesystem::path& path,
                                                       std::string& problem) {
    std::string content;
    problem = ConfigFile::describe(ConfigFile::read(path, content), path);
    if (problem.empty() && !PlistDepth::within(content, maxDepth)) {
        problem = "The property list nests deeper than " + std::to_string(maxDepth) + " levels.";
    }
    if (!problem.empty()) {
        return nullptr;
    }
    plist_t root = nullptr;
    if (!content.empty()) {
        plist_from_memory(content.data(), static_cast<uint32_t>(content.size()), &root);
    }
    if (root != nullptr && plist_get_node_type(root) == PLIST_DICT) {
        return std::unique_ptr<PlistDictionary>(new PlistDictionary(root));
    }
    plist_free(root);
    problem = "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
    return nullptr;
}

PlistDictionary::~PlistDictionary() {
    plist_free(static_cast<plist_t>(root_));
}

std::optional<PreferenceValue> PlistDictionary::value(const std::string& key) const {
    using Type = PreferenceValue::Type;
    plist_t node = plist_dict_get_item(static_cast<plist_t>(root_), key.c_str());
    if (node == nullptr) {
        return std::nullopt;
    }
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        // By pointer and length: libplist's copying getter aborts on a string holding a NUL byte, which a
        // property list can carry.
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return PreferenceValue{Type::text, text != nullptr ? std::string(text, length) : std::string()};
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return PreferenceValue{Type::boolean, value != 0 ? "true" : "false"};
    }
    case PLIST_UINT: {
        uint64_t raw = 0;
        plist_get_uint_val(node, &raw);
        const auto value = static_cast<std::int64_t>(raw); // negative integers arrive two's complement
        return PreferenceValue{Type::integer, value < 0 && holdsNegative(node, value) ? std::to_string(value)
                                                                                      : std::to_string(raw)};
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        char text[64];
        const auto end = std::to_chars(text, text + sizeof text, value).ptr;
        return PreferenceValue{Type::real, std::string(text, end)};
    }
    case PLIST_ARRAY:
        return PreferenceValue{Type::other, "array"};
    case PLIST_DICT:
        return PreferenceValue{Type::other, "dictionary"};
    case PLIST_DATE:
        return PreferenceValue{Type::other, "date"};
    default:
        return PreferenceValue{Type::other, "data"};
    }
}

} // namespace varnoth
