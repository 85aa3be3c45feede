// The macOS bundle's information dictionary and entitlements: they are only used on a Mac, so their
// content is checked here, where a typo would otherwise go unnoticed until a Mac build.

#include "BuildInfo.h"
#include "tests/install/PlistValue.h"
#include "tests/support/Golden.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

// Every key with its type and value (an array's or a dictionary's items too), the build's identifier
// and versions as placeholders, in tests/golden/install/bundle-files.txt. LSUIElement makes a menu bar
// agent without a Dock icon; the entitlements' types are those codesign and the sandbox expect.
TEST(BundleFilesTest, InformationDictionaryAndEntitlementsHoldTheBuildsValues) {
    const std::map<std::string, std::string> placeholders = {{build::bundleIdentifier, "<identifier>"},
                                                             {build::shortVersion, "<short version>"},
                                                             {build::bundleVersion, "<version>"}};
    EXPECT_EQ(build::bundleName, std::string("Varnoth Brelvane Agent")); // the name the dictionary shows
    std::string listing;
    for (const std::string path : {VARNOTH_INFO_PLIST, VARNOTH_ENTITLEMENTS}) {
        const std::string xml = readWholeFile(path);
        EXPECT_EQ(xml.find("${"), std::string::npos) << "a value was not filled in: " << path;
        listing += std::filesystem::path(path).filename().string() + "\n";
        for (const auto& [key, value] : PlistValue::read(xml)) {
            const auto placeholder = placeholders.find(value.text);
            listing += "  " + key + ": " + value.type + " " +
                       (placeholder == placeholders.end() ? value.text : placeholder->second) + "\n";
        }
    }
    expectGolden("install/bundle-files", listing);
}

} // namespace
} // namespace varnoth::test
