#include "launchd/KeyedEncodingContainer.h"

#include "base/TextValues.h"

namespace varnoth {

PlistNode KeyedEncodingContainer::encodeString(const std::string& value, const std::string& key) {
    // libplist stores C strings and copies bytes into the XML unchecked: a zero byte would cut the
    // text short and invalid UTF-8 would make a file that no other reader accepts.
    if (value.find('\0') != std::string::npos) {
        throw PropertyListError(PropertyListError::Kind::invalidValue, {key}, "text holds a zero character");
    }
    if (!text::isValidUtf8(value)) {
        throw PropertyListError(PropertyListError::Kind::invalidValue, {key}, "text is not valid UTF-8");
    }
    return PlistNode(plist_new_string(value.c_str()));
}

} // namespace varnoth
