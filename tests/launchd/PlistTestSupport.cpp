#include "tests/launchd/PlistTestSupport.h"

#include <cstdlib>
#include <memory>

namespace varnoth::test {

std::string xmlPlist(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           dictionaryBody + "\n</dict>\n</plist>\n";
}

std::vector<std::string> rootKeys(const std::string& bytes) {
    const PlistNode root = PropertyListDecoder::parse(bytes);
    std::vector<std::string> keys;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root.get(), &iterator);
    const std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, &std::free);
    while (true) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(root.get(), iterator, &key, &value);
        const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
        if (value == nullptr) {
            return keys;
        }
        keys.emplace_back(key);
    }
}

} // namespace varnoth::test
