#pragma once

#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"

#include <string>
#include <vector>

namespace varnoth::test {

// An XML property list whose root dictionary holds the given body.
std::string xmlPlist(const std::string& dictionaryBody);

// The keys of an XML property list's root dictionary, in file order.
std::vector<std::string> rootKeys(const std::string& xml);

// Every key of a job record, in the order the record writes them.
const std::vector<std::string>& jobRecordKeys();

template <typename T> std::string encodedXml(const T& value) {
    return PropertyListEncoder().encode(value);
}

template <typename T> T decodedFrom(const std::string& dictionaryBody) {
    return PropertyListDecoder().decode<T>(xmlPlist(dictionaryBody));
}

} // namespace varnoth::test
