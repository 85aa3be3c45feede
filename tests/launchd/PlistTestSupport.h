#pragma once

#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
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

// Case text with \n, \r, \t and \xHH written out.
inline std::string unescaped(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
        } else if (text[++at] == 'x') {
            bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            bytes += text[at] == 'n' ? '\n' : text[at] == 'r' ? '\r' : '\t';
        }
    }
    return bytes;
}

// Answers each case of tests/golden/<name>.txt and compares the file with its cases and answers. A case is a
// line "word rest"; its answer is the line after it, written as "= answer". Blank lines and lines starting
// with "#" explain the cases and are kept.
inline void
expectTranscript(const std::string& name,
                 const std::function<std::string(const std::string&, const std::string&)>& answer) {
    std::ifstream in(std::filesystem::path(VARNOTH_GOLDEN_DIR) / (name + ".txt"));
    ASSERT_TRUE(in) << name;
    std::string transcript;
    for (std::string line; std::getline(in, line);) {
        const auto space = line.find(' ');
        if (line.empty() || line.starts_with("#")) {
            transcript += line + "\n";
        } else if (!line.starts_with("= ")) {
            transcript +=
                line + "\n= " +
                answer(line.substr(0, space), space == std::string::npos ? "" : line.substr(space + 1)) +
                "\n";
        }
    }
    expectGolden(name, transcript);
}

} // namespace varnoth::test
