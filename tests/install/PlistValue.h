#pragma once

#include "tests/support/ServerProcess.h"

#include <map>
#include <ostream>
#include <pugixml.hpp>
#include <string>

namespace varnoth::test {

// One entry of a property list's top dictionary, its type named as the administrator's guide does.
struct PlistValue {
    std::string type; // "Boolean", "integer", "text" or the element's name
    std::string text; // "true"/"false" for a Boolean
    friend std::ostream& operator<<(std::ostream& out, const PlistValue& value) {
        return out << value.type << " \"" << value.text << '"';
    }

    // The entries of a property list in XML; empty when it is not well formed or has no dictionary.
    static std::map<std::string, PlistValue> read(const std::string& xml) {
        pugi::xml_document document;
        std::map<std::string, PlistValue> values;
        for (auto key = document.load_string(xml.c_str()) ? document.child("plist").child("dict").child("key")
                                                          : pugi::xml_node();
             key; key = key.next_sibling("key")) {
            const std::string name = key.next_sibling().name(), text = key.next_sibling().text().get();
            values[key.text().get()] = name == "true" || name == "false"
                                           ? PlistValue{"Boolean", name}
                                           : PlistValue{name == "string" ? "text" : name, text};
        }
        return values;
    }
};

} // namespace varnoth::test
