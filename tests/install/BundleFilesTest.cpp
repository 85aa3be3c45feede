// The macOS bundle's information dictionary and entitlements: they are only used on a Mac, so their
// content is checked here, where a typo would otherwise go unnoticed until a Mac build.

#include "BuildInfo.h"

#include <fstream>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sstream>
#include <string>

namespace varnoth::test {
namespace {

// Owns a parsed property list.
class PropertyList {
public:
    explicit PropertyList(const char* path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        text = content.str();
        plist_from_memory(text.data(), static_cast<uint32_t>(text.size()), &root);
    }
    ~PropertyList() { plist_free(root); }
    PropertyList(const PropertyList&) = delete;
    PropertyList& operator=(const PropertyList&) = delete;

    bool isDictionary() const { return root != nullptr && plist_get_node_type(root) == PLIST_DICT; }
    std::size_t size() const { return plist_dict_get_size(root); }

    std::string string(const char* key) const {
        plist_t node = plist_dict_get_item(root, key);
        if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
            return "(not a string)";
        }
        char* value = nullptr;
        plist_get_string_val(node, &value);
        std::string result = value;
        std::free(value);
        return result;
    }

    std::optional<bool> boolean(const char* key) const {
        plist_t node = plist_dict_get_item(root, key);
        if (node == nullptr || plist_get_node_type(node) != PLIST_BOOLEAN) {
            return std::nullopt;
        }
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }

    std::string text;
    plist_t root = nullptr;
};

TEST(BundleFilesTest, InformationDictionaryMakesAMenuBarAgentWithTheBuildsValues) {
    const PropertyList info(VARNOTH_INFO_PLIST);
    ASSERT_TRUE(info.isDictionary()) << info.text;
    EXPECT_EQ(info.text.find("${"), std::string::npos) << "a value was not filled in";
    EXPECT_EQ(info.string("CFBundleName"), "Varnoth Brelvane Agent");
    EXPECT_EQ(info.string("CFBundleName"), build::bundleName);
    EXPECT_EQ(info.string("CFBundleIdentifier"), build::bundleIdentifier);
    EXPECT_EQ(info.string("CFBundleShortVersionString"), build::shortVersion);
    EXPECT_EQ(info.string("CFBundleVersion"), build::bundleVersion);
    EXPECT_EQ(info.string("CFBundleExecutable"), build::bundleName);
    EXPECT_EQ(info.string("CFBundlePackageType"), "APPL");
    EXPECT_EQ(info.boolean("LSUIElement"), true); // menu bar only, no Dock icon
    const std::string usage = info.string("NSAppleEventsUsageDescription");
    EXPECT_NE(usage.find("Outlook"), std::string::npos) << usage;
}

TEST(BundleFilesTest, EntitlementsAllowAppleEventsToOutlookOutsideTheSandbox) {
    const PropertyList entitlements(VARNOTH_ENTITLEMENTS);
    ASSERT_TRUE(entitlements.isDictionary()) << entitlements.text;
    EXPECT_EQ(entitlements.size(), 4u);
    EXPECT_EQ(entitlements.boolean("com.apple.security.app-sandbox"), false);
    EXPECT_EQ(entitlements.boolean("com.apple.security.automation.apple-events"), true);
    EXPECT_EQ(entitlements.string("com.apple.security.scripting-targets"), "com.microsoft.Outlook");
    EXPECT_EQ(entitlements.boolean("com.apple.security.temporary-exception.apple-events"), true);
}

} // namespace
} // namespace varnoth::test
