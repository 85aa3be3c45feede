// The macOS bundle's information dictionary and entitlements: they are only used on a Mac, so their
// content is checked here, where a typo would otherwise go unnoticed until a Mac build.

#include "BuildInfo.h"
#include "tests/install/PlistValue.h"
#include "tests/support/Golden.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

// The entries of a property list's top dictionary, one a line.
std::string entries(const std::string& file) {
    std::string text;
    for (const auto& [key, value] : PlistValue::read(readWholeFile(file))) {
        text += key + ": " + value.type + " \"" + value.text + "\"\n";
    }
    return text;
}

// A menu bar agent (LSUIElement: no Dock icon) that may send Apple events to Outlook outside the sandbox. The
// values a build fills in show as placeholders, so the golden files hold only the fixed ones (and no "${"
// left unfilled).
TEST(BundleFilesTest, InformationDictionaryAndEntitlements) {
    EXPECT_EQ(build::bundleName, std::string("Varnoth Brelvane Agent"));
    const auto built = [](const std::string& key, const std::string& value) {
        return std::pair(key + ": text \"" + value + "\"", key + ": the build's value");
    };
    expectGolden("install/info-plist", entries(VARNOTH_INFO_PLIST),
                 {built("CFBundleIdentifier", build::bundleIdentifier),
                  built("CFBundleShortVersionString", build::shortVersion),
                  built("CFBundleVersion", build::bundleVersion)});
    expectGolden("install/entitlements", entries(VARNOTH_ENTITLEMENTS));
}

} // namespace
} // namespace varnoth::test
