#include "launchd/PropertyListDecoder.h"

#include "launchd/PropertyListError.h"

#include <cstdint>
#include <limits>

namespace varnoth {

PlistNode PropertyListDecoder::parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw PropertyListError(PropertyListError::Kind::dataCorrupted, {},
                                "the data is not a property list");
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (root == nullptr) {
        throw PropertyListError(PropertyListError::Kind::dataCorrupted, {},
                                "the data is not a property list");
    }
    return PlistNode(root);
}

} // namespace varnoth
