#pragma once

#include "tests/support/ServerProcess.h"

#include <map>
#include <pugixml.hpp>
#include <string>

namespace varnoth::test {

// One entry of a property list's top dictionary, its type named as the administrator's guide does.
struct PlistValue {
    std::string type; // "Boolean", "integer", "text", "array", "dictionary" or the element's name
    std::string text; // "true"/"false" for a Boolean, "[a, b]" and "{key: value}" for the containers

    // The entries of a property list in XML; empty when it is not well formed or has no dictionary.
    static std::map<std::string, PlistValue> read(const std::string& xml) {
        pugi::xml_document document;
        std::map<std::string, PlistValue> values;
        if (!document.load_string(xml.c_str())) {
            return values;
        }
        for (auto key = document.child("plist").child("dict").child("key"); key;
             key = key.next_sibling("key")) {
            values[key.text().get()] = of(key.next_sibling());
        }
        return values;
    }

    // An array or a dictionary shows its items in brackets, each as its text.
    static PlistValue of(const pugi::xml_node& node) {
        const std::string name = node.name();
        if (name == "array" || name == "dict") {
            std::string items;
            for (auto item = node.first_child(); item; item = item.next_sibling()) {
                items += item == node.first_child() ? "" : ", ";
                if (name == "dict") {
                    items += item.text().get() + std::string(": ");
                    item = item.next_sibling();
                }
                items += of(item).text;
            }
            return name == "array" ? PlistValue{"array", "[" + items + "]"}
                                   : PlistValue{"dictionary", "{" + items + "}"};
        }
        return name == "true" || name == "false" ? PlistValue{"Boolean", name}
               : name == "string"                ? PlistValue{"text", node.text().get()}
                                                 : PlistValue{name, node.text().get()};
    }
};

} // namespace varnoth::test
