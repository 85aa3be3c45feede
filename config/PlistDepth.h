#pragma once

#include <cstddef>
#include <string_view>

namespace varnoth {

// How deep the containers (arrays, dictionaries, sets) of a property list nest, counted before libplist
// parses it: its parsers recurse once per level, so a file of a few hundred kilobytes nested a hundred
// thousand deep would end the process.
class PlistDepth {
public:
    // False when a container of the XML or binary property list lies deeper than limit, or a binary
    // list's references loop; true otherwise, also for text that is neither (the parser judges that).
    static bool within(std::string_view content, std::size_t limit);

private:
    static bool xmlWithin(std::string_view content, std::size_t limit);
    static bool binaryWithin(std::string_view content, std::size_t limit);
};

} // namespace varnoth
