#pragma once

#include "launchd/KeyedEncodingContainer.h"
#include "launchd/PlistNode.h"

#include <string>

namespace varnoth {

// Turns a record into the bytes of a property-list file whose root is a dictionary.
class PropertyListEncoder {
public:
    enum class OutputFormat { xml, binary };

    OutputFormat outputFormat = OutputFormat::xml;

    template <typename T> std::string encode(const T& value) const {
        PlistNode root(plist_new_dict());
        KeyedEncodingContainer container(root.get());
        value.encode(container);
        return serialize(root.get());
    }

    std::string serialize(plist_t root) const;
};

} // namespace varnoth
