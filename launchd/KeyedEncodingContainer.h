#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/PlistNode.h"

#include <cstdint>
#include <optional>
#include <plist/plist.h>
#include <string>

namespace varnoth {

class KeyedEncodingContainer;

namespace coding {

// A record that writes itself into a dictionary.
template <typename T>
concept EncodableRecord = requires(const T& value, KeyedEncodingContainer& container) {
    value.encode(container);
};

} // namespace coding

// Writes typed values under keys of one dictionary of a property list in the making. Keys keep the
// order in which they are written. The dictionary belongs to the caller's tree.
class KeyedEncodingContainer {
public:
    explicit KeyedEncodingContainer(plist_t dictionary) : dictionary_(dictionary) {}

    template <typename T> void encode(const std::string& key, const T& value) {
        plist_dict_set_item(dictionary_, key.c_str(), encodeValue(value, key).release());
    }

    // An absent value writes no key at all.
    template <typename T> void encodeIfPresent(const std::string& key, const std::optional<T>& value) {
        if (value) {
            encode(key, *value);
        }
    }

    // Throws invalidValue for text that a property list cannot carry.
    template <typename T> static PlistNode encodeValue(const T& value, const std::string& key);

private:
    static PlistNode encodeString(const std::string& value, const std::string& key);

    plist_t dictionary_;
};

template <typename T> PlistNode KeyedEncodingContainer::encodeValue(const T& value, const std::string& key) {
    if constexpr (std::is_same_v<T, bool>) {
        return PlistNode(plist_new_bool(value ? 1 : 0));
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        // Stored as 64 unsigned bits; libplist writes them back as the signed number.
        return PlistNode(plist_new_uint(static_cast<std::uint64_t>(value)));
    } else if constexpr (std::is_same_v<T, std::string>) {
        return encodeString(value, key);
    } else if constexpr (coding::IsList<T>::value) {
        PlistNode array(plist_new_array());
        for (const auto& item : value) {
            plist_array_append_item(array.get(), encodeValue(item, key).release());
        }
        return array;
    } else if constexpr (coding::IsStringMap<T>::value) {
        PlistNode dictionary(plist_new_dict());
        for (const auto& [itemKey, item] : value) {
            encodeString(itemKey, key); // the key must be valid text as well
            plist_dict_set_item(dictionary.get(), itemKey.c_str(), encodeValue(item, itemKey).release());
        }
        return dictionary;
    } else if constexpr (coding::RawRepresentable<T>) {
        return encodeValue(rawValue(value), key);
    } else {
        static_assert(coding::EncodableRecord<T>, "no property-list encoding for this type");
        PlistNode dictionary(plist_new_dict());
        KeyedEncodingContainer container(dictionary.get());
        value.encode(container);
        return dictionary;
    }
}

} // namespace varnoth
