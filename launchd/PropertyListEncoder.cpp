#include "launchd/PropertyListEncoder.h"

#include "launchd/PropertyListError.h"

#include <cstdlib>
#include <memory>

namespace varnoth {

std::string PropertyListEncoder::serialize(plist_t root) const {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (outputFormat == OutputFormat::xml) {
        plist_to_xml(root, &bytes, &length);
    } else {
        plist_to_bin(root, &bytes, &length);
    }
    const std::unique_ptr<char, decltype(&std::free)> owner(bytes, &std::free);
    if (bytes == nullptr) {
        throw PropertyListError(PropertyListError::Kind::invalidValue, {},
                                "the property list could not be written");
    }
    return std::string(bytes, length);
}

} // namespace varnoth
