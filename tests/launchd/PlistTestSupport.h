#pragma once

#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace varnoth::test {

// An XML property list whose root dictionary holds the given body.
inline std::string xmlPlist(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + dictionaryBody +
           "\n</dict>\n</plist>\n";
}

// The keys of an XML property list's root dictionary, in file order: the writer indents them by one tab.
inline std::vector<std::string> rootKeys(const std::string& xml) {
    static const std::regex rootKey("\n\t<key>([^<]*)</key>");
    std::vector<std::string> keys;
    for (std::sregex_iterator match(xml.begin(), xml.end(), rootKey), end; match != end; ++match) {
        keys.push_back((*match)[1]);
    }
    return keys;
}

template <typename T> std::string encodedXml(const T& value) {
    return PropertyListEncoder().encode(value);
}

template <typename T> T decodedFrom(const std::string& dictionaryBody) {
    return PropertyListDecoder().decode<T>(xmlPlist(dictionaryBody));
}

} // namespace varnoth::test
