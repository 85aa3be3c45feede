#pragma once

#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>

#include <string>

namespace varnoth::test {

// An XML property list whose root dictionary holds the given body.
inline std::string xmlPlist(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + dictionaryBody +
           "\n</dict>\n</plist>\n";
}

// A record encoded as XML, its root dictionary on one line: every present key, value and type shows.
template <typename T> std::string oneLine(const T& record) {
    std::string xml = PropertyListEncoder().encode(record);
    std::erase_if(xml, [](char c) { return c == '\n' || c == '\t'; });
    return xml.substr(xml.find("<dict"), xml.rfind("</plist>") - xml.find("<dict"));
}

} // namespace varnoth::test
