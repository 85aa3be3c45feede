// Character-set conversions between any two code pages the converter knows; the first two bytes pick them.
#include "directory/Iconv.h"
#include "fuzz/FuzzEnvironment.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using varnoth::Iconv;
    if (size < 2) {
        return 0;
    }
    static const std::vector<Iconv::CodePage> pages = Iconv::allCodePages();
    const Iconv::CodePage from = pages[data[0] % pages.size()];
    const Iconv::CodePage to = pages[data[1] % pages.size()];
    const std::vector<std::uint8_t> input(data + 2, data + size);
    try {
        Iconv converter(from, to);
        (void)converter.convert(input.data(), input.size());
        (void)converter.convertToText(input);
        // Two fresh converters on the same input agree (the descriptor's state is its only state).
        varnoth::fuzz::require(Iconv(from, to).convert(input.data(), input.size()) ==
                               Iconv(from, to).convert(input.data(), input.size()));
    } catch (const Iconv::Exception&) {
    }

    // Valid UTF-8 goes to UTF-16 and back unchanged.
    const auto utf8 = Iconv::codePage("UTF-8");
    const auto utf16 = Iconv::codePage("UTF-16LE");
    if (utf8 && utf16 && !input.empty()) {
        if (const auto wide = Iconv(*utf8, *utf16).convert(input.data(), input.size())) {
            varnoth::fuzz::require(Iconv(*utf16, *utf8).convert(wide->data(), wide->size()) == input);
        }
    }
    return 0;
}
