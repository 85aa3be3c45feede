#pragma once

#include "launchd/PropertyListError.h"

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <plist/plist.h>
#include <string>
#include <type_traits>
#include <vector>

namespace varnoth {

class KeyedDecodingContainer;

namespace coding {

template <typename T> struct IsList : std::false_type {};
template <typename T> struct IsList<std::vector<T>> : std::true_type {};
template <typename T> struct IsStringMap : std::false_type {};
template <typename T> struct IsStringMap<std::map<std::string, T>> : std::true_type {};

// A record that reads itself from a dictionary.
template <typename T>
concept DecodableRecord = requires(const KeyedDecodingContainer& container) {
    { T::decode(container) } -> std::same_as<T>;
};

// An enumeration stored as its raw value: rawValue(e) and fromRawValue(std::type_identity<E>, raw)
// are found next to the enumeration.
template <typename T>
concept RawRepresentable = std::is_enum_v<T> && requires(T value) {
    rawValue(value);
};

} // namespace coding

// Typed, strict access to one dictionary of a property list: a present value of another type than
// asked for is an error, never converted. The dictionary belongs to the caller's tree.
class KeyedDecodingContainer {
public:
    explicit KeyedDecodingContainer(plist_t dictionary, std::vector<std::string> codingPath = {});

    bool contains(const std::string& key) const { return item(key) != nullptr; }
    const std::vector<std::string>& codingPath() const { return codingPath_; }

    // Throws keyNotFound when the key is missing.
    template <typename T> T decode(const std::string& key) const {
        plist_t node = item(key);
        if (node == nullptr) {
            throw PropertyListError(PropertyListError::Kind::keyNotFound, pathTo(key),
                                    "no value for key " + key);
        }
        return decodeValue<T>(node, pathTo(key));
    }

    template <typename T> std::optional<T> decodeIfPresent(const std::string& key) const {
        plist_t node = item(key);
        if (node == nullptr) {
            return std::nullopt;
        }
        return decodeValue<T>(node, pathTo(key));
    }

    template <typename T> static T decodeValue(plist_t node, const std::vector<std::string>& path);

private:
    plist_t item(const std::string& key) const;
    std::vector<std::string> pathTo(const std::string& key) const;

    static void requireType(plist_t node, plist_type type, const char* expected,
                            const std::vector<std::string>& path);
    static bool decodeBool(plist_t node, const std::vector<std::string>& path);
    static std::int64_t decodeInteger(plist_t node, const std::vector<std::string>& path);
    static std::string decodeString(plist_t node, const std::vector<std::string>& path);
    // Keys and values of a dictionary node in the tree's order.
    static std::vector<std::pair<std::string, plist_t>> entries(plist_t dictionary);
    static std::string rawText(std::int64_t raw) { return std::to_string(raw); }
    static std::string rawText(const std::string& raw) { return "\"" + raw + "\""; }

    plist_t dictionary_;
    std::vector<std::string> codingPath_;
};

template <typename T>
T KeyedDecodingContainer::decodeValue(plist_t node, const std::vector<std::string>& path) {
    if constexpr (std::is_same_v<T, bool>) {
        return decodeBool(node, path);
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        return decodeInteger(node, path);
    } else if constexpr (std::is_same_v<T, std::string>) {
        return decodeString(node, path);
    } else if constexpr (coding::IsList<T>::value) {
        requireType(node, PLIST_ARRAY, "an array", path);
        T list;
        const std::uint32_t count = plist_array_get_size(node);
        for (std::uint32_t index = 0; index < count; ++index) {
            std::vector<std::string> itemPath = path;
            itemPath.push_back("Index " + std::to_string(index));
            list.push_back(decodeValue<typename T::value_type>(plist_array_get_item(node, index), itemPath));
        }
        return list;
    } else if constexpr (coding::IsStringMap<T>::value) {
        requireType(node, PLIST_DICT, "a dictionary", path);
        T map;
        for (const auto& [key, value] : entries(node)) {
            std::vector<std::string> itemPath = path;
            itemPath.push_back(key);
            map.insert_or_assign(key, decodeValue<typename T::mapped_type>(value, itemPath));
        }
        return map;
    } else if constexpr (coding::RawRepresentable<T>) {
        const auto raw = decodeValue<std::remove_cvref_t<decltype(rawValue(T{}))>>(node, path);
        const std::optional<T> value = fromRawValue(std::type_identity<T>{}, raw);
        if (!value) {
            throw PropertyListError(PropertyListError::Kind::dataCorrupted, path,
                                    "no case has the raw value " + rawText(raw));
        }
        return *value;
    } else {
        static_assert(coding::DecodableRecord<T>, "no property-list decoding for this type");
        requireType(node, PLIST_DICT, "a dictionary", path);
        return T::decode(KeyedDecodingContainer(node, path));
    }
}

} // namespace varnoth
