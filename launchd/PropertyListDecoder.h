#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/PlistNode.h"

#include <string_view>

namespace varnoth {

// Reads a record from the bytes of a property-list file, XML or binary, whose root is a dictionary.
class PropertyListDecoder {
public:
    template <typename T> T decode(std::string_view bytes) const {
        const PlistNode root = parse(bytes);
        return T::decode(KeyedDecodingContainer(root.get()));
    }

    // Throws dataCorrupted when the bytes are no property list.
    static PlistNode parse(std::string_view bytes);
};

} // namespace varnoth
