#include "launchd/KeyedDecodingContainer.h"

#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace varnoth {

namespace {

// The text of a dictionary key node, up to its first NUL byte.
std::string keyText(plist_t key) {
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(key, &xml, &length);
    const std::unique_ptr<char, decltype(&std::free)> xmlOwner(xml, &std::free);
    const std::string_view document(xml != nullptr ? xml : "", xml != nullptr ? length : 0);
    const auto begin = document.find("<key>");
    const auto end = document.rfind("</key>");
    if (begin == std::string_view::npos || end == std::string_view::npos || end < begin + 5) {
        return {};
    }
    const std::string_view escaped = document.substr(begin + 5, end - begin - 5);
    static constexpr std::pair<std::string_view, char> entities[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    std::string text;
    for (std::size_t at = 0; at < escaped.size();) {
        bool replaced = false;
        for (const auto& [entity, character] : entities) {
            if (escaped.substr(at, entity.size()) == entity) {
                text += character;
                at += entity.size();
                replaced = true;
                break;
            }
        }
        if (!replaced) {
            text += escaped[at++];
        }
    }
    return text;
}

// libplist reads an integer beyond the signed 64-bit range as a 16-byte one and keeps only its low
// 64 bits (an XML text beyond even those saturates to all ones), so the value of such a node is not
// the file's. Its binary form tells it apart: a lone object follows the 8-byte header, and the marker
// 0x14 is a 16-byte integer.
bool beyondSigned64Bits(plist_t node) {
    char* binary = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &binary, &length);
    const std::unique_ptr<char, decltype(&std::free)> binaryOwner(binary, &std::free);
    return binary != nullptr && length > 8 && static_cast<unsigned char>(binary[8]) == 0x14;
}

const char* typeName(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN:
        return "a Boolean";
    case PLIST_UINT:
        return "an integer";
    case PLIST_REAL:
        return "a real number";
    case PLIST_STRING:
        return "a string";
    case PLIST_ARRAY:
        return "an array";
    case PLIST_DICT:
        return "a dictionary";
    case PLIST_DATE:
        return "a date";
    case PLIST_DATA:
        return "data";
    case PLIST_KEY:
        return "a key";
    case PLIST_UID:
        return "a UID";
    case PLIST_NONE:
        break;
    }
    return "nothing";
}

} // namespace

KeyedDecodingContainer::KeyedDecodingContainer(plist_t dictionary, std::vector<std::string> codingPath)
    : dictionary_(dictionary), codingPath_(std::move(codingPath)) {
    requireType(dictionary_, PLIST_DICT, "a dictionary", codingPath_);
}

plist_t KeyedDecodingContainer::item(const std::string& key) const {
    return plist_dict_get_item(dictionary_, key.c_str());
}

std::vector<std::string> KeyedDecodingContainer::pathTo(const std::string& key) const {
    std::vector<std::string> path = codingPath_;
    path.push_back(key);
    return path;
}

void KeyedDecodingContainer::requireType(plist_t node, plist_type type, const char* expected,
                                         const std::vector<std::string>& path) {
    if (node == nullptr || plist_get_node_type(node) != type) {
        throw PropertyListError(PropertyListError::Kind::typeMismatch, path,
                                std::string("expected ") + expected + ", found " +
                                    (node == nullptr ? "nothing" : typeName(node)));
    }
}

bool KeyedDecodingContainer::decodeBool(plist_t node, const std::vector<std::string>& path) {
    requireType(node, PLIST_BOOLEAN, "a Boolean", path);
    std::uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return value != 0;
}

std::int64_t KeyedDecodingContainer::decodeInteger(plist_t node, const std::vector<std::string>& path) {
    requireType(node, PLIST_UINT, "an integer", path);
    if (beyondSigned64Bits(node)) {
        throw PropertyListError(PropertyListError::Kind::typeMismatch, path,
                                "expected an integer of 64 bits, found a larger one");
    }
    // libplist keeps every integer as 64 unsigned bits; negative numbers arrive in two's complement.
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return static_cast<std::int64_t>(value);
}

std::string KeyedDecodingContainer::decodeString(plist_t node, const std::vector<std::string>& path) {
    requireType(node, PLIST_STRING, "a string", path);
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return text != nullptr ? std::string(text, length) : std::string();
}

std::vector<std::pair<std::string, plist_t>> KeyedDecodingContainer::entries(plist_t dictionary) {
    std::vector<std::pair<std::string, plist_t>> result;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary, &iterator);
    const std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, &std::free);
    while (true) {
        // libplist's key getter aborts the process on a key holding a NUL byte (a binary property list
        // can carry one), so the key is read through the XML writer, which ends it at the NUL.
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator, nullptr, &value);
        if (value == nullptr) {
            break;
        }
        result.emplace_back(keyText(plist_dict_item_get_key(value)), value);
    }
    return result;
}

} // namespace varnoth
